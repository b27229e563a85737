// The engine: one run over one pair of folders. The phases of a run lie in a source file each; they
// share this class because they share the state of the run.
//
// Reading order: SyncRun.cpp (the order of the phases), ModifyList.cpp (what changed), CopyLoop.cpp
// (making it so), SyncFileStore.cpp (remembering it).
#pragma once
#include <MapiWrapper/MapiWrapper.h>
#include <Tarn/Engine/MemoryImage.h>
#include <Tarn/Engine/RunGuard.h>
#include <Tarn/Engine/Strings.h>
#include <Tarn/Engine/SyncFile.h>
#include <Tarn/Engine/SyncIdentity.h>
#include <Tarn/Engine/SyncMessages.h>
#include <Tarn/Engine/SyncProgress.h>
#include <Tarn/Engine/SyncProtocol.h>
#include <Tarn/Engine/SyncTrace.h>
#include <Tarn/Engine/TarnSetting.h>

#include <array>
#include <list>
#include <memory>
#include <set>
#include <string>
#include <unordered_set>
#include <vector>

struct CFolderLevel;
class CMessageCache;
class CStoreBatch;
class CSyncRun;

// What a batch did, beyond what SyncSubFolder answers (its number is information only). Sums over all
// pairs and subfolders since the caller last cleared it.
struct CSyncOutcome {
    unsigned pairsRun = 0;        // pairs whose folders and tables were open
    unsigned pairsNotOpened = 0;  // pairs with a store, folder or table that did not open
    unsigned pairsHeld = 0;       // pairs that were not begun, because another run has one of their folders
    unsigned phasesFailed = 0;    // phases of a run that ended with an error of their own
    unsigned rowsFailed = 0;      // items that could not be carried over or removed
    unsigned sourceChanged = 0;   // items created, rewritten or removed in source folders
    unsigned targetChanged = 0;
    unsigned conflicts = 0;        // items changed on both sides
    unsigned duplicatesMoved = 0;  // before the runs, where the installation asks for it
    bool cancelled = false;
    bool notAvailable = false;  // a kind of pair that this version does not run
    bool guarded = false;       // a pair was stopped by its guard
};

// The new target of SyncModifiedElement, for a caller that watches folders.
struct CSyncTargetRecord {
    CMapiBinary m_entryId;
    CMapiBinary m_storeEntryId;
    DWORD m_tickCount = 0;  // TickCount()
    ULONG m_modifiedLow = 0;
    ULONG m_modifiedHigh = 0;
};

// Items that wait to be removed together.
class CEntryIdBatch {
public:
    void Clear();
    void Add(const CItemKeyView& item);
    bool Remove(const CItemKeyView& item);  // false if it is not in there
    size_t Count() const { return m_ids.size(); }
    bool IsEmpty() const { return m_ids.empty(); }
    // Both valid until the batch is changed.
    CItemKeyView At(size_t index) const { return CItemKeyView::OfKept(m_ids.at(index)); }
    ENTRYLIST* List();

private:
    std::vector<std::string> m_ids;
    std::vector<SBinary> m_binaries;
    ENTRYLIST m_list{};
};

// Batches of entry IDs that a copy loop removes; the numbers are those of AddToDelArray.
enum DeletionBatch { BATCH_DELETED = 0, BATCH_CONFLICTS = 1, BATCH_OVERWRITTEN = 2, BATCH_COUNT = 3 };

inline constexpr LONG DeletionBatchCapacity = 5000;

// What a person is told of a folder that has the name of another one beside it.
std::string NamesakeText(const std::string& path);

// One object for one batch of pairs, on the thread that uses the session. The caller sets session,
// setting, progress, protocol and the options below, then calls SyncSubFolder once per pair. Between
// pairs nothing carries over but the outcome, the missing folders and the protocol.
class CSyncFolder {
public:
    using CSyncIds = std::set<std::string, std::less<>>;

    CSyncFolder();
    virtual ~CSyncFolder();
    CSyncFolder(const CSyncFolder&) = delete;
    CSyncFolder& operator=(const CSyncFolder&) = delete;

    // ---- entries (SubFolders.cpp, SyncRun.cpp) ---------------------------------------------------

