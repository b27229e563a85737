#include <Tarn/Settings/TarnContext.h>

CTarnContext& TarnContext() {
    static CTarnContext context;
    return context;
}

CTarnContext::~CTarnContext() {
    Logoff();
}

HRESULT CTarnContext::Logon(const std::string& profile) {
    Logoff();
    const HRESULT hr = profile.empty() ? LogonMapi(m_ownSession) : LogonMapi(profile, m_ownSession);
    if (FAILED(hr)) return hr;
    m_session = m_ownSession;
    m_profileName = profile;
    return hr;
}

void CTarnContext::Logoff() {
    m_session.Free();
    LogoffMapi(m_ownSession);
}
