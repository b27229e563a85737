// Copies whose originals bear the common sync ID already, and whose own stamp still names the original.
//
// The stamps of both stores are gathered into transactions of their own. A copy that is linked while its
// original is not could not be told from an item whose partner has gone, so the originals' stamps are written
// out before the copies get theirs; many together, because writing out is dear.
#pragma once
#include <Tarn/Engine/syncfolder.h>

#include <string>
#include <utility>
#include <vector>

// For one copy loop. The engine and the folder of the copies must outlive it.
class CPendingLinks {
public:
    CPendingLinks(CSyncFolder& engine, const IMAPIFolderPtr& folder) : m_engine(engine), m_folder(folder) {}
    ~CPendingLinks() { Finish(); }
    CPendingLinks(const CPendingLinks&) = delete;
    CPendingLinks& operator=(const CPendingLinks&) = delete;

    // Finishes by itself from time to time; the row must live until then. Never throws CMAPIException.
    void Add(const IMessagePtr& copy, const CItemKey& item, const std::string& syncId, CSyncMessage& row);
    // What cannot be linked counts as a failed row; the next run links it. Never throws CMAPIException.
    void Finish();
    bool IsEmpty() const { return m_copies.empty(); }
    // Rows whose copies somebody has deleted in the meantime, since the last call. They count as failed.
    std::vector<CSyncMessage*> TakeLost() { return std::exchange(m_lost, {}); }
    // Rows whose copies stand there without their link, since the last call.
    std::vector<CSyncMessage*> TakeUnlinked() { return std::exchange(m_unlinked, {}); }
    // How many rows have been counted as failed here.
    unsigned Failures() const { return m_failures; }

private:
    struct CCopy {
        IMessagePtr message;
        CItemKey item;
        std::string syncId;
        CSyncMessage* row;
    };
    bool Link(CCopy& copy);
    void LinkAsItIsNow(const CCopy& copy, HRESULT refused);

    CSyncFolder& m_engine;
    const IMAPIFolderPtr& m_folder;
    std::vector<CCopy> m_copies;
    std::vector<CSyncMessage*> m_lost;
    std::vector<CSyncMessage*> m_unlinked;
    unsigned m_failures = 0;
};