    // Runs a pair with its subfolders, children first. The texts are folder keys ("folder:store" in
    // hexadecimal). Answers what the last SyncFolder answered, or 1; see CSyncOutcome for what became
    // of it. Reports failures by message boxes; CMAPIException does not leave it.
    int SyncSubFolder(const std::string& source, const std::string& target, bool toTarget, bool toSource,
                      bool findDeletions, bool withSubfolders, bool createFolders);

    // One pair without subfolders. Directions come from the setting, which must be set; the two
    // arguments are accepted for the callers' sake. 0: ended, also by cancelling or with a reported
    // failure to open; 1: tables not open, specifiers not usable, or an unforeseen failure.
    int SyncFolder(const std::string& source, const std::string& target, bool toTarget, bool toSource,
                   bool findDeletions);

    // The pair of m_sourceText and m_targetText with the option bytes and the own setting, for a
    // caller that prepared them.
    int SyncPrepared();

    void ClearOutcome() { m_outcome = {}; }

    // ---- identity (SyncIdentity.cpp) -------------------------------------------------------------

    // Replaces `rows` by all rows of the table with the columns of SyncColumn. Throws.
    void QuerySyncRows(CMapiRowSet& rows, const IMAPIFolderPtr& folder, const IMAPITablePtr& table);
    // Stamps the message if its stamp differs or `force` is set; true if it wrote. The caller saves.
    // Reports its failures itself and then answers what it knew so far.
    bool SetSyncID(IMessagePtr& message, const std::string& syncId, bool force);
    // Gives items that bear another item's stamp an identity of their own. True: some were changed,
    // query the rows again. Does not throw CMAPIException.
    bool CheckSyncID(const IMAPIFolderPtr& folder, CMapiRowSet& rows);
    // Makes `rows` what CheckSyncID and another reading would make of them, with nothing written. The new IDs
    // stand in `ids`, which must live as long as the rows are used. Throws.
    void PreviewSyncIDs(const IMAPIFolderPtr& folder, CMapiRowSet& rows, std::list<std::string>& ids);
    // Takes the text out of a private appointment, if the option is on. Never throws.
    void ModifyTarget(IMessagePtr& message);
    // The stamp's tags in the object's store, asked for once per store and run. Throws.
    const CSyncTags& TagsOf(IMAPIProp* object) { return m_tags.TagsOf(object); }

    // ---- hidden messages and sync files (SyncFileStore.cpp) --------------------------------------

    // The hidden message of this subject and class, or an empty wrapper. With `create` set a message
    // that is not there is made, unsaved. A folder that cannot be searched throws.
    IMessagePtr OpenConfigMessage(const IMAPIFolderPtr& folder, const std::string& subject,
                                  const std::string& messageClass, bool create);
    // The message with the last sync times, made (unsaved) if absent; empty after a failure.
    IMessagePtr GetConfigMsg(const IMAPIFolderPtr& folder);
    // m_lastSyncSource and m_lastSyncTarget, from the settings message of the source folder. Reports and
    // counts what fails.
    void ReadLastSyncTimes(const IMAPIFolderPtr& sourceFolder);
    // Names the target of the pair whose sync files are read and written from now on; an empty folder
    // for a folder that stands alone. WriteSyncFiles does it by itself. Throws.
    void SetPairTarget(const IMAPIFolderPtr& targetFolder);
    // What stays of a folder's names whenever its store is opened; empty for a folder without. Throws.
    static std::string PairKeyOf(const IMAPIFolderPtr& folder);
    // Of the pair named by SetPairTarget. A folder that was made from the target's side had its first run
    // the other way round, and the memory of that lies in `targetFolder` (may be empty): it is looked for
    // there where the source has none.
    void ReadSyncFiles(const IMAPIFolderPtr& sourceFolder, const IMAPIFolderPtr& targetFolder);
    // `name` is "SourceID" or "TargetID"; `syncTime` may be null. S_OK also where no message exists.
    // Never throws; after a failure the map holds what was read so far.
    HRESULT ReadSyncFile(const IMAPIFolderPtr& folder, const char* name, CSyncFileMap& syncData,
                         FILETIME* syncTime);
    void WriteSyncFiles(const IMAPIFolderPtr& sourceFolder, const IMAPIFolderPtr& targetFolder,
                        bool writeSource, bool writeTarget);
    // Describes the rows of `folder` in a hidden message of `configFolder` (of `folder` if that is not
    // open).
    void WriteSyncFile(const IMAPIFolderPtr& folder, const IMAPIFolderPtr& configFolder, const char* name,
                       const FILETIME& lastSyncTime);
    // What WriteSyncFile writes of a folder that it has to read; `seen` may be null. Throws.
    CSyncFileImage ReadImage(const IMAPIFolderPtr& folder, CSeenRows* seen);

