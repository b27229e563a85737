// A run as a whole: what it leaves behind in the folders, what ends it, and what it tells a person.
#include "FaultsTrial.h"

#include <Platform/Clock.h>
#include <Platform/Machine.h>
#include <Platform/Registry.h>
#include <support/TwoFolders.h>

namespace {
class RunTest : public TwoFolders {
protected:
    void TearDown() override {
        DeleteRegistryTree(RegistryRoot::CurrentUser, "Software\\Ostrand");
        CSyncFolder::ForgetHardDelete();
        TwoFolders::TearDown();
    }
    void SpoilSideFile(const std::string& side, const std::string& bytes) {
        const TestRef<IMessage> message = Hidden(side + "." + ComputerName());
        TestRef<IAttach> attachment;
        ASSERT_EQ(message->OpenAttach(0, nullptr, MAPI_MODIFY, attachment.Out()), S_OK);
        ASSERT_EQ(SetStream(attachment.Get(), PR_ATTACH_DATA_BIN, bytes), S_OK);
        ASSERT_EQ(attachment->SaveChanges(0), S_OK);
        ASSERT_EQ(message->SaveChanges(FORCE_SAVE), S_OK);
    }
    // A run over keys of the test's own choice.
    int RunKeys(const std::string& source, const std::string& target, bool subfolders = false) {
        CRecordingUserInterface person;
        CSyncFolder engine;
        engine.m_session = CMapiSession(session.Get());
        engine.m_setting = &setting;
        const int answer = engine.SyncSubFolder(source, target, true, true, true, subfolders, false);
        messages = person.messages;
        outcome = engine.m_outcome;
        return answer;
    }
    TestRef<IMAPIFolder> Child(StorySide& side, const std::string& name) {
        return MakeFolder(side.Folder(), name);
    }
};

class CCancelAt : public CSyncProgressHidden {
public:
    explicit CCancelAt(int look) : m_look(look) {}
    int IsCancelled() override { return ++looks >= m_look; }
    int looks = 0;

private:
    int m_look;
};

std::vector<std::string> NamesIn(const std::string& bytes) {
    CSyncFileMap map;
    std::uint32_t announced = 0;
    EXPECT_TRUE(map.Parse(bytes, announced));
    std::vector<std::string> names;
    for (const CSyncFileEntry* entry : map.InKeyOrder())
        names.emplace_back(entry->Name());
    std::sort(names.begin(), names.end());
    return names;
}
}  // namespace

INSTANTIATE_TEST_SUITE_P(Runs, RunTest, ::testing::Bool());

// --- what is left behind -----------------------------------------------------------------------------

TEST_P(RunTest, FoldersAreReadAgainOnlyWhereNotesDoNotTellEnough) {
    Given(Both("A B C"), Synced());
    const auto expect = [&](unsigned notes, const char* when, Step happens) {
        happens();
        Run();
        EXPECT_EQ(notReadAgain, notes) << when;
        ExpectMemoriesTellTheFolders();
    };
    expect(2, "a change", Source().Changes("A", "text"));
    expect(2, "a new item", Target().Creates("D"));
    expect(2, "a deletion", Source().Deletes("B"));
    expect(0, "a name that tables cut", Source().Creates(std::string(300, 'n')));
    expect(2, "a change beside a name that was cut", Target().Changes("C", "text"));
    expect(0, "nothing", [] {});
    setting.m_query = "not Subject=\"X\"";
    expect(0, "a query", Source().Changes("A", "more"));
    setting.m_query.clear();
    setting.m_flags |= SYNC_NEW_ONLY;
    expect(0, "the incremental mode", Source().Changes("A", "and more"));
}

TEST_P(RunTest, StateOfBothSidesLiesInTheSourceFolder) {
    Given(Left().Creates("A B"), Right().Creates("C"), Synced());
    const std::vector<std::string> all = {"A", "B", "C"};
    EXPECT_EQ(NamesIn(SideFile("SourceID")), all);
    EXPECT_EQ(NamesIn(SideFile("TargetID")), all);
    EXPECT_EQ(ContentsOf(Target().Folder(), {PR_ENTRYID}, MAPI_ASSOCIATED).Count(), 0u);

    FILETIME newest{};
    const TestRows rows = ContentsOf(Source().Folder(), {PR_LAST_MODIFICATION_TIME});
    for (ULONG row = 0; row < rows.Count(); ++row)
        if (CompareFileTimes(rows.Cell(row, 0).Value.ft, newest) > 0) newest = rows.Cell(row, 0).Value.ft;
    const TestRef<IMessage> message = Hidden("SourceID." + ComputerName());
    // What the run itself has written came after its look.
    const FILETIME told =
        TimeOf(message.Get(), NamedTag(message.Get(), std::wstring(L"SyncTime"), PT_SYSTIME));
    EXPECT_LT(CompareFileTimes(told, newest), 0);
    EXPECT_GT(TicksOf(told), 0u);
}

