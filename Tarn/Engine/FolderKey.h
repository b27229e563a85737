// The text by which all rooms name a folder: "folder:store", both entry IDs in upper-case hexadecimal.
#pragma once
#include <MapiWrapper/MapiBinary.h>

#include <string>

struct CFolderKey {
    CMapiBinary m_folder;
    CMapiBinary m_store;

    // Splits at the first colon. Without one both halves stay empty, so that opening the folder fails.
    static CFolderKey FromText(const std::string& text);
    static std::string ToText(const SBinary& folder, const SBinary& store);
};
