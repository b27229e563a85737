// What lives as long as the process: the session, the settings and the setting in hand.
#pragma once
#include <MapiWrapper/MapiWrapper.h>
#include <Tarn/Engine/TarnSetting.h>
#include <Tarn/Settings/TarnSettings.h>

#include <string>

class CTarnContext {
public:
    // Ends a session that this object opened itself.
    ~CTarnContext();

    // Takes over a session of the running mail program; it is not logged off here. One that this object
    // opened itself stays open until Logoff: runs and watchers may still be at work with it.
    void UseSession(const CMapiSession& session) { m_session = session; }
    // Logs on under `profile` (empty: the configured or the default one). S_OK or the failing code.
    HRESULT Logon(const std::string& profile);
    // Ends the own session, if there is one, and lets go of the one in use. On the thread that called Logon.
    void Logoff();

    CMapiSession m_session;
    CTarnSettings m_settings;
    CTarnSetting m_setting;    // the one selected by the user
    std::string m_ownAddress;  // sender address of the settings message
    std::string m_profileName;

private:
    CMapiSession m_ownSession;
};

// The one context of the process.
CTarnContext& TarnContext();
