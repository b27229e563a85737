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

    // Takes over a session of the running mail program; it is not logged off here.
    void UseSession(const CMapiSession& session);
    // Logs on under `profile` (empty: the configured or the default one). S_OK or the failing code.
    HRESULT Logon(const std::string& profile);
    void Logoff();

    CMapiSession m_session;
    CTarnSettings m_settings;
    CTarnSetting m_setting;    // the one selected by the user
    std::string m_ownAddress;  // sender address of the settings message
    std::string m_profileName;

private:
    bool m_loggedOn = false;
};

// The one context of the process.
CTarnContext& TarnContext();
