// Pairs over stores with other habits than those of the other trials.
#include "FaultsTrial.h"

namespace {

class ShortTermTables : public TwoFolders {
protected:
    ShortTermTables() : TwoFolders({.habits = HABIT_SHORT_TERM_TABLES}) {}

    void Twice() {
        Run();
        Run();
    }
};

INSTANTIATE_TEST_SUITE_P(Habits, ShortTermTables, ::testing::Bool(), [](const auto& which) {
    return std::string(which.param ? "RightIsSource" : "LeftIsSource");
});

TEST_P(ShortTermTables, MemoriesNameItemsByTheirLongTermIds) {
    Given(Both("A B C"), Synced());
    EXPECT_EQ(notReadAgain, 2u);
    ExpectMemoriesTellTheFolders();
    When(Source().Changes("A", "text"), Source().Deletes("B"), Target().Creates("D"));
    Then(Both("A C D"));
}

// A copy's identity is reset, after which the rows are read once more.
TEST_P(ShortTermTables, ItemsAreRememberedAsTheyAreStamped) {
    for (const ULONG option : {ULONG{0}, ULONG{SYNC_ALWAYS_RENEW}, ULONG{SYNC_NEW_ONLY}}) {
        SCOPED_TRACE(option);
        setting.m_flags = SYNC_TO_TARGET | SYNC_FROM_TARGET | SYNC_DELETE_IN_TARGET | SYNC_ACTIVE | option;
        if (option == SYNC_NEW_ONLY) setting.m_flags &= ~ULONG{SYNC_DELETE_IN_TARGET};
        const std::string n = std::to_string(option);
        Given(Left().Creates("A" + n + " B" + n + " C" + n), [this] { Twice(); });
        When(Left().CopiesWithin("A" + n), Left().RenamesNewest("A" + n, "Copy" + n),
             Right().Changes("B" + n, "changed"), [this] { Twice(); });
        When(Left().Changes("C" + n, "changed as well"), [this] { Twice(); });
        EXPECT_EQ(Left().Items(), Right().Items());
        EXPECT_TRUE(Left().Holds("B" + n) && Left().Holds("Copy" + n) && Left().Holds("C" + n));
        Still(Left().Reads("B" + n, "changed"), Right().Reads("C" + n, "changed as well"));
        EXPECT_EQ(outcome.conflicts, 0u);
        ExpectNothingMoves();
    }
}

TEST_P(ShortTermTables, DeletionsStayWhereTheyWereMade) {
    Given(Both("A B C"), Synced());
    When(Left().CopiesWithin("A"), Left().RenamesNewest("A", "Copy"), Right().Changes("B", "changed"),
         Synced(), Left().Deletes("B"));
    Then(Both("A C Copy"));
}

// --- clocks ----------------------------------------------------------------------------------------

class CoarseClock : public FaultsTrial {
protected:
    void SetUp() override {
        FaultsTrial::SetUp();
        Close();
        HoldClock(HABIT_CLOCK_SECONDS);
        for (const unsigned store : {1u, 2u})
            Profile().SetHabits(store, HABIT_CLOCK_SECONDS);
        Reopen();
    }
};

class CAtTheEnd : public CSyncProgressHidden {
public:
    explicit CAtTheEnd(Step step) : m_step(std::move(step)) {}
    void SetMessageText(const std::string& text) override {
        if (text == "writing files") m_step();
    }

private:
    Step m_step;
};

INSTANTIATE_TEST_SUITE_P(Habits, CoarseClock, ::testing::Bool(), [](const auto& which) {
    return std::string(which.param ? "RightIsSource" : "LeftIsSource");
});

// The change bears the time of the run's own write: no run sees it, but it is somebody's work. What the last
// run has written is kept for its sake, what was written before is not.
TEST_P(CoarseClock, AChangeInTheSecondOfTheRunIsKeptBeforeItIsReplaced) {
    Given(Both("A B"), Synced());
    When(Source().Changes("A", "first"));
    CAtTheEnd meanwhile([this] {
        const TestRows rows = ContentsOf(Target().Folder(), {PR_ENTRYID, PR_SUBJECT_A});
        const ULONG row = rows.Text(0, 1) == "A" ? 0 : 1;
        const auto message = OpenTestMessage(Target().Store(), rows.Bytes(row, 0));
        SetText(message.Get(), PR_BODY_A, "hidden");
        EXPECT_EQ(message->SaveChanges(0), S_OK);
    });
    progress = &meanwhile;
    Run();
    progress = nullptr;
    Still(Target().Reads("A", "hidden"), Target().Discards("A"));
    When(Source().Changes("A", "second"), Source().Changes("B", "second"), [this] { Run(); });
    Still(Both("A B"), Target().Reads("A", "second"), Target().Discards("A A"));
    When(
        Source().Changes("A", "third"), Source().Changes("B", "third"), [this] { Run(); }, [this] { Run(); });
    std::vector<std::string> kept;
    for (const CSeenItem& item : SeenAnywhere(Target().Store()))
        if (item.body == "hidden") kept.push_back(item.subject);
    EXPECT_EQ(kept.size(), 1u);
}

// --- trees -----------------------------------------------------------------------------------------

class NamesWithoutCase : public TwoFolders {
protected:
    NamesWithoutCase() : TwoFolders({.habits = HABIT_NAMES_WITHOUT_CASE}) {}
    void SetUp() override {
        TwoFolders::SetUp();
        setting.m_flags |= SYNC_SUBFOLDERS | SYNC_CREATE_SUBFOLDERS;
    }
    static std::string ChildrenOf(const StorySide& side) {
        const TestRows rows = HierarchyOf(side.Folder(), {PR_DISPLAY_NAME_A});
        std::string names;
        for (ULONG row = 0; row < rows.Count(); ++row)
            names += rows.Text(row, 0) + " ";
        return names;
    }
    static std::string ItemsIn(const StorySide& side, const std::string& child) {
        return SubjectsIn(MakeFolder(side.Folder(), child).Get());
    }
};

INSTANTIATE_TEST_SUITE_P(Habits, NamesWithoutCase, ::testing::Bool(), [](const auto& which) {
    return std::string(which.param ? "RightIsSource" : "LeftIsSource");
});

TEST_P(NamesWithoutCase, FoldersThatDifferByCaseAloneBelongTogether) {
    SavedMessage(MakeFolder(Left().Folder(), "Mail").Get(), "A");
    SavedMessage(MakeFolder(Right().Folder(), "mail").Get(), "B");
    for (int run = 0; run < 2; ++run) {
        Run();
        EXPECT_EQ(ChildrenOf(Left()), "Mail ");
        EXPECT_EQ(ChildrenOf(Right()), "mail ");
        EXPECT_EQ(ItemsIn(Left(), "mail").size(), 3u);
        EXPECT_EQ(ItemsIn(Right(), "Mail").size(), 3u);
    }
}

// Where one store tells them apart and the other does not, the second is not mixed into the first.
TEST_P(NamesWithoutCase, TwoFoldersAreNotMixedIntoOne) {
    Close();
    Profile().SetHabits(1, 0);
    Reopen();
    SavedMessage(MakeFolder(Left().Folder(), "Mail").Get(), "A");
    SavedMessage(MakeFolder(Left().Folder(), "mail").Get(), "B");
    SavedMessage(MakeFolder(Right().Folder(), "Mail").Get(), "C");
    expectMessages = true;
    for (int run = 0; run < 2; ++run) {
        Run();
        EXPECT_EQ(outcome.phasesFailed, 1u);
        EXPECT_EQ(messages.size(), 1u);
        EXPECT_EQ(ItemsIn(Left(), "Mail").size(), 3u);
        EXPECT_EQ(ItemsIn(Right(), "Mail").size(), 3u);
        EXPECT_EQ(ItemsIn(Left(), "mail"), "B");
    }
}

}  // namespace