TEST_P(RunTest, RunWithoutChangesWritesNothing) {
    Run();
    EXPECT_TRUE(SideFile("SourceID").empty());
    EXPECT_EQ(outcome.pairsRun, 1u);
    EXPECT_EQ(ContentsOf(Source().Folder(), {PR_ENTRYID}, MAPI_ASSOCIATED).Count(), 0u);
}

TEST_P(RunTest, SecondRunReplacesTheState) {
    Given(Both("A B"), Synced());
    const ULONG hidden = ContentsOf(Source().Folder(), {PR_ENTRYID}, MAPI_ASSOCIATED).Count();
    When(Left().Deletes("A"));
    Then(Both("B"));
    EXPECT_EQ(ContentsOf(Source().Folder(), {PR_ENTRYID}, MAPI_ASSOCIATED).Count(), hidden);
    EXPECT_EQ(NamesIn(SideFile("SourceID")), std::vector<std::string>{"B"});
}

TEST_P(RunTest, AnotherComputerHasAMemoryOfItsOwn) {
    Given(Both("A B"), Synced());
    SetComputerNameForTest("elsewhere");
    EXPECT_TRUE(SideFile("SourceID").empty());
    When(Left().Creates("C"));
    Then(Both("A B C"));
    SetComputerNameForTest("");
}

TEST_P(RunTest, DamagedStateLosesAndDoublesNothing) {
    Given(Both("A B C"), Synced());
    const std::string whole = SideFile("TargetID");
    for (const size_t cut : {size_t{0}, size_t{3}, whole.size() / 2, whole.size() - 1}) {
        SpoilSideFile("TargetID", whole.substr(0, cut));
        SpoilSideFile("SourceID", "not a sync file");
        Run();
        Still(Both("A B C"));
    }
}

TEST_P(RunTest, TwoPairsWithOneSourceKeepApart) {
    const TestRef<IMAPIFolder> third =
        MakeFolder(OpenStoreFolder(Target().Store(), PR_IPM_SUBTREE_ENTRYID).Get(), "Third");
    StorySide other("third");
    other.Bind(Target().Name() == "left" ? leftStore : rightStore, third);
    Given(Both("A B"), Synced());
    RunKeys(Source().Key(), other.Key());
    Still(Both("A B"), other.Has("A B"));
    RunKeys(Source().Key(), other.Key());
    EXPECT_EQ(outcome.sourceChanged + outcome.targetChanged, 0u);
    When(other.Deletes("A"), Target().Creates("C"));
    RunKeys(Source().Key(), other.Key());
    Run();
    RunKeys(Source().Key(), other.Key());
    Still(Both("B C"), other.Has("B C"));
}

// --- what ends a run -----------------------------------------------------------------------------------

TEST_P(RunTest, KeyWithoutColonIsReportedAndChangesNothing) {
    Given(Both("A"), Synced());
    EXPECT_EQ(RunKeys("0102", Target().Key()), 0);
    ASSERT_EQ(messages.size(), 1u);
    EXPECT_EQ(messages[0].caption, "Tarn");
    EXPECT_EQ(messages[0].text, "Error MAPI_E_INVALID_ENTRYID in\nOpenSource Folder, second try");
    EXPECT_EQ(outcome.pairsNotOpened, 1u);
    EXPECT_EQ(RunKeys(Source().Key(), ""), 0);
    ASSERT_EQ(messages.size(), 1u);
    EXPECT_EQ(messages[0].caption, "Tarn");
    Still(Both("A"));
}

TEST_P(RunTest, FolderThatIsGoneIsReported) {
    const std::string key = Target().Key();
    const size_t colon = key.find(':');
    std::string gone = key;
    gone.replace(colon - 4, 4, "EEEE");
    RunKeys(Source().Key(), gone);
    ASSERT_EQ(messages.size(), 1u);
    EXPECT_EQ(messages[0].text.rfind("Error MAPI_E_", 0), 0u) << messages[0].text;
    EXPECT_EQ(outcome.pairsNotOpened, 1u);
}

