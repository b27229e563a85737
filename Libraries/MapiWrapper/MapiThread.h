// MAPI on a thread.
#pragma once
#include <Platform/MapiHeaders.h>

// While one lives MAPI may be used on the thread that made it; it is to die on that thread, after all MAPI
// objects that the thread uses. Every thread that calls MAPI has one, also where another thread has one
// already; on a thread they may be nested. A session that is logged on counts as one for its thread
// (LogonMapi).
//
// Notifications of stores come on a thread that MAPI keeps for them. The other way, which is MAPI's default,
// they wait until the first thread that came to MAPI dispatches window messages, which a program without
// windows never does.
class CMapiThread {
public:
    CMapiThread() noexcept;
    ~CMapiThread();
    CMapiThread(const CMapiThread&) = delete;
    CMapiThread& operator=(const CMapiThread&) = delete;

    // What MAPIInitialize answered. After a failure the object leaves nothing.
    HRESULT Hr() const { return m_hr; }
    // Lets MAPI stay initialised on this thread when the object dies; whoever calls it leaves MAPI some time
    // by MAPIUninitialize.
    void Keep() { m_hr = MAPI_E_NOT_INITIALIZED; }

private:
    HRESULT m_hr;
};
