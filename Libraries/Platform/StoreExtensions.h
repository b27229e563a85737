// Interfaces that a message store may offer beyond the published ones. A caller asks with
// QueryInterface on the IMsgStore and does without when the answer is E_NOINTERFACE, as every store of
// a stranger answers. They lie here because both the store and those above it must see them.
#pragma once
#include <Platform/MapiHeaders.h>

// How the embedded store is set up through the published administration: the service that
// IMsgServiceAdmin::CreateMsgService makes a store of, and what ConfigureMsgService takes for it.
inline constexpr char kStoreServiceName[] = "VELLUM";
//   PR_DISPLAY_NAME             the store's name (else that given to CreateMsgService)
//   PR_RESOURCE_FLAGS           STATUS_DEFAULT_STORE makes it the default store of its profile
//   PR_STORE_HABITS             bits of StoreHabit, in which the store does as some real ones do; only for
//                               a store that nobody has open
inline constexpr ULONG PR_STORE_HABITS = PROP_TAG(PT_LONG, 0x6600);

// The numbers lie on disk.
enum StoreHabit : ULONG {
    HABIT_SHORT_TERM_TABLES = 0x1,
    HABIT_MOVES_KEEP_IDS = 0x2,
    HABIT_CLOCK_MILLISECONDS = 0x4,
    HABIT_CLOCK_SECONDS = 0x8,
    HABIT_MODIFIED_COMPUTED = 0x10,
    HABIT_TIMES_COMPUTED = 0x20,
    HABIT_COPIES_TOUCH = 0x40,
    HABIT_BODIES_REWRITTEN = 0x80,
    HABIT_NAMES_WITHOUT_CASE = 0x100,
    HABIT_SHORT_ANSWERS = 0x200,
    HABIT_ABSENT_FITS = 0x400,
};
struct CStoreHabitName {
    StoreHabit habit;
    const char* name;
    const char* meaning;
};
inline constexpr CStoreHabitName kStoreHabits[] = {
    {HABIT_SHORT_TERM_TABLES, "short-term-tables",
     "tables give short-term entry IDs beside the long-term ones"},
    {HABIT_MOVES_KEEP_IDS, "moves-keep-ids", "a moved item keeps its entry ID"},
    {HABIT_CLOCK_MILLISECONDS, "clock-milliseconds", "times tick in whole milliseconds and repeat"},
    {HABIT_CLOCK_SECONDS, "clock-seconds", "times tick in whole seconds and repeat"},
    {HABIT_MODIFIED_COMPUTED, "modified-computed", "nobody but the store sets the modification time"},
    {HABIT_TIMES_COMPUTED, "times-computed", "nobody but the store sets creation and modification time"},
    {HABIT_COPIES_TOUCH, "copies-touch", "a copy or a move is a modification"},
    {HABIT_BODIES_REWRITTEN, "bodies-rewritten", "line ends and trailing blanks of bodies change at a save"},
    {HABIT_NAMES_WITHOUT_CASE, "names-without-case", "\"Mail\" and \"mail\" are one folder"},
    {HABIT_SHORT_ANSWERS, "short-answers", "tables give a few rows at a time, however many are asked for"},
    {HABIT_ABSENT_FITS, "absent-fits", "a missing property fulfils every relation of a restriction"},
};

// {6B8E2F2A-5E0B-4C57-9E47-0C5C2B8C1D01}
inline constexpr GUID IID_IStoreBatch = {
    0x6b8e2f2a, 0x5e0b, 0x4c57, {0x9e, 0x47, 0x0c, 0x5c, 0x2b, 0x8c, 0x1d, 0x01}};
// {6B8E2F2A-5E0B-4C57-9E47-0C5C2B8C1D02}
inline constexpr GUID IID_IStoreFaults = {
    0x6b8e2f2a, 0x5e0b, 0x4c57, {0x9e, 0x47, 0x0c, 0x5c, 0x2b, 0x8c, 0x1d, 0x02}};

// {6B8E2F2A-5E0B-4C57-9E47-0C5C2B8C1D03}
inline constexpr GUID IID_IStoreCare = {
    0x6b8e2f2a, 0x5e0b, 0x4c57, {0x9e, 0x47, 0x0c, 0x5c, 0x2b, 0x8c, 0x1d, 0x03}};
// {6B8E2F2A-5E0B-4C57-9E47-0C5C2B8C1D04}
inline constexpr GUID IID_IStoreRestore = {
    0x6b8e2f2a, 0x5e0b, 0x4c57, {0x9e, 0x47, 0x0c, 0x5c, 0x2b, 0x8c, 0x1d, 0x04}};

// Gathers the saves of this session on one store into larger transactions, always in order: a save
// under way is on disk after a hundred saves, fifty milliseconds, FlushBatch or EndBatch. Another
// process sees gathered saves only then. Batches nest; the last EndBatch commits. A store whose last
// reference goes commits what is gathered.
//
// A commit that fails takes back all saves that it gathered, though each was confirmed, and it may fail on
// a thread of the store's own. So the loss is kept: from then on every save on the store is refused with
// the code of that commit, until each object with an open batch has got it as the answer of its FlushBatch,
// FlushToDisk or EndBatch. GetLastError of the store tells the reason that the disk gave. What was on disk
// before stays, and nothing that was saved later is on disk without what was saved earlier.
struct IStoreBatch : public IUnknown {
    // S_OK, or the store's code for a database that does not take a transaction (disk full, read-only).
    virtual HRESULT STDMETHODCALLTYPE BeginBatch() = 0;
    // What is gathered survives the death of the process afterwards.
    virtual HRESULT STDMETHODCALLTYPE FlushBatch() = 0;
    // The same; and everything that the store holds, whoever wrote it, survives a loss of power.
    virtual HRESULT STDMETHODCALLTYPE FlushToDisk() = 0;
    virtual HRESULT STDMETHODCALLTYPE EndBatch() = 0;
    // The code of a loss that this object has not been told of yet, else S_OK. Changes nothing.
    virtual HRESULT STDMETHODCALLTYPE BatchState() = 0;
};

