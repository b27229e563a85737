// The folder below the wastebasket that duplicates of a folder go to.
#pragma once
#include <Tarn/Maintenance/MaintainedFolder.h>

class CDuplicateHolding {
public:
    explicit CDuplicateHolding(const CMaintainedFolder& of) : m_of(of) {}

    // True where there is a wastebasket to make it in. Makes nothing. Never throws CMAPIException.
    bool IsPossible();
    // Made at the first call, level by level; false where that is refused, and where it would be the folder
    // itself. Never throws CMAPIException.
    bool Open();
    const IMAPIFolderPtr& Folder() const { return m_folder; }

private:
    IMAPIFolderPtr Make();
    const CMaintainedFolder& m_of;
    IMAPIFolderPtr m_folder;
    bool m_tried = false;
};
