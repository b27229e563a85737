// Which threads have come to MAPI, and on which one notifications come.
#pragma once
#include <windows.h>

// Counts MAPIInitialize and MAPIUninitialize on this thread; `flags` of MAPIINIT_0. LeaveMapi without an
// entry does nothing.
void EnterMapi(ULONG flags);
void LeaveMapi();
// For a thread of MAPI's own that calls programs, which may call MAPI from there.
void AdoptMapiThread();
// Whether this thread may call MAPI. Every thread has to say that it will, as MAPI has it.
bool IsMapiThread();

// Whether notifications come on a thread of their own. It is settled by the first one that enters MAPI:
// without MAPI_MULTITHREAD_NOTIFICATIONS they wait for that thread (HrDispatchNotifications), which is what
// MAPI does.
bool HasNotificationThread();
// Whether this thread is the one that they wait for.
bool IsFirstMapiThread();
