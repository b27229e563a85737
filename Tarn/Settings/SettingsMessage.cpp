// The hidden message that keeps the list, so that it travels with the mailbox.
#include <Platform/UserInterface.h>
#include <Tarn/Engine/SyncTrace.h>
#include <Tarn/Settings/TarnContext.h>
#include <Tarn/Settings/TarnSettings.h>

#include <optional>

namespace {

// The message of this subject in the folder's associated contents: the first one whose subject and
// class match exactly. Empty if there is none. Throws.
IMessagePtr FindSettingsMessage(const IMAPIFolderPtr& folder, const char* subject) {
    const CMapiRowSet rows =
        folder._rawAssociatedTable().QueryRows({PR_SUBJECT_A, PR_MESSAGE_CLASS_A, PR_ENTRYID});
    for (ULONG row = 0; row < rows.Count(); ++row) {
        const std::string rowSubject = rows.Cell(row, 0).Str();
        const std::string rowClass = rows.Cell(row, 1).Str();
        TraceFormat(nullptr, "Settings folder %s %s", rowSubject.c_str(), rowClass.c_str());
        if (rowSubject != subject || rowClass != CTarnSettings::MessageClass) continue;
        IMessagePtr message;
        const IMAPIPropPtr opened = folder.OpenEntryv(rows.Cell(row, 2));
        THROW_ON_FAILURE_FOR(opened->QueryInterface(IID_IMessage, reinterpret_cast<void**>(message.Out())),
                             opened.RawProp());
        return message;
    }
    return {};
}

IMessagePtr FindOrCreateSettingsMessage(const IMAPIFolderPtr& folder, const char* subject) {
    IMessagePtr message = FindSettingsMessage(folder, subject);
    if (message.IsValid()) return message;
    message = folder.CreateMessage(nullptr, MAPI_ASSOCIATED);
    message.SetStrProp(PR_SUBJECT_A, subject);
    message.SetStrProp(PR_MESSAGE_CLASS_A, CTarnSettings::MessageClass);
    return message;
}

// 0 only where the message does not have the value: one that cannot be read would be saved as 0.
LONG LongOrZero(const IMessagePtr& message, const wchar_t* name) {
    CMapiPropValue value;
    const ULONG tag = message.GetIDFromName(PS_PUBLIC_STRINGS, name, PT_LONG);
    const HRESULT hr = message.GetOneProp(tag, value);
    if (hr == MAPI_E_NOT_FOUND) return 0;
    THROW_ON_FAILURE_FOR(hr, message.RawProp());
    return value.Long();
}

// All of the body, or an exception: a list cut short would be written back so.
std::string WholeBody(const IMessagePtr& message) {
    std::string body;
    const HRESULT hr = message.ReadTextStream(PR_BODY_A, 0, 0, body);
    if (hr == MAPI_E_NOT_FOUND) return {};
    THROW_ON_FAILURE_FOR(hr, message.RawProp());
    return body;
}

}  // namespace

void CTarnSettings::ReadValues(const IMessagePtr& message) {
    m_timer = LongOrZero(message, L"timer") != 0;
    m_timerVisual = LongOrZero(message, L"timerVisual") != 0;
    m_seconds = static_cast<ULONG>(LongOrZero(message, L"seconds"));
}

void CTarnSettings::ReadBody(const IMessagePtr& message) {
    const std::string body = WholeBody(message);
    TraceFormat(nullptr, "Found body size=%d", static_cast<int>(body.size()));
    ReadText(body);
}

bool CTarnSettings::LoadFromMessage(const CMapiSession& session) {
    bool readable = true;
    bool reached = false;
    try {
        const IMsgStorePtr store = session.OpenDefaultStore();
        if (!store.IsValid()) {
            ShowMessageBox("Loading settings, did not find default store", "Tarn");
            return false;
        }
        const IMessagePtr message = FindSettingsMessage(store.GetReceiveFolder(""), MessageSubject);
        if (message.IsValid()) {
            reached = true;
            TraceText(nullptr, "Found settings, loading");
            ReadValues(message);
            // Resolved so that the names exist in every mailbox that keeps settings; no run reads them.
            message.GetIDFromName(PS_PUBLIC_STRINGS, L"ReminderFolders", PT_MV_BINARY);
            message.GetIDFromName(PS_PUBLIC_STRINGS, L"ReminderFolder", PT_BINARY);
            ReadBody(message);
            return true;
        }
    } catch (const CMAPIException& e) {
        readable = false;
        ReportException(e, "Loading settings");
    } catch (...) {
        readable = false;
        ShowMessageBox("Fatal error reading settings", "Tarn");
    }
    if (!reached) readable = LoadFromOldMessage(session) && readable;
    return readable;
}

bool CTarnSettings::LoadFromOldMessage(const CMapiSession& session) {
    try {
        const IMsgStorePtr store = session.OpenDefaultStore();
        if (!store.IsValid()) return false;
        const IMessagePtr message = FindSettingsMessage(store._getIPMRoot(), MessageSubject);
        if (!message.IsValid()) return true;
        TarnContext().m_ownAddress = message.GetStrPropOrEmpty(PR_SENDER_EMAIL_ADDRESS_A);
        ReadBody(message);
        ReadValues(message);
        return true;
    } catch (const CMAPIException& e) {
        ReportException(e, "Loading settings");
    } catch (...) {
        ShowMessageBox("Fatal error reading settings", "Tarn");
    }
    return false;
}

// The message as it stands, beside the one that is about to be replaced. A text that could not be read
// through the body is in the copy all the same.
void CTarnSettings::KeepOldMessage(const IMAPIFolderPtr& folder) {
    const IMessagePtr message = FindSettingsMessage(folder, MessageSubject);
    if (!message.IsValid()) return;
    IMessagePtr kept = folder.CreateMessage(nullptr, MAPI_ASSOCIATED);
    THROW_ON_FAILURE_FOR(
        message->CopyTo(0, nullptr, nullptr, 0, nullptr, &IID_IMessage, kept.Get(), 0, nullptr),
        message.RawProp());
    kept.SetStrProp(PR_SUBJECT_A, KeptSubject);
    kept.SaveChanges(KEEP_OPEN_READWRITE);
    ShowMessageBox(
        std::string("A part of the list of pairs was not understood. The list as it was is kept in the "
                    "hidden message ") +
            KeptSubject + " beside it",
        "Tarn");
}

void CTarnSettings::SaveToMessage(const CMapiSession& session) {
    const std::string text = BuildSettingsText();
    const IMsgStorePtr store = session.OpenDefaultStore();
    if (!store.IsValid()) throw CMAPIException(MAPI_E_NOT_FOUND, "OpenDefaultStore", nullptr);
    const IMAPIFolderPtr folder = store.GetReceiveFolder("");
    if (!m_readWhole) KeepOldMessage(folder);
    IMessagePtr message = FindOrCreateSettingsMessage(folder, MessageSubject);
    message.SetBody(text);
    message.SetNamedValue(L"timer", PT_LONG, m_timer ? 1 : 0);
    message.SetNamedValue(L"timerVisual", PT_LONG, m_timerVisual ? 1 : 0);
    message.SetNamedValue(L"seconds", PT_LONG, static_cast<LONG>(m_seconds));
    message.SaveChanges(KEEP_OPEN_READWRITE);
    m_readWhole = true;
    TarnContext().m_ownAddress = message.GetStrPropOrEmpty(PR_SENDER_EMAIL_ADDRESS_A);
}