// Each run has something to do, so that each would have a state to write.
TEST_P(RunTest, CancelledRunWritesNoStateAndTheNextOneFinishes) {
    constexpr int fewestLooks = 7;
    std::string all;
    int look = 1;
    for (bool cancelled = true; cancelled && !HasFailure(); ++look) {
        all += "A" + std::to_string(look) + " ";
        Given(Left().Creates("A" + std::to_string(look)));
        CCancelAt cancel(look);
        progress = &cancel;
        Run();
        progress = nullptr;
        cancelled = outcome.cancelled;
        EXPECT_EQ(SideFile("SourceID").empty(), cancelled) << look;
        EXPECT_EQ(SideFile("TargetID").empty(), cancelled) << look;
    }
    EXPECT_GT(look, fewestLooks);
    Then(Both(all));
}

// Two items and sixty folders that are missing on either side; after the person has said stop, none is made.
TEST_P(RunTest, CancellingEndsTheWalkOverATree) {
    setting.m_flags |= SYNC_SUBFOLDERS | SYNC_CREATE_SUBFOLDERS;
    for (const StorySide* side : {&Left(), &Right()})
        for (int i = 0; i < 30; ++i)
            MakeFolder(side->Folder(), side->Name() + std::to_string(i));
    const auto folders = [&] {
        return HierarchyOf(Left().Folder(), {PR_ENTRYID}).Count() +
               HierarchyOf(Right().Folder(), {PR_ENTRYID}).Count();
    };
    CCancelAt cancel(10);
    progress = &cancel;
    Run();
    progress = nullptr;
    EXPECT_TRUE(outcome.cancelled);
    EXPECT_EQ(cancel.looks, 10);
    const ULONG made = folders() - 60;
    EXPECT_GT(made, 0u);
    EXPECT_LT(made, 10u);
    Run();
    EXPECT_EQ(folders(), 120u);
}

// A folder that only the target has is made on the source side by its first run, which takes it for the
// source. What is remembered then is what the next run goes by.
TEST_P(RunTest, FolderMadeFromTheTargetKeepsItsMemory) {
    setting.m_flags |= SYNC_SUBFOLDERS | SYNC_CREATE_SUBFOLDERS;
    SavedMessage(Child(Target(), "Sub").Get(), "inner", "text");
    SavedMessage(Child(Target(), "Sub").Get(), "gone later", "text");
    Run();
    EXPECT_EQ(outcome.sourceChanged, 2u);
    EXPECT_EQ(outcome.targetChanged, 0u);
    for (const CSyncProtocolEntry& entry : protocol)
        EXPECT_TRUE(entry.m_toSource) << entry.m_subject;
    ExpectNothingMoves();
    EXPECT_EQ(DeleteBySubject(Child(Source(), "Sub").Get(), "gone later"), S_OK);
    Run();
    EXPECT_EQ(outcome.conflicts, 0u);
    EXPECT_EQ(SubjectsIn(Child(Target(), "Sub").Get()), "inner");
    ExpectNothingMoves();
}

// Nothing ever comes into a folder that is made in a direction that does not run.
TEST_P(RunTest, PairOfOneDirectionMakesTheFoldersThatItFills) {
    setting.m_flags |= SYNC_SUBFOLDERS | SYNC_CREATE_SUBFOLDERS;
    setting.m_flags &= ~static_cast<ULONG>(GetParam() ? SYNC_TO_TARGET : SYNC_FROM_TARGET);
    StorySide& from = Left();
    StorySide& to = Right();
    SavedMessage(MakeFolder(Child(from, "Sub").Get(), "Deep").Get(), "inner", "text");
    SavedMessage(Child(to, "Other").Get(), "not travelling", "text");
    SavedMessage(Child(from, "Met").Get(), "carried", "text");
    SavedMessage(Child(to, "MET").Get(), "not carried", "text");
    Run();
    EXPECT_EQ(outcome.sourceChanged + outcome.targetChanged, 2u);
    EXPECT_EQ(HierarchyOf(from.Folder(), {PR_DISPLAY_NAME_A}).Count(), 2u);
    EXPECT_EQ(HierarchyOf(to.Folder(), {PR_DISPLAY_NAME_A}).Count(), 3u);
    EXPECT_EQ(SubjectsIn(MakeFolder(Child(to, "Sub").Get(), "Deep").Get()), "inner");
    EXPECT_EQ(SubjectsIn(Child(from, "Met").Get()), "carried");
    ExpectNothingMoves();
}

