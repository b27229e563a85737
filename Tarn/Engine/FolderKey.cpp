#include <MapiWrapper/HexText.h>
#include <Tarn/Engine/FolderKey.h>

CFolderKey CFolderKey::FromText(const std::string& text) {
    CFolderKey key;
    const size_t colon = text.find(':');
    if (colon == std::string::npos) return key;
    key.m_folder.ParseHex(text.substr(0, colon));
    key.m_store.ParseHex(text.substr(colon + 1));
    return key;
}

std::string CFolderKey::ToText(const SBinary& folder, const SBinary& store) {
    return HexFromBinary(folder) + ':' + HexFromBinary(store);
}
