// What a run knows of one side when it writes the side's memory: the rows it has looked at, and what it has
// done to them since.
//
// The memory is written from the rows at the end of the run. Between the look and that moment a person, or
// another process, may have changed and removed items. Such a change must not be remembered as seen: nobody
// has carried it across, and no later run would.
#pragma once
#include <MapiWrapper/MapiWrapper.h>
#include <Tarn/Engine/SyncMessages.h>

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

// The items that the run itself saved, by the bytes of their entry IDs.
struct CSavedItem {
    FILETIME time{};  // behind the last save; zero if it could not be had
    std::string syncId;
};
struct COwnWrites {
    std::unordered_map<std::string, CSavedItem> saved;
    std::unordered_set<std::string> targets;  // written or replaced by a copy

    void Clear() {
        saved.clear();
        targets.clear();
    }
    static std::string KeyOf(const SBinary& entryId) {
        return {reinterpret_cast<const char*>(entryId.lpb), entryId.lpb ? entryId.cb : 0};
    }
};

// Compact, because the rows themselves are given back before the memory is written.
class CSeenRows {
public:
    // `rows` in the columns of SyncColumn, as the lists were made from them; `otherChanges` is what was
    // carried to this side. Neither is needed any more afterwards; `own` must outlive the object.
    CSeenRows(const CMapiRowSet& rows, const CSyncMessages& otherChanges, const COwnWrites& own);

    // The time to remember for an item that the folder now shows with the time `now`: an earlier one where
    // somebody else has changed it since, so that the next run finds the change.
    FILETIME TimeOf(const SBinary& identifier, const FILETIME& now);
    // To be called for the sync ID of each row that is still there.
    void NoteStillThere(std::string_view syncId);
    // Behind all rows: the items that were looked at and removed by somebody else since. Remembering them
    // lets the next run find them gone.
    struct Gone {
        SBinary identifier;
        FILETIME time;
        std::string syncId;
        std::string name;
    };
    void ForEachGone(const std::function<void(const Gone&)>& body) const;
    // Before the rows are gone through again.
    void StartAnew();

private:
    struct Row {
        FILETIME time;
        size_t at;  // in m_texts: identifier, sync ID, name
        std::uint32_t cbIdentifier;
        std::uint32_t cbSyncId;
        std::uint32_t cbName;
        bool isDeletedHere;   // by the run
        bool isChangedByRun;  // the other side had something to say about it
        bool isStillThere;
    };
    std::string_view IdentifierOf(const Row& row) const {
        return {m_texts.data() + row.at, row.cbIdentifier};
    }
    std::string SyncIdOf(const Row& row) const {
        return m_texts.substr(row.at + row.cbIdentifier, row.cbSyncId);
    }
    size_t SlotOf(std::string_view identifier) const;
    void Add(const CMapiRowSet& rows, ULONG row, const CSyncMessages& otherChanges);

    const COwnWrites& m_own;
    std::string m_texts;
    std::vector<Row> m_rows;
    std::vector<std::uint32_t> m_slots;       // number of a row + 1, or 0; a power of two, at most half full
    std::vector<std::uint64_t> m_syncIdsNow;  // hashes
};