TEST_P(RunTest, PairsByMailAndDirectoryAreRefused) {
    setting.m_flags |= SYNC_BY_DIRECTORY;
    Given(Left().Creates("A"));
    EXPECT_EQ(RunKeys(Source().Key(), Target().Key()), 1);
    ASSERT_EQ(messages.size(), 1u);
    EXPECT_TRUE(outcome.notAvailable);
    setting.m_flags &= ~static_cast<ULONG>(SYNC_BY_DIRECTORY);
    setting.m_emails.push_back({"Ann", "ann@example.org", ""});
    EXPECT_EQ(RunKeys(Source().Key(), Target().Key()), 1);
    ASSERT_EQ(messages.size(), 1u);
    Still(Left().Has("A"), Right().Has(""));
}

// --- subfolders ------------------------------------------------------------------------------------------

TEST_P(RunTest, SubfoldersOfOneNameArePaired) {
    setting.m_flags |= SYNC_SUBFOLDERS;
    SavedMessage(Child(Left(), "Sub").Get(), "inner");
    SavedMessage(Child(Left(), "Only").Get(), "alone");
    Child(Right(), "Sub");
    Given(Both("A"));
    Run();
    EXPECT_EQ(SubjectsIn(Child(Right(), "Sub").Get()), "inner");
    EXPECT_EQ(missingFolders, std::vector<std::string>{"Left\\Only"});
    EXPECT_EQ(outcome.pairsRun, 2u);
}

TEST_P(RunTest, MissingSubfoldersAreMadeOnEitherSide) {
    setting.m_flags |= SYNC_SUBFOLDERS | SYNC_CREATE_SUBFOLDERS;
    const TestRef<IMAPIFolder> calendar = Child(Left(), "Calendar");
    SetText(calendar.Get(), PR_CONTAINER_CLASS_A, "IPF.Appointment");
    SavedMessage(MakeFolder(calendar.Get(), "Deep").Get(), "deepest");
    SavedMessage(Child(Right(), "Notes").Get(), "note");
    Run();
    EXPECT_TRUE(missingFolders.empty());
    EXPECT_EQ(SubjectsIn(MakeFolder(Child(Right(), "Calendar").Get(), "Deep").Get()), "deepest");
    EXPECT_EQ(SubjectsIn(Child(Left(), "Notes").Get()), "note");
    if (&Source() == &Left()) {
        EXPECT_EQ(TextOf(Child(Right(), "Calendar").Get(), PR_CONTAINER_CLASS_A), "IPF.Appointment");
    }
    Then(Both(""));
}

// --- what a pair selects ---------------------------------------------------------------------------------

TEST_P(RunTest, QuerySelectsWhatTravels) {
    setting.m_query = "Subject = \"A\"";
    Given(Left().Creates("A B"));
    Then(Left().Has("A B"), Right().Has("A"));
}

TEST_P(RunTest, QueryThatDoesNotCompileIsToldAndSelectsAll) {
    setting.m_query = "Subject = (";
    expectMessages = true;
    Given(Left().Creates("A B"), Synced());
    ASSERT_FALSE(messages.empty());
    EXPECT_EQ(messages[0].caption, "Vellumware");
    Still(Both("A B"));
}

TEST_P(RunTest, PrivateItemsStayWhereTheyAre) {
    setting.m_flags |= SYNC_SKIP_PRIVATE;
    const TestRef<IMessage> secret = NewMessage(Left().Folder(), "Secret");
    SetLong(secret.Get(), PR_SENSITIVITY, SENSITIVITY_PRIVATE);
    ASSERT_EQ(secret->SaveChanges(0), S_OK);
    Given(Left().Creates("A"));
    Then(Left().Has("A Secret"), Right().Has("A"));
}

