// The list of what a run did to which item, for the person who started it.
#pragma once
#include <deque>
#include <string>

struct CSyncProtocolEntry {
    std::string m_destination;  // display name of the folder that the change goes to
    std::string m_origin;       // and of the one it comes from
    std::string m_subject;
    std::string m_detail;  // what happened
    int m_state = 0;       // a SyncState
    std::string m_syncId;
};

// Entries stay in the order of what happened until the caller clears the list; one protocol serves all
// pairs of a batch. Used by the thread of the run alone.
class CSyncProtocol {
public:
    void Add(const std::string& destination, const std::string& origin, const std::string& subject, int state,
             const std::string& detail, const std::string& syncId);
    void Clear() { m_entries.clear(); }

    size_t Count() const { return m_entries.size(); }
    bool IsEmpty() const { return m_entries.empty(); }
    CSyncProtocolEntry& At(size_t index) { return m_entries.at(index); }
    const CSyncProtocolEntry& At(size_t index) const { return m_entries.at(index); }

    auto begin() const { return m_entries.begin(); }
    auto end() const { return m_entries.end(); }

private:
    std::deque<CSyncProtocolEntry> m_entries;
};
