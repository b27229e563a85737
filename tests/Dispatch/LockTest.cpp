// Two runs never work in the same folders: what is held, by whom, and what becomes of the one that comes
// second.
#include <Platform/Clock.h>
#include <Platform/Machine.h>

#include "DispatchFixture.h"

namespace {

// "Home\A\S" as a claimed folder; each name alone stands for an entry ID.
CClaimedFolder At(const std::string& path) {
    CClaimedFolder folder;
    for (size_t end = path.size(); end != std::string::npos; end = path.rfind('\\', end - 1)) {
        if (end == path.size())
            folder.id = path;
        else
            folder.above.push_back(path.substr(0, end));
        if (end == 0) break;
    }
    return folder;
}

CClaim Claim(const std::string& source, const std::string& target, bool withSubfolders = false) {
    return {{At(source), At(target)}, withSubfolders};
}

class Claims : public ::testing::Test {
protected:
    void SetUp() override { RemoveTree(directory); }
    void TearDown() override { RemoveTree(directory); }
    ClaimAnswer Try(const CClaim& claim) {
        CFolderClaims other(directory);
        return other.Take(claim, holder);
    }
    const std::string directory = JoinPath(DataDirectory(), "claims");
    std::string holder;
};

TEST_F(Claims, ATreeCoversWhatLiesBelowAndAFolderOnlyItself) {
    constexpr ClaimAnswer free = ClaimAnswer::Taken, shared = ClaimAnswer::Shared;
    const struct {
        CClaim held, tried;
        ClaimAnswer answer;
    } table[] = {
        {Claim("H\\A", "O\\B"), Claim("H\\A", "O\\B"), ClaimAnswer::SamePair},
        {Claim("H\\A", "O\\B"), Claim("O\\B", "H\\A", true), ClaimAnswer::SamePair},
        {Claim("H\\A", "O\\B"), Claim("H\\A", "O\\C"), shared},
        {Claim("H\\A", "O\\B"), Claim("O\\C", "H\\A"), shared},
        {Claim("H\\A", "O\\B"), Claim("H\\C", "O\\D", true), free},
        {Claim("H\\A\\S", "O\\B"), Claim("H\\A", "O\\C", true), shared},
        {Claim("H\\A\\S\\T", "O\\B"), Claim("O\\C", "H\\A", true), shared},
        {Claim("H\\A", "O\\B", true), Claim("H\\A\\S\\T", "O\\C"), shared},
        {Claim("H\\A", "O\\B", true), Claim("H\\C", "O\\B\\S"), shared},
        {Claim("H\\A", "O\\B"), Claim("H\\A\\S", "O\\B\\S"), free},
        {Claim("H\\A\\S", "O\\B\\S", true), Claim("H\\A", "O\\B"), free},
        {Claim("H\\A\\S", "O\\B\\S", true), Claim("H\\A\\T", "O\\B\\T", true), free},
        {Claim("H\\A", "O\\B", true), Claim("H\\AB", "O\\BC", true), free},
    };
    for (size_t i = 0; i < std::size(table); ++i) {
        CFolderClaims held(directory);
        ASSERT_EQ(held.Take(table[i].held, holder), ClaimAnswer::Taken) << i;
        EXPECT_EQ(Try(table[i].tried), table[i].answer) << i;
        held.Release();
        EXPECT_EQ(Try(table[i].tried), ClaimAnswer::Taken) << i << ": what was held is free again";
    }
    CFolderClaims held(directory);
    ASSERT_EQ(held.Take(Claim("H\\A", "O\\B"), holder), ClaimAnswer::Taken);
    Try(Claim("H\\A", "O\\B"));
    EXPECT_EQ(holder.find("process " + std::to_string(static_cast<unsigned>(ProcessId())) + " on " +
                          ComputerName() + ", since 20"),
              0u)
        << holder;
}

// A folder that moves into a tree while both are being run is met by the run of the tree.
TEST_F(Claims, WhereARunIsNoOtherComes) {
    CFolderClaims tree(directory), folder(directory), other(directory);
    ASSERT_EQ(tree.Take(Claim("H\\A", "O\\B", true), holder), ClaimAnswer::Taken);
    ASSERT_EQ(folder.Take(Claim("H\\X", "O\\Y"), holder), ClaimAnswer::Taken);
    EXPECT_EQ(tree.GoTo({"H\\X", "O\\B\\X"}, holder), ClaimAnswer::Shared) << "its run has it";
    EXPECT_EQ(tree.GoTo({"H\\A\\S", "O\\B\\S"}, holder), ClaimAnswer::Taken);
    // The same folder, elsewhere by now: only its entry ID tells.
    EXPECT_EQ(other.Take({{CClaimedFolder{"H\\A\\S", {"H"}}, At("O\\Z")}, false}, holder),
              ClaimAnswer::Shared);
    EXPECT_EQ(tree.GoTo({"H\\A\\T", "O\\B\\T"}, holder), ClaimAnswer::Taken);
    EXPECT_EQ(other.Take({{CClaimedFolder{"H\\A\\S", {"H"}}, At("O\\Z")}, false}, holder),
              ClaimAnswer::Taken);
}

TEST_F(Claims, WhatNobodyHoldsIsTakenAwayAndWhatCannotBeWrittenIsNoClaim) {
    ASSERT_TRUE(MakeDirectories(directory));
    for (const char* text : {"", "garbage", "process 1 on desk\nT 0000000000000000\nR\n\n\nX"})
        ASSERT_TRUE(WriteFileDurably(
            JoinPath(directory, "run-1-" + std::to_string(std::strlen(text)) + ".lock"), text));
    EXPECT_EQ(Try(Claim("H\\A", "O\\B", true)), ClaimAnswer::Taken);
    CFolderClaims held(directory);
    ASSERT_EQ(held.Take(Claim("H\\A", "O\\B"), holder), ClaimAnswer::Taken);
    EXPECT_EQ(ListDirectory(directory).size(), 2u) << "the gate and the one that is held";
    held.Release();
    RemoveTree(directory);
    ASSERT_TRUE(WriteFileDurably(directory, "no directory"));
    EXPECT_EQ(Try(Claim("H\\A", "O\\B")), ClaimAnswer::Failed);
    EXPECT_NE(holder, "");
    RemoveFile(directory);
}

// ---- runs under locks ---------------------------------------------------------------------------------

class Locks : public Dispatch {
protected:
    CTarnSetting PairOf(IMAPIFolder* source, IMAPIFolder* target, ULONG flags = 0) {
        CTarnSetting setting;
        setting.m_sourceKey = KeyOfFolder(IMAPIFolderPtr(source));
        setting.m_targetKey = KeyOfFolder(IMAPIFolderPtr(target));
        setting.m_flags = flags;
        return setting;
    }
    LockAnswer Hold(CPairLock& lock, IMAPIFolder* source, IMAPIFolder* target, ULONG flags = 0) {
        return lock.Take(mapi, PairOf(source, target, flags), {}, nullptr, holder);
    }
    std::string holder;
};

TEST_F(Locks, EveryRunOfTheDispatchAsksForItsTree) {
    const auto sub = MakeFolder(left.Get(), "Sub");
    const auto deep = MakeFolder(sub.Get(), "Deep");
    const auto elsewhere = MakeFolder(right.Get(), "Elsewhere");
    SavedMessage(left.Get(), "A");
    AddPair(SYNC_SUBFOLDERS);
    CPairLock lock;
    ASSERT_EQ(Hold(lock, deep.Get(), elsewhere.Get()), LockAnswer::Taken);
    CSyncProgressHidden silent;
    EXPECT_EQ(RunAll(silent).pairsHeld, 1u);
    CSyncProgressInteraktiv visible;
    EXPECT_EQ(RunAll(visible).pairsHeld, 1u);
    ASSERT_EQ(host.ends.size(), 2u);
    EXPECT_EQ(host.ends[1].lock, LockAnswer::Busy);
    EXPECT_EQ(host.ends[1].holder.find("process "), 0u);
    EXPECT_TRUE(host.pairs.empty()) << "a pair that another run has is not begun";
    EXPECT_EQ(SubjectsIn(right.Get()), "");

    CSyncFolder one;
    CTarnSetting setting = settings().At(0);
    PrepareFolder(one, setting, mapi, nullptr);
    RunOneWorker(one);
    EXPECT_EQ(one.m_outcome.pairsHeld, 1u);

    lock.Release();
    EXPECT_EQ(RunAll(silent).pairsRun, 1u);
    EXPECT_EQ(SubjectsIn(right.Get()), "A");
}

TEST_F(Locks, AFolderOfTheTreeThatAnotherRunHasIsLeftOutAndComesWithTheNextRun) {
    const auto sub = MakeFolder(left.Get(), "Sub");
    const auto other = MakeFolder(right.Get(), "Sub");
    const auto elsewhere = MakeFolder(OpenReceiveFolder(rightStore.Get()).Get(), "Elsewhere");
    SavedMessage(left.Get(), "A");
    SavedMessage(sub.Get(), "B");
    AddPair(SYNC_SUBFOLDERS);
    // As if it had been moved here since both runs began: nothing says that it lies in the tree.
    CFolderClaims moved(JoinPath(DataDirectory(), "locks"));
    const CClaim claim{{CClaimedFolder{BytesOf(sub.Get(), PR_ENTRYID), {}},
                        CClaimedFolder{BytesOf(elsewhere.Get(), PR_ENTRYID), {}}},
                       false};
    ASSERT_EQ(moved.Take(claim, holder), ClaimAnswer::Taken);
    CSyncProgressHidden progress;
    const CSyncOutcome outcome = RunAll(progress);
    EXPECT_EQ(outcome.phasesFailed, 1u);
    EXPECT_EQ(SubjectsIn(right.Get()), "A");
    EXPECT_EQ(SubjectsIn(other.Get()), "");
    ASSERT_EQ(shown.messages.size(), 1u);
    EXPECT_NE(shown.messages[0].text.find("\"Sub\" is left out"), std::string::npos)
        << shown.messages[0].text;
    moved.Release();
    EXPECT_EQ(RunAll(progress).phasesFailed, 0u);
    EXPECT_EQ(SubjectsIn(other.Get()), "B");
}

TEST_F(Locks, WaitingEndsWithItsTimeWithTheLockAndWithCancel) {
    const auto sub = MakeFolder(left.Get(), "Sub");
    const auto elsewhere = MakeFolder(right.Get(), "Elsewhere");
    CPairLock held, waits;
    ASSERT_EQ(Hold(held, left.Get(), right.Get(), SYNC_SUBFOLDERS), LockAnswer::Taken);
    const CTarnSetting below = PairOf(sub.Get(), elsewhere.Get());
    const CTarnSetting same = PairOf(left.Get(), right.Get());
    {
        CClockOverride clock(UtcNow());
        const DWORD begin = TickCount();
        int told = 0;
        const CPatience patience{60, 5, [&](const std::string&) { ++told; }};
        EXPECT_EQ(waits.Take(mapi, below, patience, nullptr, holder), LockAnswer::Busy);
        EXPECT_NEAR(TickCount() - begin, 5000, 100) << "another pair: the time for those";
        EXPECT_EQ(waits.Take(mapi, same, patience, nullptr, holder), LockAnswer::Busy);
        EXPECT_NEAR(TickCount() - begin, 65000, 200);
        EXPECT_EQ(told, 2);
    }
    class CCancelled : public CSyncProgressHidden {
    public:
        int IsCancelled() override { return 1; }
    } cancelled;
    const CPatience endless{CPatience::kForEver, CPatience::kForEver, {}};
    EXPECT_EQ(waits.Take(mapi, same, endless, &cancelled, holder), LockAnswer::Cancelled);
    // Waiting ends as the tree is let go, and finds the folder where it has been moved to by then.
    std::thread releases([&] {
        SleepMs(300);
        held.Release();
    });
    EXPECT_EQ(waits.Take(mapi, below, endless, nullptr, holder), LockAnswer::Taken);
    releases.join();
    EXPECT_EQ(Hold(held, left.Get(), right.Get()), LockAnswer::Taken)
        << "the tree is free, the folder below is not";
    EXPECT_EQ(Hold(held, left.Get(), right.Get(), SYNC_SUBFOLDERS), LockAnswer::Busy);
}

}  // namespace
