// What a run has to do on one side: a list of items, each with its state.
#pragma once
#include <MapiWrapper/HexText.h>
#include <MapiWrapper/MapiWrapper.h>
#include <Tarn/Engine/FlatIndex.h>
#include <Tarn/Engine/ItemKey.h>

#include <memory>
#include <string>
#include <string_view>
#include <vector>

// Travels unchanged into the protocol; the numbers never change.
enum SyncState : LONG {
    STATE_NONE = 0,               // winner of a conflict, stays as it is
    STATE_NEW = 1,                // has no counterpart
    STATE_MODIFIED = 2,           // changed since the last run
    STATE_COUNTERPART_NEWER = 3,  // 3 and 4 are written by FindCounterpart alone
    STATE_COUNTERPART_OLDER = 4,
    STATE_CONFLICT = 5,  // loser of a conflict
    STATE_DELETED = 6,   // gone from this side
    STATE_MOVED = 9,     // has a stale stamp and no sync ID
};

// A first run makes one for each item, so each member counts.
struct CSyncMessage {
    CComPtr<IMessage> m_message;  // empty unless a caller has it open; the copy loop uses it then
    CItemKey m_item;
    CMapiBinary m_secondEntryId;  // of the counterpart that FindCounterpart took
    CMapiBinary m_searchKey;      // filled for rows without sync ID
    std::string m_syncId;
    std::string m_name;
    FILETIME m_modified{};
    FILETIME m_created{};
    LONG m_origin = 0;  // which rule made the record, a diagnostic
    LONG m_state = STATE_NONE;
    // A TextId: what becomes of it because the other side has changed as well; 0: nothing.
    unsigned m_settled = 0;

    // A deletion that lost against a change has the same state, and nothing that could be kept.
    bool IsLostVersion() const { return m_state == STATE_CONFLICT && !m_item.IsEmpty(); }
};

// Owns its messages. A later message with the same sync ID takes the place of the former in the map
// and stays beside it in the list.
class CSyncMessages {
public:
    CSyncMessages() = default;
    CSyncMessages(const CSyncMessages&) = delete;
    CSyncMessages& operator=(const CSyncMessages&) = delete;
    virtual ~CSyncMessages() = default;

    CSyncMessage& Add(std::unique_ptr<CSyncMessage> message);
    void Clear();
    // Frees a message that is done with, for the room that it takes. It stays counted; At must not be asked
    // for it again, and from the first one on Find finds nothing.
    void Drop(size_t index);

    size_t Count() const { return m_messages.size(); }
    bool IsEmpty() const { return m_messages.empty(); }
    CSyncMessage& At(size_t index) { return *m_messages.at(index); }
    const CSyncMessage& At(size_t index) const { return *m_messages.at(index); }
    // Null if no message has this sync ID.
    CSyncMessage* Find(std::string_view syncId) const;

private:
    std::vector<std::unique_ptr<CSyncMessage>> m_messages;
    // Of the first m_indexed messages. Most lists are never searched.
    mutable CFlatIndex m_bySyncId;
    mutable size_t m_indexed = 0;
};