// Whatever a person writes: of the private items none travels, and of the others what the query selects; all
// of them where it cannot be used.
TEST_P(RunTest, NoQueryLetsPrivateItemsThrough) {
    static constexpr struct {
        const char* query;
        const char* travels;
    } cases[] = {{"Importance = 2", "High"},
                 {"not Importance = 2", "Low"},
                 {"Importance = 2 or Sensitivity = 2", "High"},
                 {"Subject = substring \"i", "High"},
                 {"Importance = 2) or (Sensitivity = 2", "High Low"},
                 {"select Subject from \"Store 1\\Left\" where Importance = 2", "High Low"},
                 {"Gone(\"x\")", "High Low"},
                 {"Importance = 2 and", "High Low"},
                 {"Subject", "High Low"}};
    setting.m_flags |= SYNC_SKIP_PRIVATE;
    expectMessages = true;
    for (const auto& item : {std::pair{"High", 2}, {"Low", 0}})
        for (const bool secret : {false, true}) {
            const TestRef<IMessage> message =
                NewMessage(Source().Folder(), secret ? std::string(item.first) + "Secret" : item.first);
            SetLong(message.Get(), PR_IMPORTANCE, item.second);
            if (secret) SetLong(message.Get(), PR_SENSITIVITY, SENSITIVITY_PRIVATE);
            ASSERT_EQ(message->SaveChanges(0), S_OK);
        }
    for (const auto& one : cases) {
        setting.m_query = one.query;
        Run();
        EXPECT_EQ(Target().Items(), one.travels) << one.query;
        for (const char* name : {"High", "Low"})
            DeleteBySubject(Target().Folder(), name);
        const TestRows hidden = ContentsOf(Source().Folder(), {PR_ENTRYID}, MAPI_ASSOCIATED);
        std::vector<std::string> memories;
        for (ULONG i = 0; i < hidden.Count(); ++i)
            memories.push_back(hidden.Bytes(i, 0));
        ASSERT_EQ(Source().Folder()->DeleteMessages(TestEntryList(memories).Get(), 0, nullptr, 0), S_OK);
    }
}

TEST_P(RunTest, PrivateAppointmentTravelsWithoutItsText) {
    setting.m_flags |= SYNC_STRIP_PRIVATE;
    const TestRef<IMessage> secret = NewMessage(Left().Folder(), "Doctor", "knee");
    SetText(secret.Get(), PR_MESSAGE_CLASS_A, "IPM.Appointment");
    SetText(secret.Get(), PR_SENDER_NAME_A, "Ann");
    SetLong(secret.Get(), PR_SENSITIVITY, SENSITIVITY_PRIVATE);
    ASSERT_EQ(secret->SaveChanges(0), S_OK);
    Run();
    const TestRows rows = ContentsOf(Right().Folder(), {PR_SUBJECT_A, PR_ENTRYID});
    ASSERT_EQ(rows.Count(), 1u);
    EXPECT_EQ(rows.Text(0, 0), "[Ann] Private appointment");
    const TestRef<IMessage> shown = OpenTestMessage(Right().Store(), rows.Bytes(0, 1));
    EXPECT_EQ(TextOf(shown.Get(), PR_BODY_A), "Private appointment");
    EXPECT_EQ(LongOf(shown.Get(), NamedTag(shown.Get(), std::wstring(L"TarnPriv"), PT_LONG)), 1);
    // What the run remembers of both sides lies on one of them.
    const TestRows hidden = ContentsOf(Right().Folder(), {PR_ENTRYID}, MAPI_ASSOCIATED);
    for (ULONG row = 0; row < hidden.Count(); ++row) {
        const TestRef<IMessage> memory = OpenTestMessage(Right().Store(), hidden.Bytes(row, 0));
        TestRef<IAttach> file;
        if (memory->OpenAttach(0, nullptr, 0, file.Out()) != S_OK) continue;
        EXPECT_EQ(StreamOf(file.Get(), PR_ATTACH_DATA_BIN).find("Doctor"), std::string::npos);
    }
    Still(Left().Has("Doctor"), Left().Reads("Doctor", "knee"));
    setting.m_flags |= SYNC_DELETE_IN_TARGET;
    When(Left().Deletes("Doctor"));
    Then(Both(""));
}

// It stands beside the query, which asks for a text that the copy has not.
TEST_P(RunTest, CopyWithoutTextStaysTheOnlyOneUnderAQuery) {
    setting.m_flags |= SYNC_STRIP_PRIVATE;
    setting.m_query = "Subject = prefix \"Doctor\"";
    const TestRef<IMessage> secret = NewMessage(Source().Folder(), "Doctor", "knee");
    SetText(secret.Get(), PR_MESSAGE_CLASS_A, "IPM.Appointment");
    SetLong(secret.Get(), PR_SENSITIVITY, SENSITIVITY_PRIVATE);
    ASSERT_EQ(secret->SaveChanges(0), S_OK);
    Run();
    When(Source().Changes("Doctor", "toe"));
    Run();
    EXPECT_EQ(Target().Items(), "[] Private appointment");
    EXPECT_EQ(Target().Discarded(), "");
    // What somebody wrote into the copy was never carried.
    When(Target().Renames("[] Private appointment", "mine"), Source().Changes("Doctor", "heel"));
    Run();
    EXPECT_EQ(Target().Items(), "[] Private appointment");
    EXPECT_EQ(Target().Discarded(), "mine");
    const TestRows rows = ContentsOf(Source().Folder(), {PR_ENTRYID});
    const TestRef<IMessage> open = OpenTestMessage(Source().Store(), rows.Bytes(0, 0));
    SetLong(open.Get(), PR_SENSITIVITY, 0);
    ASSERT_EQ(open->SaveChanges(0), S_OK);
    Run();
    Still(Both("Doctor"), Target().Reads("Doctor", "heel"));
}

