// How the items that a run has written stand in their folders now, told as a table would show them. With the
// rows that were read at the beginning that is all the run's end has to know of the folders: what others did
// meanwhile is not to be remembered as seen, so the folders need not be read again for it.
//
// Notes are dropped as soon as something happens that they cannot tell, such as a call that failed: what then
// stands in the folders is only known from reading them.
#pragma once
#include <MapiWrapper/MapiWrapper.h>
#include <Tarn/Engine/OwnWrites.h>

#include <string>
#include <string_view>
#include <vector>

struct CWrittenRow {
    std::string key;  // bytes
    FILETIME time{};
    std::string syncId;  // as a sync file tells it
    std::string name;
    bool inSource = false;
    bool isGone = false;
};

class CWrittenRows {
public:
    // Notes of at most `most` items; with more of them reading the folders is as cheap. The tags are those of
    // the sync ID in the two stores.
    void Start(size_t most, ULONG sourceSyncIdTag, ULONG targetSyncIdTag);
    // No notes, and none are taken until the next Start.
    void Drop();
    bool IsSure() const { return m_isSure; }
    ULONG SyncIdTag(bool ofSource) const { return ofSource ? m_sourceSyncIdTag : m_targetSyncIdTag; }

    // To be called behind each save, with the item open. Answers its time, zero where it could not be had.
    // Never throws CMAPIException.
    FILETIME NoteSaved(const IMessagePtr& message, const CItemKeyView& key, bool inSource);
    void NoteRemoved(const CItemKeyView& key);

    const std::vector<CWrittenRow>& Rows() const { return m_rows; }
    bool Holds(const CItemKeyView& key) const;

private:
    CWrittenRow* RowFor(const CItemKeyView& key);
    bool Tell(const CMapiPropValues& values, ULONG syncIdTag, CWrittenRow& row);

    bool m_isSure = false;
    size_t m_most = 0;
    ULONG m_sourceSyncIdTag = 0;
    ULONG m_targetSyncIdTag = 0;
    std::vector<CWrittenRow> m_rows;
    CFlatIndex m_byKey;
};