    // ---- modification lists (ModifyList.cpp) -----------------------------------------------------

    void CreateModifyList(const char* name, CSyncMessages& result, CSyncFileMap& ownData,
                          CSyncFileMap& otherData, const IMAPIFolderPtr& ownFolder,
                          const IMAPIFolderPtr& otherFolder, CMapiRowSet& ownRows,
                          const CMapiRowSet& otherRows, const FILETIME& lastSyncTime);
    // Whether the pair's query can be used in these two folders (one may be empty), to be asked before they
    // are looked at: empty, or what is wrong with it in words for a person. A query that cannot be used on
    // either side is left out on both until the next call; the private option holds all the same. Throws.
    std::string SettleQuery(const IMAPIFolderPtr& source, const IMAPIFolderPtr& target);
    // Restricts the table to what the pair's query (as settled) and the private option select, and with
    // `useTime` in the incremental mode to rows since `time` (may be null). Throws.
    void ApplyTableFilter(const IMAPIFolderPtr& folder, const IMAPITablePtr& table, const FILETIME* time,
                          bool useTime);
    // Whether the pair's setting selects some of the rows.
    bool IsFiltered() const;
    // Whether its query does, as settled.
    bool HasQuery() const;
    bool FindBySearchKey(CSyncFileMap& ownData, const CItemKeyView& item, const CMapiRowSet& otherRows,
                         const FILETIME& rowTime, const SBinary& searchKey, const CMapiRowSet& ownRows,
                         LONG& result);

    // ---- conflicts (Conflicts.cpp) ---------------------------------------------------------------

    // Also settles what is told of a change whose other side was deleted, which is no conflict. With the
    // folders given, two items that hold the same have no conflict. Polls the progress then.
    void FindConflicts(CSyncMessages& source, CSyncMessages& target,
                       const IMAPIFolderPtr* sourceFolder = nullptr,
                       const IMAPIFolderPtr* targetFolder = nullptr);
    void MoveConflicts(CSyncMessages& list, const IMAPIFolderPtr& ownFolder,
                       const IMAPIFolderPtr& otherFolder, const CMapiRowSet& ownRows,
                       const CMapiRowSet& otherRows, CSyncFileMap& ownData, CSyncFileMap& otherData,
                       const IMsgStorePtr& ownStore, const IMsgStorePtr& otherStore);
    void MoveToConflictFolder(CEntryIdBatch& entries, const IMsgStorePtr& store,
                              const IMAPIFolderPtr& folder);

    // ---- subfolders (SubFolders.cpp) -------------------------------------------------------------

    void SyncAndCreateFolder(const IMAPIFolderPtr& existingParent, const IMAPIFolderPtr& parent,
                             const std::string& name, const CMapiRowSet& rows, bool toTarget, bool toSource,
                             bool findDeletions, bool withSubfolders, bool createFolders);

    // ---- deletion (Deletion.cpp) -----------------------------------------------------------------

