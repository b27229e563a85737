// Which settings take part in a run, on which thread it works, and what meets the person.
#include <Platform/Clock.h>
#include <Platform/UserInterface.h>
#include <Tarn/Settings/PermanentSynchronization.h>
#include <Tarn/Settings/RecentChanges.h>
#include <Tarn/Settings/RunDispatch.h>
#include <Tarn/Settings/TarnContext.h>
#include <support/StoreFixture.h>

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <thread>

namespace {

struct Wanted {
    const char* name;
    ULONG flags;
    LONG deleted;
    ULONG when;
    ULONG kind;
    bool takesPart;
};

class TakesPartTable : public ::testing::TestWithParam<Wanted> {};

TEST_P(TakesPartTable, Holds) {
    CTarnSetting setting;
    setting.m_flags = GetParam().flags;
    setting.m_deleted = GetParam().deleted;
    EXPECT_EQ(TakesPart(setting, GetParam().when, GetParam().kind), GetParam().takesPart) << GetParam().name;
}

INSTANTIATE_TEST_SUITE_P(
    Settings, TakesPartTable,
    ::testing::Values(
        Wanted{"active", SYNC_ACTIVE, 0, RUN_MANUAL, RUN_FOLDER_PAIRS, true},
        Wanted{"inactive", 0, 0, RUN_MANUAL, RUN_FOLDER_PAIRS, false},
        Wanted{"deleted", SYNC_ACTIVE, 1, RUN_MANUAL, RUN_FOLDER_PAIRS, false},
        Wanted{"mail is no folder pair", SYNC_ACTIVE | SYNC_BY_EMAIL, 0, RUN_MANUAL, RUN_FOLDER_PAIRS, false},
        Wanted{"mail", SYNC_ACTIVE | SYNC_BY_EMAIL, 0, RUN_MANUAL, RUN_BY_EMAIL, true},
        Wanted{"directory", SYNC_ACTIVE | SYNC_BY_DIRECTORY, 0, RUN_MANUAL, RUN_BY_DIRECTORY, true},
        Wanted{"pair is no directory", SYNC_ACTIVE, 0, RUN_MANUAL, RUN_BY_DIRECTORY, false},
        Wanted{"not at start", SYNC_ACTIVE, 0, RUN_AT_START, RUN_FOLDER_PAIRS, false},
        Wanted{"at start", SYNC_ACTIVE | SYNC_AT_START, 0, RUN_AT_START, RUN_FOLDER_PAIRS, true},
        Wanted{"at shutdown", SYNC_ACTIVE | SYNC_AT_SHUTDOWN, 0, RUN_AT_SHUTDOWN, RUN_FOLDER_PAIRS, true},
        Wanted{"start is not shutdown", SYNC_ACTIVE | SYNC_AT_START, 0, RUN_AT_SHUTDOWN, RUN_FOLDER_PAIRS,
               false},
        Wanted{"manual takes all", SYNC_ACTIVE | SYNC_AT_START, 0, RUN_MANUAL, RUN_FOLDER_PAIRS, true}));

// Runs the dialog without a window and remembers what it was told.
class RecordingHost : public IRunHost, public IVellumDlgView {
public:
    RecordingHost() : m_former(InstallRunHost(this)) {}
    ~RecordingHost() override { InstallRunHost(m_former); }

