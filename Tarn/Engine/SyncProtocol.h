// The list of what a run did to which item, for the person who started it.
#pragma once
#include <Tarn/Engine/FlatIndex.h>

#include <string>
#include <vector>

struct CSyncProtocolEntry {
    std::string m_destination;  // display name of the folder that the change goes to
    std::string m_origin;       // and of the one it comes from
    std::string m_subject;
    std::string m_detail;  // what happened; a row to which nothing did repeats what the row before it has
    int m_state = 0;       // a SyncState
    std::string m_syncId;
    std::string m_done;       // what happened to this item; empty: nothing
    bool m_toSource = false;  // the side of the pair that the change goes to
};

// Entries stay in the order of what happened until the caller clears the list; one protocol serves all
// pairs of a batch. A first run names each item, so entries lie packed, about a hundred bytes each, and are
// made anew for each who asks. Used by the thread of the run alone.
class CSyncProtocol {
public:
    // Of an item to which `detail` happened.
    void Add(const std::string& destination, const std::string& origin, const std::string& subject, int state,
             const std::string& detail, const std::string& syncId);
    void Add(const CSyncProtocolEntry& entry);
    // What became of an item after its entry was made.
    void SetDone(size_t index, const std::string& done);
    void Clear();

    size_t Count() const { return m_entries.size(); }
    bool IsEmpty() const { return m_entries.empty(); }
    CSyncProtocolEntry At(size_t index) const;
    void SetState(size_t index, int state) { m_entries.at(index).state = state; }

    class CIterator {
    public:
        CIterator(const CSyncProtocol& protocol, size_t index) : m_protocol(protocol), m_index(index) {}
        CSyncProtocolEntry operator*() const { return m_protocol.At(m_index); }
        CIterator& operator++() {
            ++m_index;
            return *this;
        }
        bool operator!=(const CIterator& other) const { return m_index != other.m_index; }

    private:
        const CSyncProtocol& m_protocol;
        size_t m_index;
    };
    CIterator begin() const { return {*this, 0}; }
    CIterator end() const { return {*this, m_entries.size()}; }

private:
    struct CPacked {
        size_t at;  // in m_texts: subject, sync ID
        std::uint32_t cbSubject;
        std::uint32_t cbSyncId;
        std::uint32_t destination, origin, detail, done;  // in m_shared
        int state;
        bool toSource;
    };
    std::uint32_t Share(const std::string& text);

    std::vector<CPacked> m_entries;
    std::string m_texts;
    std::vector<std::string> m_shared;  // texts that many entries have, each once
    CFlatIndex m_byText;                // over m_shared
};
