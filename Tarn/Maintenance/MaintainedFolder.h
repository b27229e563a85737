// A folder under maintenance, and who looks on.
#pragma once
#include <MapiWrapper/MapiWrapper.h>

#include <string>

// One folder with the store around it, both open.
struct CMaintainedFolder {
    IMsgStorePtr store;
    IMAPIFolderPtr folder;

    // Of a folder key ("folder:store" in hexadecimal). Empty for a key without a folder part, which names
    // nothing to be maintained; throws CMAPIException where store or folder does not open.
    static CMaintainedFolder OfKey(const CMapiSession& session, const std::string& key);
    bool IsValid() const { return static_cast<bool>(folder); }
    // Its display name for messages; empty where it cannot be read. Never throws.
    std::string Name() const { return folder.GetStrPropOrEmpty(PR_DISPLAY_NAME_A); }
};

// The counter of a dialog, the progress of a command, a test. Called on the thread that maintains.
class IMaintenanceWatch {
public:
    virtual ~IMaintenanceWatch() = default;
    // The row that is looked at, from 0, of so many; told now and then.
    virtual void ShowRow(unsigned row, unsigned rows) = 0;
    // True: end as soon as that can be done cleanly. What was done stays done.
    virtual bool IsCancelled() = 0;
};
