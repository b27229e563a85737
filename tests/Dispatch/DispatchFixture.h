// Runs of the dispatch in a test.
#pragma once
#include <Platform/UserInterface.h>
#include <Tarn/Dispatch/PermanentSynchronization.h>
#include <Tarn/Dispatch/RunDispatch.h>
#include <Tarn/Settings/TarnContext.h>
#include <support/StoreFixture.h>

#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

// Runs the dialog without a window and remembers what it was told.
class RecordingHost : public IRunHost, public IVellumDlgView {
public:
    RecordingHost() : m_former(InstallRunHost(this)) {}
    ~RecordingHost() override { InstallRunHost(m_former); }

    IVellumDlgView* DialogView() override { return this; }
    void RunModal(CVellumDlg& dialog) override {
        modalThread = std::this_thread::get_id();
        if (insteadOfDialog) return insteadOfDialog();
        {
            // The last word of a run before may have come after its dialog was gone.
            const std::lock_guard lock(m_mutex);
            m_ended = false;
            m_isUp = true;
        }
        {
            const CWindowRegistration window("Vellum test progress", dialog);
            if (cancelAtOnce) dialog.Cancel();
            if (dialog.SetWindow(window.Handle())) {
                std::unique_lock lock(m_mutex);
                m_changed.wait(lock, [this] { return m_ended; });
            }
            dialog.SetWindow(0);
        }
        // Until here words for the window may be on their way, and find the dialog.
        const std::lock_guard lock(m_mutex);
        m_isUp = false;
    }
    void ShowProtocol(const CSyncProtocol& protocol) override {
        ++protocolsShown;
        if (!protocol.IsEmpty()) firstState = protocol.At(0).m_state;
    }
    bool BeginPair(const CTarnSetting& setting, CSyncFolder&) override {
        workerThread = std::this_thread::get_id();
        pairs.push_back(setting.m_sourcePath);
        return true;
    }
    void EndPair(const CTarnSetting&, CSyncFolder&, const CPairEnd& end) override { ends.push_back(end); }

    void ShowLine(int line, const std::string& text) override {
        if (line == 4) captions.push_back(text);
    }
    void ShowFolderCount(const std::string&) override {}
    void ShowMessageCount(const std::string&) override {}
    void SetFolderBar(int, int, int) override {}
    void SetMessageBar(int, int, int) override {}
    void StepFolderBar() override {}
    void StepMessageBar() override {}
    void EndAsOk() override { End(); }
    void QuitLoop() override { End(); }

    bool cancelAtOnce = false;
    std::function<void()> insteadOfDialog;
    int toldWhileGone = 0;  // the view, with no dialog up
    int protocolsShown = 0;
    int firstState = -1;
    std::vector<std::string> pairs;
    std::vector<std::string> captions;
    std::vector<CPairEnd> ends;
    std::thread::id modalThread, workerThread;

private:
    void End() {
        const std::lock_guard lock(m_mutex);
        m_ended = true;
        if (!m_isUp) ++toldWhileGone;
        m_changed.notify_all();
    }
    IRunHost* m_former;
    std::mutex m_mutex;
    std::condition_variable m_changed;
    bool m_ended = false;
    bool m_isUp = false;
};

// Pairs of the folders "Left" and "Right", run by the dispatch with a host that remembers.
class Dispatch : public TwoStores {
protected:
    void SetUp() override {
        TwoStores::SetUp();
        mapi = CMapiSession(session.Get());
        settings().Clear();
        settings().m_showProtocol = SHOW_PROTOCOL_ALWAYS;
    }
    void TearDown() override {
        PermanentSynchronizations().Clear();
        settings().Clear();
        mapi.Free();
        TwoStores::TearDown();
    }
    static CTarnSettings& settings() { return TarnContext().m_settings; }

    void AddPair(ULONG moreFlags = 0, const std::string& path = "Left") {
        CTarnSetting setting;
        setting.m_sourceKey = KeyOfFolder(IMAPIFolderPtr(left.Get()));
        setting.m_targetKey = KeyOfFolder(IMAPIFolderPtr(right.Get()));
        setting.m_sourcePath = path;
        setting.m_flags = SYNC_ACTIVE | SYNC_TO_TARGET | SYNC_FROM_TARGET | SYNC_DELETE_IN_TARGET | moreFlags;
        settings().Add(setting);
    }
    CSyncOutcome RunAll(CSyncProgress& progress, ULONG when = RUN_MANUAL) {
        CSyncOutcome outcome;
        RunAllSettings(progress, mapi, when, &outcome);
        return outcome;
    }

    CMapiSession mapi;
    RecordingHost host;
    CRecordingUserInterface shown;
};
