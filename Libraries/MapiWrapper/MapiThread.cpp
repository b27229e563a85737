#include <MapiWrapper/MapiThread.h>

CMapiThread::CMapiThread() noexcept {
    MAPIINIT_0 init{MAPI_INIT_VERSION, MAPI_MULTITHREAD_NOTIFICATIONS};
    m_hr = MAPIInitialize(&init);
}

CMapiThread::~CMapiThread() {
    if (SUCCEEDED(m_hr)) MAPIUninitialize();
}
