#include <Tarn/Settings/TarnContext.h>

CTarnContext& TarnContext() {
    static CTarnContext context;
    return context;
}

CTarnContext::~CTarnContext() {
    Logoff();
}

void CTarnContext::UseSession(const CMapiSession& session) {
    Logoff();
    m_session = session;
}

HRESULT CTarnContext::Logon(const std::string& profile) {
    Logoff();
    const HRESULT hr = profile.empty() ? LogonMapi(m_session) : LogonMapi(profile, m_session);
    m_loggedOn = !FAILED(hr);
    if (m_loggedOn) m_profileName = profile;
    return hr;
}

void CTarnContext::Logoff() {
    if (m_loggedOn) LogoffMapi(m_session);
    m_loggedOn = false;
    m_session.Free();
}