    void InitDelArrays(const IMsgStorePtr& store, const IMAPIFolderPtr& folder, LONG capacity);
    // False where the item stays: a copy of this pass has written it.
    bool AddToDelArray(const CItemKeyView& item, const IMAPIFolderPtr& folder, int batch);
    // An item that waits to be deleted stays where a copy of this pass has written it since. True if so.
    bool TakeFromDelArray(const CItemKeyView& item);
    void FlushDelArrays(const IMsgStorePtr& store, const IMAPIFolderPtr& folder);
    // Counts each item that stays as a failed row and names it in NotRemoved. Answers how many are gone.
    unsigned MoveToDeletedFolder(CEntryIdBatch& entries, const char* name, const IMsgStorePtr& store,
                                 const IMAPIFolderPtr& folder);
    // The bytes of the keys of items that could not be removed since InitDelArrays.
    const std::set<std::string>& NotRemoved() const { return m_notRemoved; }
    void MoveOverwritten(const CItemKeyView& item, const IMAPIFolderPtr& folder);
    // Creates the folders of `path` (separated by backslashes) below `parent`; the deepest, or an
    // empty wrapper.
    IMAPIFolderPtr CreateHoldingPath(const IMAPIFolderPtr& parent, const std::string& path);
    // Also takes the entry out of the message cache.
    void DeleteEntry(const CItemKeyView& item, const IMAPIFolderPtr& folder);
    // The registry switch that makes removing final. Read once in a process.
    static bool IsHardDelete();
    static void ForgetHardDelete();  // for tests

    // ---- tracing (TraceLists.cpp) ----------------------------------------------------------------

    void OpenTraceFile();
    void CloseTraceFile();
    bool IsTracing() const { return IsTraceActive(m_traceFile); }
    void TraceModifications(CSyncMessages& list);
    void TraceRows(const char* name, const CMapiRowSet& rows);
    void TraceSyncFile(const char* name, CSyncFileMap& syncData);
    void TraceFolder(const IMAPIFolderPtr& folder, const char* name);

    // ---- copy loop (CopyLoop.cpp) ----------------------------------------------------------------

    // Never throws.
    void CopyModifiedElements(CSyncMessages& list, const IMAPIFolderPtr& sourceFolder,
                              const IMAPIFolderPtr& targetFolder, const CMapiRowSet& sourceRows,
                              const CMapiRowSet& targetRows, CSyncFileMap& syncData,
                              const IMsgStorePtr& sourceStore, const IMsgStorePtr& targetStore,
                              const std::string& sourceName, const std::string& targetName);
    void SyncModifiedElement(CSyncMessage& row, IMessagePtr& sourceMessage, CSyncFileMap& syncData,
                             const CMapiRowSet& sourceRows, const CMapiRowSet& targetRows,
                             const IMAPIFolderPtr& sourceFolder, const IMAPIFolderPtr& targetFolder,
                             CSyncTargetRecord* record, bool useRowSyncId, std::string& status,
                             bool allowSearch);
    void SyncChangedRow(IMessagePtr& sourceMessage, CSyncMessage& row, const IMAPIFolderPtr& sourceFolder,
                        const IMAPIFolderPtr& targetFolder, const CMapiRowSet& sourceRows,
                        const CMapiRowSet& targetRows, CSyncFileMap& syncData, std::string& status);
    // Moves the entry to `overwriteFolder`; does nothing if that is not open.
    void DeleteRowEntry(const IMAPIFolderPtr& folder, const CItemKeyView& item,
                        const IMAPIFolderPtr& overwriteFolder);
    bool IsSkippedPrivate(IMessagePtr& message);
    IMessagePtr OpenRowMessage(CSyncMessage& row, const IMAPIFolderPtr& sourceFolder,
                               const IMAPIFolderPtr& targetFolder);

    // ---- message transfer (MessageTransfer.cpp) --------------------------------------------------

    bool IsMarkedPrivate(IMessagePtr& message);
    void RemoveContents(IMessagePtr& message);
    int ResyncObject(const IMAPIFolderPtr& sourceFolder, const IMAPIFolderPtr& targetFolder,
                     const SBinary& sourceEntryId, const CItemKeyView& targetItem, std::string& status);
    void CheckIfTargetExists(const SBinary& sourceEntryId, CSyncFileMap& syncData,
                             const CMapiRowSet& targetRows, const IMAPIFolderPtr& sourceFolder,
                             const IMAPIFolderPtr& targetFolder);
    // One item as a watcher of folders sees it. `skipPrivate` is the watcher's own option.
    void SyncSingleMessage(IMessagePtr& sourceMessage, const IMAPIFolderPtr& sourceFolder,
                           const IMAPIFolderPtr& targetFolder, bool skipPrivate);

