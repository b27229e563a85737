// One run over one pair: what it holds, and its phases in their order. Used by CSyncFolder::SyncFolder.
#pragma once
#include <Tarn/Engine/FolderKey.h>
#include <Tarn/Engine/StoreBatch.h>
#include <Tarn/Engine/syncfolder.h>

#include <optional>
#include <string>

class CSyncRun {
public:
    explicit CSyncRun(CSyncFolder& engine) : m_engine(engine) {}
    // The whole run; answers what SyncFolder answers. Never throws.
    int Run(const std::string& source, const std::string& target);
    // Saves that were confirmed are gone: nothing may go on as if they stood.
    bool HasLost() const { return m_source.batch.HasLost() || m_target.batch.HasLost(); }

private:
    // One side of the pair.
    struct Side {
        CMapiBinary folderId;
        CMapiBinary storeId;
        IMsgStorePtr store;
        IMAPIFolderPtr folder;
        IMAPITablePtr table;
        CMapiRowSet rows;
        CSyncMessages changes;
        CRowMarks marks;     // of the rows
        CSideMemory memory;  // takes their place while the sync files are written
        std::string name;
        CStoreBatch batch;
        bool toldOfLoss = false;
    };

    int OpenAndRun(const std::string& source, const std::string& target);
    bool SplitKeys(const std::string& source, const std::string& target);
    bool Prepare();
    void Phases();

    bool OpenSides();
    void OpenSource();
    void OpenTarget();
    void FindSourceAgain();
    void FindTargetAgain();
    void ReadNames();
    void TraceNames();
    void OpenTable(Side& side, const char* reported, const char* crashed);
    bool QueryPermitted();
    bool Load();

    void SortAndQuery();
    void SortTable(Side& side, const char* stage);
    void QueryRows(Side& side, const char* stage);
    void FinishCopies();
    void CheckIdentities();
    static void NoteLook(Side& side, const FILETIME& since);
    static void HideLaterChanges(Side& side);
    void CheckIdentity(Side& side, const char* failure);
    bool Analyze();
    void NoteUncarried();
    void ReloadAllRows();
    void TraceChanges();
    bool Permitted();
    void MarkRowsOfSides();
    void StartNotes();
    bool LiesInOneStore() const;
    void LinkTheSame();
    void KeepConflictLosers();
    void CopyBothWays();
    void ForgetTables();
    void ForgetMemories();
    void ForgetRows();
    void RememberRows(Side& side, bool isSource);
    // What the target's store says of its own age (StoreMark.cpp).
    ULONG TagOfMark();
    void CompareMark();
    void TurnMemoriesBack();
    void LeaveMark();
    bool MustAgreeOnMark() const;
    bool MustRemember() const;
    void WriteState();
    bool Reached(Side& side, HRESULT answer);

    void Status(const std::string& text);
    bool HasRows() const { return m_source.rows.IsValid() && m_target.rows.IsValid(); }
    bool HasChanges() const { return !m_source.changes.IsEmpty() || !m_target.changes.IsEmpty(); }
    void DropChanges();

    CSyncFolder& m_engine;
    Side m_source;
    Side m_target;
    std::string m_stage;                // what is being opened, for the message if it fails
    unsigned m_phasesFailedBefore = 0;  // when the notes were started
    bool m_targetIsOlder = false;       // than the memories
    int m_answer = 0;
};
