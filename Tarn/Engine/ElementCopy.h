// One item that is new on its side, or whose link is lost: finding what it belongs to on the other
// side, and carrying it there.
#pragma once
#include <Tarn/Engine/ItemTransfer.h>
#include <Tarn/Engine/PendingLinks.h>

// What the rows of one copy loop have in common. Everything is the caller's.
struct CCopyRoute {
    CSyncFolder& engine;
    const IMAPIFolderPtr& sourceFolder;
    const IMAPIFolderPtr& targetFolder;
    const CMapiRowSet& sourceRows;
    const CMapiRowSet& targetRows;
    CPendingLinks& links;
};

// The row, or -1 for one whose item was written in this copy loop.
int FreeRow(const CCopyRoute& route, int targetRow);

// Carries a changed item across: rewrites the counterpart that bears its sync ID, or without one
// treats it as new. Reports and counts what fails; never throws. `emptied` receives a target that
// was saved without its contents.
RowResult CopyChangedRow(const CCopyRoute& route, CSyncMessage& row, IMessagePtr& source, std::string& status,
                         bool quiet, CEmptiedTarget& emptied);
// The first of the two, by the target's row.
RowResult RewriteTarget(const CCopyRoute& route, ULONG targetRow, IMessagePtr& source, std::string& status,
                        bool quiet, CEmptiedTarget& emptied);

// For one row and one use.
class CElementCopy {
public:
    CElementCopy(const CCopyRoute& route, CSyncMessage& row, IMessagePtr& source, std::string& status,
                 bool quiet)
        : m_route(route),
          m_engine(route.engine),
          m_row(row),
          m_source(source),
          m_status(status),
          m_quiet(quiet) {}

    // Throws what goes wrong before a target is chosen. Everything later is reported (not if quiet), and
    // counted as a failed row.
    void Run(CSyncTargetRecord* record, bool useRowSyncId, bool allowSearch);
    RowResult Result() const { return m_result; }

private:
    void FindTargetRow(bool useRowSyncId, bool allowSearch);
    int FindByKey() const;
    int SearchSimilar();
    bool CompareTimes();
    void AgreeOnSyncId();
    bool ChooseTarget();
    void OpenTarget();
    bool IsReturn() const;

    void Transfer(CSyncTargetRecord* record);
    void CopyToTarget();
    void FillTarget();
    void GiveBack();
    void SaveTarget();
    void SaveContents();
    CItemKey SavedItem() const;
    bool NeedsLink() const;
    void StampTarget();
    void Link();
    void SaveSource();
    void TakeBack(const CMAPIException& e);
    bool RemoveTarget() const;
    void FillRecord(CSyncTargetRecord& record) const;

    CMapiPropValue TargetCell(ULONG column) const {
        return m_route.targetRows.Cell(static_cast<ULONG>(m_targetRow), column);
    }
    void ReportTransfer(const CMAPIException& e) const;
    void ReportTransferCrash() const;
    void Show(const std::string& text, const char* caption) const;

    const CCopyRoute& m_route;
    CSyncFolder& m_engine;
    CSyncMessage& m_row;
    IMessagePtr& m_source;
    std::string& m_status;
    const bool m_quiet;

    CItemFacts m_facts;
    std::string m_syncId;
    int m_targetRow = -1;
    bool m_linked = false;   // found by the ID
    bool m_similar = false;  // found by its contents, not by an ID or a key
    IMessagePtr m_target;
    bool m_isNew = false;
    bool m_replaces = false;  // the old version has to leave the target folder after the save
    bool m_oldStays = false;  // and could not
    CItemKey m_oldItem;
    CItemKey m_newItem;
    bool m_needsLink = false;
    bool m_takenBack = false;        // the target is gone again, as if nothing had been done
    const char* m_action = nullptr;  // what a failure in saving was about
    RowResult m_result = RowResult::NotSaved;
};
