// The rows of a folder as they are looked at for duplicates, and which of each group stays. Touches no item.
#pragma once
#include <MapiWrapper/MapiWrapper.h>
#include <Tarn/Engine/ItemKey.h>

#include <string>
#include <string_view>
#include <unordered_map>

class CDuplicateRows {
public:
    // Sorted by search key, the newest of each key first. With `links` also what links an item across a pair.
    // Throws CMAPIException.
    void Read(const IMAPIFolderPtr& folder, bool links);

    ULONG Count() const { return m_rows.IsValid() ? m_rows.Count() : 0; }
    // Behind the last row with the key of row `first`; a row without a key stands alone.
    ULONG EndOfGroup(ULONG first) const;
    // The row that stays of a group. The newest, unless AgreeOnKept has found a reason for another.
    ULONG KeptOf(ULONG first, ULONG end) const;

    CItemKeyView ItemOf(ULONG row) const;
    std::string NameOf(ULONG row) const;  // the subject, or else the display name
    // The item is gone from the folder, and its row names nothing any more.
    void Forget(ULONG row);

    friend void AgreeOnKept(CDuplicateRows& source, CDuplicateRows& target);
    friend void KeepLinked(CDuplicateRows& rows, const CDuplicateRows& partner);

private:
    struct CGroup {
        ULONG first;
        ULONG end;
        ULONG Count() const { return end - first; }
    };
    SBinary KeyOf(ULONG row) const;
    FILETIME TimeOf(ULONG row) const;
    ULONG NewestOf(const CGroup& group) const;
    std::string LinkOf(ULONG row) const;
    // The row of the group that bears the link, or its end.
    ULONG FindLink(const CGroup& group, const std::string& link) const;
    // The newest row of the group with a counterpart in the other group, or the end of the group.
    ULONG NewestLinked(const CGroup& group, const CDuplicateRows& other, const CGroup& ofOther) const;
    // Of two groups of which this one holds the newest row.
    void AgreeWith(CDuplicateRows& other, const CGroup& group, const CGroup& ofOther);
    std::unordered_map<std::string_view, CGroup> Groups() const;

    CMapiRowSet m_rows;
    std::unordered_map<ULONG, ULONG> m_kept;  // by the first row of a group
};

// The two folders of a pair, read with links. Where the items that would stay on either side are no
// counterparts of each other, the next run would take each for one whose counterpart was deleted, and delete
// both. So the counterpart of the newer of the two stays; where that has gone before, two stay that are
// counterparts.
void AgreeOnKept(CDuplicateRows& source, CDuplicateRows& target);
// A folder that is cleaned by itself, and the other folder of a pair, both read with links. An item whose
// counterpart has gone from there does not stay in the place of one that still has its own: the next run
// would delete it, and the other side's last one with it.
void KeepLinked(CDuplicateRows& rows, const CDuplicateRows& partner);