    // ---- counterpart search (CounterpartSearch.cpp) ----------------------------------------------

    // With `sourceRows` no item is found that is linked with one of these.
    int FindSimilarObject(CSyncMessage* row, const CMapiRowSet& targetRows,
                          const IMAPIFolderPtr& sourceFolder, const IMAPIFolderPtr& targetFolder,
                          const CMapiRowSet* sourceRows = nullptr);
    int FindEqual(CSyncMessage* row, const CMapiRowSet& targetRows, const IMAPIFolderPtr& sourceFolder,
                  const IMAPIFolderPtr& targetFolder);
    void FindCounterpart(CSyncMessage& row, const IMAPIFolderPtr& sourceFolder,
                         const IMAPIFolderPtr& targetFolder, const CMapiRowSet& sourceRows, ULONG sourceRow,
                         const CMapiRowSet& targetRows);

    // ---- for the outcome -------------------------------------------------------------------------

    // Called by the phases for each item that failed, and for each that was created, rewritten or
    // removed on the side that a copy loop writes to.
    void NoteRowFailed() {
        ++m_outcome.rowsFailed;
        NoteUnsure();
    }
    void NoteChanged(unsigned items = 1) { ChangedSide() += items; }
    // An item that was counted as changed is as it was, or was counted already.
    void NoteNotChanged() {
        if (ChangedSide() > 0) --ChangedSide();
    }
    // The side of the pair that the copy loop writes to, whichever of the two folders is called the source
    // in a part of a tree.
    bool WritesToSource() const { return m_copyToSource != m_sidesSwapped; }
    // The item that a copy was just saved to. A deletion under the name that it had before does not
    // remove it any more in this copy loop.
    void NoteWritten(const CItemKeyView& item);
    // An item was saved: its time now is the run's own doing. `inFrom` where it lies on the side that the
    // copy loop reads from. Never throws CMAPIException.
    void NoteSaved(const IMessagePtr& message, const CItemKeyView& item, const std::string& syncId,
                   bool inFrom = false);
    // An item has left its folder.
    void NoteRemoved(const CItemKeyView& item) {
        m_writtenRows.NoteRemoved(item);
        m_ownWrites.NoteRemoved(item);
    }
    // Something happened to a folder that the notes of a run cannot tell: it is read again at the end.
    void NoteUnsure() { m_writtenRows.Drop(); }
    // True for such an item: it belongs to the item it was copied from, and no other one may take it.
    bool WasWritten(const CItemKeyView& item) const;
    // True for an item that this run has linked, wherever it lies, or that has a conflict without a link: it
    // is no counterpart of any other.
    bool IsTaken(const CItemKeyView& item) const;
    void ForgetWritten() { m_ownWrites.StartPass(); }  // at the start of a copy loop
    // Asks the progress and keeps the answer in m_cancelled.
    bool PollCancelled();
    // The memories of the two sides were written by different runs: only one of the two got to the disk. A
    // change that the older one shows may have been dealt with, so what it replaces is kept.
    // The same where the target's store is older or newer than they.
    bool MemoriesDiffer() const { return m_targetDiffers || CompareFileTimes(m_sourceRun, m_targetRun) != 0; }
    // An item of the side that the copy loop writes to may have been changed since the last run and still
    // bear the time that was remembered: its store's clock ticks in whole seconds, and the last run was
    // under way, or not even begun, in that second.
    bool MayHideAChange(const FILETIME& time) const;
    // An edit that stands on one side alone, and of which no memory tells: a change in a direction that does
    // not run, or the later version of a conflict. Asked of the side that the copy loop writes to.
    bool IsUncarried(std::string_view syncId) const {
        const CSyncIds& edits = m_copyToSource ? m_sourceUncarried : m_targetUncarried;
        return edits.find(syncId) != edits.end();
    }
    // What the side that is written to holds of the item may be an edit.
    void NoteUncarried(const std::string& syncId) {
        (m_copyToSource ? m_sourceUncarried : m_targetUncarried).insert(syncId);
    }
    // Both sides now hold the same of the item, or none of it.
    void ForgetUncarried(const std::string& syncId) {
        m_sourceUncarried.erase(syncId);
        m_targetUncarried.erase(syncId);
    }
    // The directions of the folders under way, which may be those of the pair the other way round.
    bool CarriesToTarget() const { return HasFlag(m_sidesSwapped ? SYNC_FROM_TARGET : SYNC_TO_TARGET); }
    bool CarriesToSource() const { return HasFlag(m_sidesSwapped ? SYNC_TO_TARGET : SYNC_FROM_TARGET); }
    // See CSyncRun. False outside a run.
    bool HasLost() const;
    bool HasFlag(ULONG flag) const { return m_setting != nullptr && m_setting->Has(flag); }