    IVellumDlgView* DialogView() override { return this; }
    void RunModal(CVellumDlg& dialog) override {
        modalThread = std::this_thread::get_id();
        {
            // The last word of a run before may have come after its dialog was gone.
            const std::lock_guard lock(m_mutex);
            m_ended = false;
        }
        const CWindowRegistration window("Vellum test progress", dialog);
        if (cancelAtOnce) dialog.Cancel();
        dialog.SetWindow(window.Handle());
        std::unique_lock lock(m_mutex);
        m_changed.wait(lock, [this] { return m_ended; });
        dialog.SetWindow(0);
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
    void EndPair(const CTarnSetting&, CSyncFolder&) override {}

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
    int protocolsShown = 0;
    int firstState = -1;
    std::vector<std::string> pairs;
    std::vector<std::string> captions;
    std::thread::id modalThread, workerThread;

private:
    void End() {
        const std::lock_guard lock(m_mutex);
        m_ended = true;
        m_changed.notify_all();
    }
    IRunHost* m_former;
    std::mutex m_mutex;
    std::condition_variable m_changed;
    bool m_ended = false;
};

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

TEST_F(Dispatch, AnEmptyListBeginsAndStopsAndShowsNoProtocol) {
    CSyncProgressInteraktiv progress;
    RunAll(progress);
    EXPECT_EQ(host.protocolsShown, 0);
    EXPECT_EQ(g_syncBusy, 0);
}

TEST_F(Dispatch, AVisibleRunWorksOnAThreadOfItsOwn) {
    SavedMessage(left.Get(), "A");
    AddPair();
    CSyncProgressInteraktiv progress;
    const CSyncOutcome outcome = RunAll(progress);
    EXPECT_EQ(outcome.pairsRun, 1u);
    EXPECT_EQ(SubjectsIn(right.Get()), "A");
    EXPECT_EQ(host.modalThread, std::this_thread::get_id());
    EXPECT_NE(host.workerThread, std::this_thread::get_id());
    EXPECT_EQ(host.protocolsShown, 1);
    ASSERT_FALSE(host.captions.empty());
    EXPECT_EQ(host.captions[0], "Left");
}

TEST_F(Dispatch, ASilentRunStaysOnTheCallersThreadAndShowsNothing) {
    SavedMessage(left.Get(), "A");
    AddPair();
    CSyncProgressHidden progress;
    RunAll(progress);
    EXPECT_EQ(SubjectsIn(right.Get()), "A");
    EXPECT_EQ(host.workerThread, std::this_thread::get_id());
    EXPECT_EQ(host.protocolsShown, 0);
}

TEST_F(Dispatch, CancellingEndsTheRunBeforeAnythingIsTouched) {
    SavedMessage(left.Get(), "A");
    AddPair();
    host.cancelAtOnce = true;
    CSyncProgressInteraktiv progress;
    EXPECT_TRUE(RunAll(progress).cancelled);
    EXPECT_EQ(SubjectsIn(right.Get()), "");
}

TEST_F(Dispatch, ConflictsOnlyShowsAnyProtocolAndMarksItsFirstEntry) {
    SavedMessage(left.Get(), "A");
    AddPair();
    settings().m_showProtocol = SHOW_PROTOCOL_CONFLICTS;
    CSyncProgressInteraktiv progress;
    RunAll(progress);
    EXPECT_EQ(host.firstState, STATE_CONFLICT);
    settings().m_showProtocol = SHOW_PROTOCOL_NEVER;
    SavedMessage(left.Get(), "B");
    RunAll(progress);
    EXPECT_EQ(host.protocolsShown, 1);
}

TEST_F(Dispatch, APairThatFailsDoesNotStopTheNext) {
    CTarnSetting broken;
    broken.m_sourceKey = "00:11";
    broken.m_targetKey = "22:33";
    broken.m_sourcePath = "Broken";
    broken.m_flags = SYNC_ACTIVE | SYNC_TO_TARGET | SYNC_FROM_TARGET;
    settings().Add(broken);
    SavedMessage(left.Get(), "A");
    AddPair();
    CSyncProgressHidden progress;
    const CSyncOutcome outcome = RunAll(progress);
    EXPECT_EQ(outcome.pairsNotOpened, 1u);
    EXPECT_EQ(outcome.pairsRun, 1u);
    EXPECT_EQ(SubjectsIn(right.Get()), "A");
    EXPECT_FALSE(shown.messages.empty());
}

TEST_F(Dispatch, WatchersAreRebuiltAfterARunAndStartAdvisesOnNothing) {
    AddPair(SYNC_CONTINUOUS_TO | SYNC_CONTINUOUS_FROM);
    CTarnSetting deleted = settings().At(0);
    deleted.m_deleted = 1;
    settings().Add(deleted);
    CSyncProgressHidden progress;
    RunAll(progress);
    EXPECT_EQ(PermanentSynchronizations().Count(), 1u) << "one watcher for both directions, none for deleted";
    SavedMessage(left.Get(), "A");
    EXPECT_EQ(SubjectsIn(right.Get()), "");
}

TEST_F(Dispatch, TheGuardOfTheAddInIsOffUnlessTheInstallationSetsIt) {
    std::vector<TestRef<IMessage>> items;
    for (int i = 0; i < 12; ++i)
        items.push_back(SavedMessage(left.Get(), "Item " + std::to_string(i)));
    AddPair();
    CSyncProgressHidden progress;
    RunAll(progress);
    const auto deleteAll = [&] {
        for (int i = 0; i < 12; ++i)
            DeleteBySubject(left.Get(), "Item " + std::to_string(i));
    };
    deleteAll();
    settings().m_massDeleteGuard = 50;
    shown.answer = IDNO;
    EXPECT_TRUE(RunAll(progress).guarded);
    EXPECT_EQ(LongOf(right.Get(), PR_CONTENT_COUNT), 12);
    ASSERT_EQ(shown.messages.size(), 1u);
    EXPECT_NE(shown.messages[0].text.find("12 of the 12 items in \"Right\""), std::string::npos);
    shown.answer = IDYES;
    EXPECT_FALSE(RunAll(progress).guarded);
    EXPECT_EQ(LongOf(right.Get(), PR_CONTENT_COUNT), 0);

    settings().m_massDeleteGuard.reset();
    for (int i = 0; i < 12; ++i)
        SavedMessage(left.Get(), "Item " + std::to_string(i));
    RunAll(progress);
    deleteAll();
    shown.answer = IDNO;
    EXPECT_FALSE(RunAll(progress).guarded);
    EXPECT_EQ(LongOf(right.Get(), PR_CONTENT_COUNT), 0);
    EXPECT_EQ(shown.messages.size(), 2u);
}

TEST_F(Dispatch, AWatchedTreeIsHeardOfAsAWhole) {
    AddPair(SYNC_SUBFOLDERS);
    const auto sub = MakeFolder(left.Get(), "Sub");
    const auto item = SavedMessage(sub.Get(), "A");
    std::atomic<int> changes{0};
    CPermanentSynchronization watcher(settings().At(0));
    watcher.Watch(mapi, [&] { ++changes; });
    const auto heard = [&](const char* what) {
        for (int i = 0; i < 300 && changes == 0; ++i)
            SleepMs(10);
        EXPECT_GT(changes.exchange(0), 0) << what;
    };
    DeleteBySubject(sub.Get(), "A");
    heard("a deletion below");
    EXPECT_FALSE(watcher.IsOutdated());
    const auto later = MakeFolder(sub.Get(), "Later");
    heard("a new folder");
    EXPECT_TRUE(watcher.IsOutdated());
    watcher.Watch(mapi, [&] { ++changes; });
    SleepMs(200);
    changes = 0;
    SavedMessage(later.Get(), "B");
    heard("an item in the new folder");
    SleepMs(200);
    changes = 0;
    SavedMessage(OpenReceiveFolder(leftStore.Get()).Get(), "Mail");
    SleepMs(300);
    EXPECT_EQ(changes, 0) << "another folder of the store";
}

// ---- notifications --------------------------------------------------------------------------------

NOTIFICATION TableEvent(ULONG event, SPropValue* row = nullptr) {
    NOTIFICATION notification{};
    notification.ulEventType = fnevTableModified;
    notification.info.tab.ulTableEvent = event;
    notification.info.tab.row.cValues = row ? 1 : 0;
    notification.info.tab.row.lpProps = row;
    return notification;
}

TEST_F(Dispatch, WhoeverAsksForChangesHearsOfAllButNotDuringARun) {
    IVellumAdviseSink sink;
    int changes = 0;
    sink.m_onChange = [&] { ++changes; };
    for (const ULONG event :
         {TABLE_CHANGED, TABLE_ERROR, TABLE_ROW_ADDED, TABLE_ROW_DELETED, TABLE_ROW_MODIFIED}) {
        NOTIFICATION notification = TableEvent(event);
        EXPECT_EQ(sink.OnNotify(1, &notification), 0u);
    }
    EXPECT_EQ(changes, 4) << "all but the error";
    NOTIFICATION other = TableEvent(TABLE_ROW_ADDED);
    other.ulEventType = fnevNewMail;
    sink.OnNotify(1, &other);
    g_syncBusy = 1;
    NOTIFICATION dropped = TableEvent(TABLE_ROW_ADDED);
    sink.OnNotify(1, &dropped);
    g_syncBusy = 0;
    EXPECT_EQ(changes, 4) << "what comes while a run is under way is dropped";
}

TEST_F(Dispatch, ANotificationRunsTheWholePair) {
    AddPair();
    IVellumAdviseSink sink;
    sink.m_setting.m_flags = settings().At(0).m_flags;
    sink.m_sourceFolder = IMAPIFolderPtr(left.Get());
    sink.m_targetFolder = IMAPIFolderPtr(right.Get());
    sink.m_session = mapi;
    const auto message = SavedMessage(left.Get(), "A");
    SavedMessage(left.Get(), "B");
    std::string id = BytesOf(message.Get(), PR_ENTRYID);
    SPropValue entryId{};
    entryId.ulPropTag = PR_ENTRYID;
    entryId.Value.bin = {static_cast<ULONG>(id.size()), reinterpret_cast<BYTE*>(id.data())};
    NOTIFICATION deleted = TableEvent(TABLE_ROW_DELETED, &entryId);
    sink.OnNotify(1, &deleted);
    EXPECT_EQ(LongOf(right.Get(), PR_CONTENT_COUNT), 0) << "a row that went starts no run";
    NOTIFICATION notification = TableEvent(TABLE_ROW_ADDED, &entryId);
    // The status program is not there in a test; a window of its title stands in.
    CVellumDlg status;
    const CWindowRegistration window("Vellum", status);
    sink.OnNotify(1, &notification);
    EXPECT_EQ(LongOf(right.Get(), PR_CONTENT_COUNT), 2);
}

TEST(RecentChangesTest, AgesAreCountedToTheMillisecond) {
    CClockOverride clock(FileTimeOf(132000000000000000ull));
    CSyncInfos list;
    const std::string bytes = "item";
    const SBinary id{4, reinterpret_cast<BYTE*>(const_cast<char*>(bytes.data()))};
    auto note = std::make_unique<CSyncInfo>();
    note->m_entryId = id;
    note->m_tickCount = TickCount();
    list.push_back(std::move(note));
    EXPECT_FALSE(IsRecentChange(list, {}, id)) << "young notes are passed over";
    clock.Advance(10001 * 10000ull);
    EXPECT_TRUE(IsRecentChange(list, {}, id));
    EXPECT_TRUE(list.empty());

    list.push_back(std::make_unique<CSyncInfo>());
    list.back()->m_tickCount = TickCount();
    clock.Advance(30000 * 10000ull);
    PurgeRecentChanges(list);
    EXPECT_EQ(list.size(), 1u) << "exactly thirty seconds stay";
    clock.Advance(10000);
    PurgeRecentChanges(list);
    EXPECT_TRUE(list.empty());
}

TEST(AdviseSink, AnswersForItsInterfacesAndIsNeverDeletedByRelease) {
    IVellumAdviseSink sink;
    void* object = nullptr;
    EXPECT_EQ(sink.QueryInterface(IID_IMAPIAdviseSink, &object), S_OK);
    EXPECT_EQ(object, static_cast<IMAPIAdviseSink*>(&sink));
    EXPECT_EQ(sink.QueryInterface(IID_IMAPITable, &object), E_NOINTERFACE);
    EXPECT_EQ(object, nullptr);
    EXPECT_EQ(sink.AddRef(), 2u);
    EXPECT_EQ(sink.Release(), 1u);
    EXPECT_EQ(sink.Release(), 0u);
}

}  // namespace