TEST_P(RunTest, IncrementalRunFindsWhatIsNewAndLosesNothing) {
    setting.m_flags = (setting.m_flags | SYNC_NEW_ONLY) & ~static_cast<ULONG>(SYNC_DELETE_IN_TARGET);
    Given(Both("A B"), Synced());
    When(Left().Creates("C"), Right().Changes("A", "changed"));
    Then(Both("A B C"), Left().Reads("A", "changed"));
}

// --- removing --------------------------------------------------------------------------------------------

TEST_P(RunTest, HardDeleteHoldsNothing) {
    CRegistryKey key;
    ASSERT_EQ(key.Create(RegistryRoot::CurrentUser, "Software\\Ostrand\\Vellumware"), ERROR_SUCCESS);
    ASSERT_EQ(key.WriteDword("HardDelete", 1), ERROR_SUCCESS);
    CSyncFolder::ForgetHardDelete();
    Given(Both("A B"), Synced());
    When(Left().Deletes("B"));
    Then(Both("A"), Right().Discards(""));
}

// Two moves, a look where it is and a deletion: where all of them fail, the person is to see it.
TEST_P(RunTest, ItemThatNothingRemovesIsMarked) {
    const auto faults = FaultsOf(Left().Store());
    const IMsgStorePtr store(Left().Store());
    const IMAPIFolderPtr folder(Left().Folder());
    constexpr ULONG kFailing = 4, kMostCalls = 60;
    for (ULONG call = 1; call < kMostCalls && !Left().Holds("Deleted"); ++call) {
        Left().Creates("A")();
        CSyncFolder engine;
        engine.m_session = CMapiSession(session.Get());
        engine.InitDelArrays(store, folder, DeletionBatchCapacity);
        CEntryIdBatch batch;
        batch.Add(CItemKeyView::OfKept(ContentsOf(folder.Get(), {PR_ENTRYID}).Bytes(0, 0)));
        faults->SetFault(call, MAPI_E_NETWORK_ERROR, TRUE);
        faults->SetInterruption(
            call + kFailing, [](void* which) { static_cast<IStoreFaults*>(which)->SetFault(0, S_OK, FALSE); },
            faults.Get());
        engine.MoveToDeletedFolder(batch, "Deleted", store, folder);
        faults->SetFault(0, S_OK, FALSE);
        faults->SetInterruption(0, nullptr, nullptr);
        EXPECT_EQ(engine.NotRemoved().size(), engine.m_outcome.rowsFailed);
        if (Left().Holds("Deleted")) {
            EXPECT_EQ(engine.m_outcome.rowsFailed, 1u);
        } else if (Left().Holds("A")) {
            Left().Deletes("A")();
        }
    }
    EXPECT_EQ(Left().Items(), "Deleted");
}

TEST_P(RunTest, BatchThatRunsFullLosesNoEntry) {
    Given(Left().Creates("A B C D E F G"));
    CSyncFolder engine;
    engine.m_session = CMapiSession(session.Get());
    const IMsgStorePtr store(Left().Store());
    const IMAPIFolderPtr folder(Left().Folder());
    engine.InitDelArrays(store, folder, 3);
    const TestRows rows = ContentsOf(Left().Folder(), {PR_ENTRYID, PR_SUBJECT_A});
    for (ULONG row = 0; row < rows.Count(); ++row) {
        if (rows.Text(row, 1) == "G") continue;
        engine.AddToDelArray(CItemKeyView::OfKept(rows.Bytes(row, 0)), folder, BATCH_DELETED);
        // The entry that finds the batch full waits for the next one; that is larger.
        EXPECT_EQ(ContentsOf(Left().Folder(), {PR_ENTRYID}).Count(), row < 2 ? 7u : 5u);
    }
    engine.FlushDelArrays(store, folder);
    Still(Left().Has("G"), Left().Discards("A B C D E F"));
}