    // ---- members, set by the caller or shared by the phases ----------------------------------------

    FILETIME m_sourceSyncTime{};  // "SyncTime" of the two sync files; zero if absent
    FILETIME m_targetSyncTime{};
    CSyncProgress* m_progress = nullptr;  // may be null; not owned
    CSyncProtocol* m_protocol = nullptr;  // may be null; not owned
    IRunGuard* m_guard = nullptr;         // may be null; not owned
    IFolderGate* m_gate = nullptr;        // may be null; not owned
    IQueryGuard* m_queryGuard = nullptr;  // may be null; not owned
    // May be null; not owned.
    IRunPreparation* m_preparation = nullptr;
    bool m_leaveQueryOut = false;   // see SettleQuery
    bool m_stoppedByGuard = false;  // the pair under way ends; cleared by the caller before a pair
    int m_cancelled = 0;            // the last answer of IsCancelled
    std::string m_sourceText;       // folder keys of SyncPrepared
    std::string m_targetText;
    bool m_toTarget = true;
    bool m_toSource = true;
    bool m_deletions = true;
    bool m_withSubfolders = false;
    bool m_createFolders = false;
    bool m_running = false;
    LONG m_batchCapacity = DeletionBatchCapacity;
    IMsgStorePtr m_deletionStore;  // the side that a copy loop removes from
    IMAPIFolderPtr m_deletionFolder;
    IMAPIFolderPtr m_overwriteFolder;  // holding folder for overwritten items; empty if it did not open
    int m_findDeletions = 0;           // the last argument of SyncFolder
    bool m_skipPrivate = false;        // SYNC_SKIP_PRIVATE
    bool m_stripPrivate = false;       // SYNC_STRIP_PRIVATE
    bool m_checkLitterBin = false;     // SYNC_CHECK_LITTER_BIN; kept, read by nothing
    bool m_checkTarget = false;        // set by no run
    CTarnSetting m_ownSetting;
    CTarnSetting* m_setting = nullptr;  // the setting of the pair; may be null, not owned
    FILE* m_traceFile = nullptr;        // closed by the destructor
    CSyncFileMap m_sourceData;
    CSyncFileMap m_targetData;
    CSyncIds m_sourceUncarried;  // see IsUncarried; kept beside the sync file of the side
    CSyncIds m_targetUncarried;
    FILETIME m_lastSyncSource{};  // "VellumTimeSource", "VellumTimeTarget"; zero if absent
    FILETIME m_lastSyncTarget{};
    CSideMemory* m_sourceMemory = nullptr;  // while a run writes the sync files; not owned
    CSideMemory* m_targetMemory = nullptr;
    unsigned m_notReadAgain = 0;  // memories made without reading the folder again, of all pairs so far
    COwnWrites m_ownWrites;
    std::unordered_set<std::string> m_inConflict;  // bytes of the keys of items without a link, of this run
    // Items of source and target that hold the same and have no link yet, of this run.
    std::vector<std::pair<CItemKey, CItemKey>> m_unlinkedSame;
    CWrittenRows m_writtenRows;
    std::array<CEntryIdBatch, BATCH_COUNT> m_batches;
    std::vector<std::string> m_missingFolders;  // paths without counterpart that were not created
    CMapiSession m_session;
    std::unique_ptr<CMessageCache> m_cache;
    CSyncOutcome m_outcome;
    bool m_copyToSource = false;  // the side that the copy loop under way writes to, of those of the run
    CStoreBatch* m_batchFrom = nullptr;  // of the store that it reads from; may be null, not owned

private:
    friend class CSyncRun;  // the phases of one pair (SyncRun.h)

