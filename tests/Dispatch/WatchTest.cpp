// Pairs that run by themselves: what is heard of, what is tried again, what the list has become meanwhile.
#include <Platform/Clock.h>
#include <Tarn/Dispatch/TimedSync.h>
#include <Tarn/Dispatch/WatchLoop.h>
#include <Tarn/Settings/SettingsStamp.h>

#include <atomic>
#include <functional>
#include <stdexcept>

#include "DispatchFixture.h"

namespace {

// Runs nothing; says what the test wants and notes what it is told.
class CPlayedHost : public IWatchHost {
public:
    std::function<bool()> wantsEnd;
    std::function<CWatchedRun()> run = [] { return CWatchedRun{}; };
    std::vector<CTarnSetting> list;
    bool hasNoList = false;
    std::vector<std::string> told;
    std::vector<DWORD> runs;  // when

    bool WantsEnd() override { return wantsEnd(); }
    std::vector<CTarnSetting> WatchedNow() override {
        if (hasNoList) throw std::runtime_error("no list");
        return list;
    }
    CWatchedRun Run(const CTarnSetting&) override {
        runs.push_back(TickCount());
        return run();
    }
    void OnBegin(std::size_t pairs) override { told.push_back("begin " + std::to_string(pairs)); }
    void OnDeaf(const CTarnSetting&, const CMAPIException&) override { told.push_back("deaf"); }
    void OnAdded(const CTarnSetting&) override { told.push_back("added"); }
    void OnChanged(const CTarnSetting&) override { told.push_back("changed"); }
    void OnRemoved(const CTarnSetting&) override { told.push_back("removed"); }
};

using Texts = std::vector<std::string>;

class Watching : public Dispatch {
protected:
    void Loop(CPlayedHost& played) {
        AddPair();
        played.list = {settings().At(0)};
        WatchLoop(mapi, played, played.list);
    }
};

TEST_F(Watching, AFailedRunIsTriedAgainLaterAndLaterThoughNothingChanges) {
    CClockOverride clock(UtcNow());
    const DWORD begin = TickCount();
    CPlayedHost played;
    played.run = [] { return CWatchedRun{true, true, false}; };
    played.wantsEnd = [&] { return TickCount() - begin > 6 * 3600 * 1000u; };
    Loop(played);
    ASSERT_GT(played.runs.size(), 25u) << "at least every quarter of an hour";
    ASSERT_LT(played.runs.size(), 45u);
    for (size_t i = 2; i < played.runs.size(); ++i)
        EXPECT_GE(played.runs[i] - played.runs[i - 1] + 100, played.runs[i - 1] - played.runs[i - 2]) << i;
    EXPECT_LT(played.runs[1] - played.runs[0], 1000u);

    CPlayedHost stopped;
    stopped.run = [] { return CWatchedRun{true, false, false}; };
    stopped.wantsEnd = [&] { return TickCount() - begin > 7 * 3600 * 1000u; };
    Loop(stopped);
    EXPECT_EQ(stopped.runs.size(), 1u) << "what a guard stopped waits for a change";
}

TEST_F(Watching, TheListIsFollowedAndAListThatCannotBeReadEndsNothing) {
    CClockOverride clock(UtcNow());
    AddPair();
    CTarnSetting first = settings().At(0), second = first;
    std::swap(second.m_sourceKey, second.m_targetKey);
    CPlayedHost played;
    played.list = {first};
    int step = 0;
    const DWORD begin = TickCount();
    played.wantsEnd = [&] {
        const int now = static_cast<int>((TickCount() - begin) / 10000);
        if (now == step) return false;
        step = now;
        if (step == 1) played.list = {first, second};
        if (step == 2)
            first.m_query = "Subject like 'A'", first.m_groupId = "g", played.list = {first, second};
        if (step == 3) played.hasNoList = true;
        if (step == 4) played.hasNoList = false, played.list = {second};
        if (step == 5) played.list = {};
        if (step == 6) played.list = {first};
        return step == 7;
    };
    WatchLoop(mapi, played, played.list);
    EXPECT_EQ(played.told, (Texts{"begin 1", "added", "changed", "removed", "removed", "added"}));
    EXPECT_EQ(played.runs.size(), 4u) << "each once as it comes or has changed";
}

// The person takes the pair from the list and clears its folder at once.
TEST_F(Watching, APairIsNotRunOnceMoreAfterItHasLeftTheList) {
    AddPair();
    CPlayedHost played;
    played.list = {settings().At(0)};
    TestRef<IMessage> item;
    DWORD end = 0;
    played.wantsEnd = [&] {
        if (played.runs.empty() || end != 0) return end != 0 && TickCount() > end;
        played.list.clear();
        item = SavedMessage(right.Get(), "A");
        end = TickCount() + 3000;
        return false;
    };
    WatchLoop(mapi, played, {settings().At(0)});
    EXPECT_EQ(played.told, (Texts{"begin 1", "removed"}));
    EXPECT_EQ(played.runs.size(), 1u);
}

TEST_F(Watching, APairThatCannotBeHeardIsTriedUntilItCan) {
    AddPair();
    CTarnSetting pair = settings().At(0);
    TestRef<IStoreFaults> faults;
    ASSERT_EQ(rightStore->QueryInterface(IID_IStoreFaults, reinterpret_cast<void**>(faults.Out())), S_OK);
    faults->SetFault(1, MAPI_E_NETWORK_ERROR, TRUE);
    CPlayedHost played;
    played.list = {pair};
    const DWORD begin = TickCount();
    bool isBack = false;
    TestRef<IMessage> item;
    played.wantsEnd = [&] {
        if (!isBack && TickCount() - begin > 300) {
            isBack = true;
            faults->SetFault(0, S_OK, FALSE);
        }
        if (played.runs.size() == 2 && !item) item = SavedMessage(right.Get(), "A");
        return played.runs.size() == 3 || TickCount() - begin > 20000;
    };
    WatchLoop(mapi, played, played.list);
    EXPECT_EQ(played.told, (Texts{"deaf", "begin 1"}));
    EXPECT_EQ(played.runs.size(), 3u) << "at the beginning, once it is heard again, and for the change";
}

// Somebody removes a folder of the tree at every moment of its reading in turn. Whatever is read, what
// happens in the others is heard, and so is what happens in a folder that comes.
TEST_F(Watching, ATreeStaysHeardWhateverGoesWhileItIsRead) {
    AddPair(SYNC_SUBFOLDERS);
    TestRef<IStoreFaults> faults;
    ASSERT_EQ(leftStore->QueryInterface(IID_IStoreFaults, reinterpret_cast<void**>(faults.Out())), S_OK);
    const auto stays = MakeFolder(left.Get(), "Stays");
    struct Removal {
        IMAPIFolder* parent;
        std::string id;
        bool done;
    };
    unsigned moments = 0, met = 0;
    std::atomic<int> changes{0};
    const auto heard = [&] {
        for (int i = 0; i < 500 && changes == 0; ++i)
            SleepMs(10);
        return changes.exchange(0) > 0;
    };
    for (bool done = true; done; ++moments) {
        const auto goes = MakeFolder(left.Get(), "Goes");
        const auto below = MakeFolder(goes.Get(), "Below");
        Removal removal{left.Get(), BytesOf(goes.Get(), PR_ENTRYID), false};
        faults->SetInterruption(
            moments + 1,
            [](void* context) {
                auto& it = *static_cast<Removal*>(context);
                it.done = true;
                it.parent->DeleteFolder(static_cast<ULONG>(it.id.size()),
                                        reinterpret_cast<ENTRYID*>(it.id.data()), 0, nullptr,
                                        DEL_MESSAGES | DEL_FOLDERS);
            },
            &removal);
        CPermanentSynchronization watcher(settings().At(0));
        ASSERT_NO_THROW(watcher.Watch(mapi, [&] { ++changes; })) << "moment " << moments;
        faults->SetInterruption(0, nullptr, nullptr);
        done = removal.done;
        SleepMs(60);
        met += watcher.IsOutdated() ? 1 : 0;
        changes = 0;
        SavedMessage(stays.Get(), "A");
        ASSERT_TRUE(heard()) << "moment " << moments;
    }
    EXPECT_GT(moments, 10u);
    EXPECT_GT(met, 3u);
}

TEST_F(Watching, WhatComesBetweenListingAndHearingIsAChangeOfTheTree) {
    AddPair(SYNC_SUBFOLDERS);
    TestRef<IStoreFaults> faults;
    ASSERT_EQ(leftStore->QueryInterface(IID_IStoreFaults, reinterpret_cast<void**>(faults.Out())), S_OK);
    unsigned moments = 0;
    for (bool done = true; done; ++moments) {
        struct Arrival {
            IMAPIFolder* parent;
            std::string name;
            bool done;
        } arrival{left.Get(), "New " + std::to_string(moments), false};
        faults->SetInterruption(
            moments + 1,
            [](void* context) {
                auto& it = *static_cast<Arrival*>(context);
                it.done = true;
                MakeFolder(it.parent, it.name);
            },
            &arrival);
        std::atomic<int> changes{0};
        CPermanentSynchronization watcher(settings().At(0));
        watcher.Watch(mapi, [&] { ++changes; });
        faults->SetInterruption(0, nullptr, nullptr);
        done = arrival.done;
        if (!done) break;
        SleepMs(150);
        if (watcher.IsOutdated()) watcher.Watch(mapi, [&] { ++changes; });
        SleepMs(50);
        changes = 0;
        const auto folder = MakeFolder(left.Get(), arrival.name);
        SavedMessage(folder.Get(), "A");
        for (int i = 0; i < 300 && changes == 0; ++i)
            SleepMs(10);
        ASSERT_GT(changes, 0) << "moment " << moments;
        std::string id = BytesOf(folder.Get(), PR_ENTRYID);
        left->DeleteFolder(static_cast<ULONG>(id.size()), reinterpret_cast<ENTRYID*>(id.data()), 0, nullptr,
                           DEL_MESSAGES | DEL_FOLDERS);
    }
    EXPECT_GT(moments, 5u);
}

TEST_F(Watching, TheStampOfTheListTellsOfEverySave) {
    std::vector<std::string> stamps{SettingsStamp(mapi)};
    EXPECT_EQ(SettingsStamp(mapi), stamps[0]);
    AddPair();
    settings().At(0).m_targetPath = "Right";
    for (int i = 0; i < 3; ++i) {
        settings().At(0).m_groupId = "Name " + std::to_string(i);
        ASSERT_TRUE(settings().Save(mapi));
        const std::string stamp = SettingsStamp(mapi);
        EXPECT_NE(stamp, stamps.back());
        stamps.push_back(stamp);
    }
}

// ---- timer ----------------------------------------------------------------------------------------------

TEST_F(Watching, ABadTickEndsNoTimer) {
    CClockOverride clock(UtcNow());
    const DWORD begin = TickCount();
    std::vector<DWORD> ticks;
    int failures = 0;
    CTimerTerms terms;
    terms.seconds = 60;
    terms.times = 4;
    terms.run = [&](const CMapiSession& given) {
        EXPECT_TRUE(given.IsValid());
        ticks.push_back((TickCount() - begin) / 1000);
        if (ticks.size() == 2) throw CMAPIException(MAPI_E_NETWORK_ERROR, "test", nullptr);
        if (ticks.size() == 3) throw std::runtime_error("test");
    };
    terms.onFailure = [&] { ++failures; };
    EXPECT_EQ(TimerLoop([&] { return mapi; }, terms), 0);
    EXPECT_EQ(ticks, (std::vector<DWORD>{60, 120, 180, 240}));
    EXPECT_EQ(failures, 2);

    terms.onFailure = [] { throw std::runtime_error("nobody hears it"); };
    terms.beginsAtOnce = true;
    ticks = {0};
    TimerLoop([&] { return mapi; }, terms);
    EXPECT_EQ(ticks.size(), 5u);

    terms.wantsEnd = [&] { return TickCount() - begin > 700000; };
    terms.seconds = 86400;
    terms.times = 0;
    TimerLoop([&] { return mapi; }, terms);
    EXPECT_LT(TickCount() - begin, 705000u) << "the wish to end cuts a day short";
    TarnContext().Logoff();
}

TEST_F(Watching, TheTimerOfTheSettingsRunsAllPairs) {
    AddPair();
    SavedMessage(left.Get(), "A");
    settings().m_loaded = true;
    settings().m_timer = true;
    settings().m_seconds = 0;
    int ticks = 0;
    CTimerTerms terms;
    terms.times = 1;
    EXPECT_EQ(TimerLoop([&] { return ++ticks, mapi; }, terms), 0);
    EXPECT_EQ(ticks, 1);
    EXPECT_EQ(SubjectsIn(right.Get()), "A");
    EXPECT_FALSE(g_timerRunning);
    settings().m_timer = false;
    settings().m_loaded = false;
    TarnContext().Logoff();
}

}  // namespace
