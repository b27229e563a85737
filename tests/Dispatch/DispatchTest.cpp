// Which settings take part in a run, on which thread it works, and what meets the person.
#include <Platform/Clock.h>
#include <Platform/Threads.h>
#include <Tarn/Dispatch/RecentChanges.h>

#include "DispatchFixture.h"

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

TEST_F(Dispatch, ADialogThatNeverComesUpLeavesTheRunToItself) {
    AddPair();
    SavedMessage(left.Get(), "A");
    host.insteadOfDialog = [] {};
    CSyncProgressInteraktiv progress;
    EXPECT_EQ(RunAll(progress).targetChanged, 1u);
    SavedMessage(left.Get(), "B");
    host.insteadOfDialog = [] { throw std::runtime_error("no dialog"); };
    EXPECT_EQ(RunAll(progress).targetChanged, 1u);
    EXPECT_EQ(g_syncBusy, 0);
    EXPECT_EQ(LongOf(right.Get(), PR_CONTENT_COUNT), 2);
}

TEST_F(Dispatch, NobodyReachesADialogThatHasGone) {
    AddPair();
    CSyncProgressInteraktiv progress;
    for (int i = 0; i < 20; ++i)
        RunAll(progress);
    SleepMs(50);
    EXPECT_EQ(host.toldWhileGone, 0);
    CVellumDlg late;
    late.EndRun();
    EXPECT_FALSE(late.SetWindow(1)) << "a dialog that comes up behind its run would stay for ever";
}

TEST_F(Dispatch, ARunThatGetsNoThreadIsMadeHere) {
    AddPair();
    SavedMessage(left.Get(), "A");
    g_threadStartsToFail = 1;
    CSyncProgressInteraktiv progress;
    EXPECT_EQ(RunAll(progress).targetChanged, 1u);
    EXPECT_EQ(host.workerThread, std::this_thread::get_id());
    EXPECT_EQ(g_syncBusy, 0);
    EXPECT_EQ(RunAll(progress).pairsRun, 1u);
    EXPECT_NE(host.workerThread, std::this_thread::get_id());
}

TEST_F(Dispatch, ASessionThatIsTakenOverEndsNoOther) {
    CTarnContext context;
    ASSERT_EQ(context.Logon(Profile().Name()), S_OK);
    const CMapiSession own = context.m_session;
    context.UseSession(own);
    EXPECT_TRUE(context.m_session.OpenDefaultStore().IsValid()) << "the own one again";
    context.UseSession(mapi);
    EXPECT_TRUE(own.OpenDefaultStore().IsValid()) << "runs and watchers may be at work with it";
    EXPECT_EQ(context.m_session.Raw(), mapi.Raw());
    context.Logoff();
    EXPECT_FALSE(own.OpenDefaultStore().IsValid());
    EXPECT_TRUE(mapi.OpenDefaultStore().IsValid()) << "not opened here";
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

TEST_F(Dispatch, TheAddInAsksAboutAQueryThatDoesNotSelectWhereTheInstallationWantsIt) {
    SavedMessage(left.Get(), "A");
    AddPair();
    settings().At(0).m_query = "Subject = \"B\" Importance = 2";
    settings().m_queryGuard = 1;
    shown.answer = IDNO;
    CSyncProgressHidden progress;
    EXPECT_TRUE(RunAll(progress).guarded);
    EXPECT_EQ(SubjectsIn(right.Get()), "");
    ASSERT_EQ(shown.messages.size(), 1u);
    EXPECT_NE(shown.messages[0].text.find("ends before \"Importance = 2\""), std::string::npos);
    settings().m_queryGuard.reset();
    EXPECT_FALSE(RunAll(progress).guarded);
    EXPECT_EQ(SubjectsIn(right.Get()), "A");
}

// Whichever call of either store fails, once or from then on: what query and option keep out stays out, also
// where no guard asks.
TEST_F(Dispatch, NoFailureOfAStoreLetsThroughWhatIsKeptOut) {
    const auto add = [&](const char* subject, LONG importance, LONG sensitivity) {
        const TestRef<IMessage> item = NewMessage(left.Get(), subject);
        SetLong(item.Get(), PR_IMPORTANCE, importance);
        SetLong(item.Get(), PR_SENSITIVITY, sensitivity);
        ASSERT_EQ(item->SaveChanges(0), S_OK);
    };
    add("Low", 0, 0);
    add("Secret", 2, SENSITIVITY_PRIVATE);
    AddPair(SYNC_SKIP_PRIVATE);
    settings().At(0).m_query = "Importance = 2 and not userfield(Hidden, long) = 1";
    unsigned met = 0, carried = 0;
    for (IMsgStore* store : {leftStore.Get(), rightStore.Get()}) {
        TestRef<IStoreFaults> faults;
        ASSERT_EQ(store->QueryInterface(IID_IStoreFaults, reinterpret_cast<void**>(faults.Out())), S_OK);
        for (const BOOL lasting : {FALSE, TRUE})
            for (ULONG n = 1;; n += 1 + n / 12) {  // the look comes early
                ASSERT_LT(n, 20000u);
                DeleteBySubject(left.Get(), "High");
                add("High", 2, 0);
                faults->SetFault(n, MAPI_E_CALL_FAILED, lasting);
                CSyncProgressHidden progress;
                RunAll(progress);
                const bool reached = faults->CallCount() >= n;
                faults->SetFault(0, S_OK, FALSE);
                const std::string subjects = SubjectsIn(right.Get());
                ASSERT_EQ(subjects.find_first_of("LS"), std::string::npos) << subjects << " at call " << n;
                carried += !subjects.empty();
                if (!reached) break;
                ++met;
            }
    }
    EXPECT_GT(met, 60u) << carried;
    EXPECT_GT(carried, 20u);
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

TEST_F(Dispatch, WhoeverAsksForChangesHearsOfAllAlsoDuringARun) {
    IVellumAdviseSink sink;
    int changes = 0;
    sink.m_onChange = [&] { ++changes; };
    for (const ULONG event :
         {TABLE_CHANGED, TABLE_ERROR, TABLE_ROW_ADDED, TABLE_ROW_DELETED, TABLE_ROW_MODIFIED}) {
        NOTIFICATION notification = TableEvent(event);
        EXPECT_EQ(sink.OnNotify(1, &notification), 0u);
    }
    EXPECT_EQ(changes, 5);
    NOTIFICATION other = TableEvent(TABLE_ROW_ADDED);
    other.ulEventType = fnevNewMail;
    sink.OnNotify(1, &other);
    EXPECT_TRUE(sink.m_isOutdated) << "a table that ends its notifications has to be advised on anew";
    g_syncBusy = 1;
    NOTIFICATION duringARun = TableEvent(TABLE_ROW_ADDED);
    sink.OnNotify(1, &duringARun);
    g_syncBusy = 0;
    EXPECT_EQ(changes, 6) << "what a person does during a run is not lost";
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