    HRESULT FindConfigRow(const IMAPIFolderPtr& folder, const IMAPITablePtr& table,
                          const std::string& subject, const std::string& messageClass);
    HRESULT ReadSyncFileOnce(const IMAPIFolderPtr& folder, const char* name, CSyncFileMap& syncData,
                             FILETIME* syncTime);
    FILETIME& RunOf(const char* name);
    CSyncIds& UncarriedOf(const char* name);
    void ReadSwappedSyncFiles(const IMAPIFolderPtr& sourceFolder, const IMAPIFolderPtr& targetFolder);
    void NamePairTarget(const IMAPIFolderPtr& targetFolder);
    void WriteSyncFileOnce(const IMAPIFolderPtr& folder, const IMAPIFolderPtr& configFolder,
                           const char* name);
    HRESULT ReadSyncAttachment(const IMessagePtr& message, CSyncFileMap& syncData);

    struct CDirections {
        bool toTarget;
        bool toSource;
        bool findDeletions;
        bool createFolders;

        CDirections Exchanged() const { return {toSource, toTarget, findDeletions, createFolders}; }
    };
    int RefuseTransport();
    bool EndsWalk();
    void NoteNamesake(const IMAPIFolderPtr& parent, const std::string& name);
    void SyncChildren(const std::string& sourceText, const std::string& targetText,
                      const CDirections& directions);
    void SyncLevel(const std::string& sourceText, const std::string& targetText,
                   const CDirections& directions);
    void CreateOrNote(const CFolderLevel& level, ULONG row, const IMAPIFolderPtr& otherParent,
                      const CDirections& directions);
    void TellOneFolderForTwo(const std::string& name);
    std::string ChildPath(const IMAPIFolderPtr& parent, const SBinary& entryId, const std::string& name);
    std::string HoldingPathOf(const IMAPIFolderPtr& folder);
    IMAPIFolderPtr OpenHoldingBelow(const IMAPIFolderPtr& parent, const std::string& path,
                                    const IMAPIFolderPtr& folder);
    IMAPIFolderPtr OpenHolding(const IMsgStorePtr& store, const IMAPIFolderPtr& folder,
                               const std::string& prefix);
    IMAPIFolderPtr OpenConflicts(const IMsgStorePtr& store, const IMAPIFolderPtr& folder);
    void TakeContainerClass(const IMAPIFolderPtr& folder, IMAPIFolderPtr& holding);
    unsigned& ChangedSide() { return WritesToSource() ? m_outcome.sourceChanged : m_outcome.targetChanged; }
    unsigned MoveEntries(const CEntryIdBatch& entries, const IMsgStorePtr& store,
                         const IMAPIFolderPtr& folder, const IMAPIFolderPtr& holding);
    unsigned DestroyEntries(CEntryIdBatch& entries, const IMsgStorePtr& store, const IMAPIFolderPtr& folder);
    void NoteNotRemoved(const CItemKeyView& item);
    void TraceDeletionFailure();

    const CSyncRun* m_run = nullptr;  // the one under way
    CSyncTagCache m_tags;
    FILETIME m_sourceRun{};  // the runs that wrote the two memories; zero if not known
    FILETIME m_targetRun{};
    FILETIME m_rememberedMark{};  // of the target's store, in its memory; zero if there is none
    FILETIME m_thisMark{};
    bool m_targetDiffers = false;  // the store bears another mark
    FILETIME m_thisRun{};          // what this one writes
    std::string m_pairKey;         // see SetPairTarget
    bool m_foundMemory = false;    // of the last ReadSyncFiles
    bool m_hasNoMemory = false;    // it looked everywhere, and there is none
    bool m_takesNobodys = true;    // a memory that names no pair may be this one's
    int m_depth = 0;               // levels of subfolders above the pair under way
    bool m_walkCancelled = false;  // since the topmost of them began
    // A folder that only the target has is the source of the pair that is made for it.
    bool m_sidesSwapped = false;
    std::set<std::string> m_notRemoved;
};
