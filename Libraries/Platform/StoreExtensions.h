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
//   PR_STORE_TABLES_SHORT_TERM  true: tables give short-term entry IDs and the long-term ones in
//                               PR_LONGTERM_ENTRYID_FROM_TABLE; only for a store not yet opened
inline constexpr ULONG PR_STORE_TABLES_SHORT_TERM = PROP_TAG(PT_BOOLEAN, 0x6600);

// {6B8E2F2A-5E0B-4C57-9E47-0C5C2B8C1D01}
inline constexpr GUID IID_IStoreBatch = {
    0x6b8e2f2a, 0x5e0b, 0x4c57, {0x9e, 0x47, 0x0c, 0x5c, 0x2b, 0x8c, 0x1d, 0x01}};
// {6B8E2F2A-5E0B-4C57-9E47-0C5C2B8C1D02}
inline constexpr GUID IID_IStoreFaults = {
    0x6b8e2f2a, 0x5e0b, 0x4c57, {0x9e, 0x47, 0x0c, 0x5c, 0x2b, 0x8c, 0x1d, 0x02}};

// Gathers the saves of this session on one store into larger transactions, always in order: a save
// under way is on disk after a hundred saves, fifty milliseconds, FlushBatch or EndBatch. Another
// process sees gathered saves only then. Batches nest; the last EndBatch commits. A store whose last
// reference goes commits what is gathered.
struct IStoreBatch : public IUnknown {
    // S_OK, or the store's code for a database that does not take a transaction (disk full, read-only).
    virtual HRESULT STDMETHODCALLTYPE BeginBatch() = 0;
    virtual HRESULT STDMETHODCALLTYPE FlushBatch() = 0;
    virtual HRESULT STDMETHODCALLTYPE EndBatch() = 0;
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
};