// Faults on request, for tests: the n-th call from now on any object of the store (session-side calls
// such as opening the store included) fails with `hr` and does nothing. Counted are the methods that
// a caller of the published interfaces can see fail; AddRef, Release and QueryInterface are not.
struct IStoreFaults : public IUnknown {
    // n counts from 1; n 0 switches faults off. forGood: every later call fails too. Resets the count.
    virtual void STDMETHODCALLTYPE SetFault(ULONG n, HRESULT hr, BOOL forGood) = 0;
    // Calls counted since the last SetFault.
    virtual ULONG STDMETHODCALLTYPE CallCount() = 0;
    // Kills the process (abort without clean-up) at the n-th save from now; 0 switches it off.
    virtual void STDMETHODCALLTYPE SetKillAtSave(ULONG n) = 0;
    virtual ULONG STDMETHODCALLTYPE SaveCount() = 0;
    // Calls body(context) once, on the thread of the n-th call from now, before that call does anything: it
    // stands for what somebody else does at this moment. Its own calls on the store are not counted. 0
    // switches it off. Resets the count of calls.
    using Interruption = void(void* context);
    virtual void STDMETHODCALLTYPE SetInterruption(ULONG n, Interruption* body, void* context) = 0;

    // The n-th commit from now on fails with `hr` (MAPI_E_NOT_ENOUGH_DISK, MAPI_E_DISK_ERROR) and with the
    // database's words for it, whatever thread it is on. 0 switches it off. Resets the counts of commits.
    virtual void STDMETHODCALLTYPE SetCommitFault(ULONG n, HRESULT hr, BOOL forGood) = 0;
    virtual ULONG STDMETHODCALLTYPE CommitCount() = 0;
    // How many of them would have survived a loss of power for certain.
    virtual ULONG STDMETHODCALLTYPE DurableCommitCount() = 0;
    // Batches commit after that many saves and by no clock; 0: as they always do.
    virtual void STDMETHODCALLTYPE SetSavesPerCommit(ULONG saves) = 0;
    // What the store's own thread does when gathered saves have waited long enough.
    virtual void STDMETHODCALLTYPE CommitAsOwnThread() = 0;
};

// What a check of a store has looked at.
struct StoreCheckCounts {
    ULONG folders, messages, parts, lookups;
};

// The file behind a store, asked of the IMsgStore. Others may go on working with the store meanwhile; paths
// are those of Platform/Files.h.
struct IStoreCare : public IUnknown {
    // Looks at everything that the file holds, in one version of it, and calls damage(context, kind, text)
    // for each fault. `text` says in English what is wrong with which object, in UTF-8. `kind` is one of
    //   file     the database finds pages or indexes of it damaged
    //   block    properties cannot be read, or a large value is missing
    //   count    a message has other recipients or attachments than its row says
    //   owner    something belongs to an object that is not there
    //   parent   a folder or message lies in a folder that is not there, or in itself
    //   name     a folder is listed under another name, or a property has a number without a name
    //   fact     what is kept about the store as a whole
    //   counter  a number would be given twice
    //   lookup   a question would miss a message
    // S_OK also where there is damage; a code where the check itself could not be made.
    using Damage = void(void* context, const char* kind, const char* text);
    virtual HRESULT STDMETHODCALLTYPE Check(Damage* damage, void* context, StoreCheckCounts* counts) = 0;
    // Gives the room of what was deleted back to the disk. MAPI_E_BUSY while another process writes. In
    // bytes.
    virtual HRESULT STDMETHODCALLTYPE Compact(ULONGLONG* before, ULONGLONG* after) = 0;
    // Writes the store as it is now to a file, which is there whole or not at all and open to its owner
    // alone. Replaces a file of the name.
    virtual HRESULT STDMETHODCALLTYPE BackUp(const char* file) = 0;
    // S_OK while the file that is open is the one under its name. MAPI_E_OBJECT_DELETED once that was moved
    // away, removed or replaced: what is written from then on reaches nobody else.
    virtual HRESULT STDMETHODCALLTYPE IsInPlace() = 0;
};

// Puts a backup in the place of a store, asked of the IMsgServiceAdmin of its profile.
//   S_OK                    done. `kept` holds the path of the file with what was replaced; empty if there
//   was none MAPI_E_BUSY             the store is open somewhere MAPI_E_NOT_FOUND        there is no such
//   file MAPI_E_UNABLE_TO_COMPLETE  the file has a log beside it: it is a store that somebody works with, no
//   backup MAPI_E_CORRUPT_STORE    it is no store, or (without STORE_RESTORE_DAMAGED) a check finds damage in
//   it MAPI_E_UNKNOWN_ENTRYID  it is the backup of another store (without STORE_RESTORE_OTHER)
//   MAPI_E_COLLISION        it is the backup of another store of this profile
// After a failure the store is as it was.
inline constexpr ULONG STORE_RESTORE_DAMAGED = 1;
inline constexpr ULONG STORE_RESTORE_OTHER = 2;
struct IStoreRestore : public IUnknown {
    virtual HRESULT STDMETHODCALLTYPE Restore(const MAPIUID* store, const char* file, ULONG flags, char* kept,
                                              ULONG cbKept) = 0;
};
