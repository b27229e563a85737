// Runs that end before their time, several in a row, over folders that hold copies: items of one search key,
// equal ones and variants. What the runs after them make of it is what a run left alone makes.
//
// A process dies at any call on a store, with what each of the two stores had gathered written or lost.
// VELLUM_KILLS says how many die in each case, VELLUM_KILL_SEED tells the stories of one seed alone.
#include "../FaultsTrial.h"

#include <support/AnotherProcess.h>

#include <algorithm>
#include <random>
#include <set>
#include <sstream>

namespace {
constexpr unsigned kKills = 400;
constexpr unsigned kMostKillsInARow = 4;

struct CCase {
    const char* name;
    ULONG flags;        // beside those of a pair that runs both ways with deletions
    ULONG without = 0;  // those of them that are left out
    const char* query = "";
    bool first = false;    // the pair never ran before
    bool cancels = false;  // the process does not die but is told to stop
};

class CDice {
public:
    explicit CDice(unsigned seed) : m_engine(seed) {}
    unsigned Below(unsigned limit) { return static_cast<unsigned>(m_engine() % limit); }
    bool OneIn(unsigned chances) { return Below(chances) == 0; }

private:
    std::mt19937 m_engine;
};

using Items = std::multiset<std::string>;

Items ItemsOf(const std::vector<CSeenItem>& seen) {
    Items items;
    for (const CSeenItem& item : seen)
        items.insert(item.subject + "|" + item.body);
    return items;
}

std::string Difference(const Items& wanted, const Items& found) {
    std::ostringstream text;
    Items missing, surplus;
    std::set_difference(wanted.begin(), wanted.end(), found.begin(), found.end(),
                        std::inserter(missing, missing.end()));
    std::set_difference(found.begin(), found.end(), wanted.begin(), wanted.end(),
                        std::inserter(surplus, surplus.end()));
    for (const std::string& item : missing)
        text << "  missing: " << item << "\n";
    for (const std::string& item : surplus)
        text << "  too many: " << item << "\n";
    return text.str();
}

// How a process comes to its end.
struct CDeath {
    bool inSource = true;  // at a call on this store
    ULONG call = 1;
    bool flushSource = false;  // written before it
    bool flushTarget = false;
};

class CCancelAtPoll : public CSyncProgressHidden {
public:
    explicit CCancelAtPoll(unsigned poll) : m_poll(poll) {}
    int IsCancelled() override { return ++m_polls >= m_poll; }
    unsigned Polls() const { return m_polls; }

private:
    const unsigned m_poll;
    unsigned m_polls = 0;
};

// What the two folders hold, and the copies of losers of conflicts around them.
struct CState {
    Items source, target;
    std::string conflicts;
};

class InterruptionTest : public FaultsTrial {
protected:
    const CCase& Case() const { return *m_case; }
    void Play(const CCase& which);

private:
    void PlayOne(unsigned seed);
    void Draw(StorySide& side, unsigned originals, unsigned copies);
    void Act(StorySide& side, unsigned acts, std::set<std::string>& touched);
    std::string NewText() { return "text " + std::to_string(++m_texts); }
    CState Settled();
    CState Look();
    bool DiesOn(const CDeath& death);
    static void Die(void* trial);
    std::string DieSomehow();
    std::string CancelSomewhere();
    void Flush(IMsgStore* store);

    const CCase* m_case = nullptr;
    std::unique_ptr<CDice> m_dice;
    CDeath m_death;
    unsigned m_texts = 0;
    ULONG m_sourceCalls = 0, m_targetCalls = 0;
    unsigned m_polls = 0;
    unsigned m_kills = 0;
    unsigned m_carried = 0;
};

// --- what people do ------------------------------------------------------------------------------------

std::vector<std::string> EntryIds(StorySide& side) {
    std::vector<std::string> ids;
    const TestRows rows = ContentsOf(side.Folder(), {PR_ENTRYID});
    for (ULONG row = 0; row < rows.Count(); ++row)
        ids.push_back(rows.Bytes(row, 0));
    std::sort(ids.begin(), ids.end());
    return ids;
}

void Edit(StorySide& side, const std::string& id, const std::string& body, const std::string& subject) {
    const TestRef<IMessage> message = OpenTestMessage(side.Store(), id);
    EXPECT_EQ(SetText(message.Get(), PR_BODY_A, body), S_OK);
    if (!subject.empty()) {
        EXPECT_EQ(SetText(message.Get(), PR_SUBJECT_A, subject), S_OK);
    }
    EXPECT_EQ(message->SaveChanges(0), S_OK);
}

// The entry ID of the copy.
std::string CopyWithin(StorySide& side, const std::string& id) {
    const std::vector<std::string> before = EntryIds(side);
    const std::vector<std::string> ids = {id};
    TestEntryList list(ids);
    EXPECT_EQ(side.Folder()->CopyMessages(list.Get(), nullptr, side.Folder(), 0, nullptr, 0), S_OK);
    for (const std::string& now : EntryIds(side))
        if (!std::binary_search(before.begin(), before.end(), now)) return now;
    ADD_FAILURE() << "no copy";
    return id;
}

void InterruptionTest::Draw(StorySide& side, unsigned originals, unsigned copies) {
    for (unsigned i = 0; i < originals; ++i) {
        const std::string body = NewText();
        SavedMessage(side.Folder(), "item " + std::to_string(i), body);
    }
    for (unsigned i = 0; i < copies; ++i) {
        const std::vector<std::string> ids = EntryIds(side);
        const std::string copy = CopyWithin(side, ids[m_dice->Below(static_cast<unsigned>(ids.size()))]);
        if (m_dice->OneIn(3)) Edit(side, copy, NewText(), m_dice->OneIn(2) ? "variant" : "");
    }
}

// No item is touched on both sides: who wins is another matter.
void InterruptionTest::Act(StorySide& side, unsigned acts, std::set<std::string>& touched) {
    for (unsigned i = 0; i < acts; ++i) {
        const std::vector<std::string> ids = EntryIds(side);
        const std::string id = ids[m_dice->Below(static_cast<unsigned>(ids.size()))];
        const unsigned what = m_dice->Below(6);
        if (what == 0) {
            SavedMessage(side.Folder(), "new", NewText());
            continue;
        }
        const TestRef<IMessage> message = OpenTestMessage(side.Store(), id);
        const std::string syncId = TextOf(message.Get(), NamedTag(message.Get(), L"LarchID", PT_STRING8));
        if (!syncId.empty() && !touched.insert(syncId).second) continue;
        if (what < 3) {
            Edit(side, id, NewText(), "");
        } else if (what == 3) {
            const std::vector<std::string> one = {id};
            TestEntryList list(one);
            EXPECT_EQ(side.Folder()->DeleteMessages(list.Get(), 0, nullptr, 0), S_OK);
        } else {
            const std::string copy = CopyWithin(side, id);
            if (what == 5) Edit(side, copy, NewText(), "");
        }
    }
}

// --- runs ------------------------------------------------------------------------------------------------

CState InterruptionTest::Look() {
    CState state;
    state.source = ItemsOf(SeenIn(Source().Store(), Source().Folder()));
    state.target = ItemsOf(SeenIn(Target().Store(), Target().Folder()));
    state.conflicts = Source().ConflictCopies() + "|" + Target().ConflictCopies();
    return state;
}

// After a run that nothing disturbs, and one that has nothing left to do.
CState InterruptionTest::Settled() {
    Run();
    EXPECT_EQ(outcome.rowsFailed + outcome.phasesFailed, 0u);
    const CState state = Look();
    ExpectNothingMoves();
    return state;
}

void InterruptionTest::Flush(IMsgStore* store) {
    TestRef<IStoreBatch> batch;
    EXPECT_EQ(store->QueryInterface(IID_IStoreBatch, reinterpret_cast<void**>(batch.Out())), S_OK);
    batch->FlushBatch();
}

void InterruptionTest::Die(void* trial) {
    auto* self = static_cast<InterruptionTest*>(trial);
    if (self->m_death.flushSource) self->Flush(self->Source().Store());
    if (self->m_death.flushTarget) self->Flush(self->Target().Store());
    LeaveProcess();
}

// False if the run made fewer calls than that. The stores are closed before and after.
bool InterruptionTest::DiesOn(const CDeath& death) {
    return DiesInAnotherProcess([&] {
        m_death = death;
        EnterStores();
        FaultsOf((death.inSource ? Source() : Target()).Store())->SetInterruption(death.call, Die, this);
        Run();
    });
}

std::string InterruptionTest::DieSomehow() {
    CDeath death;
    death.inSource = m_dice->OneIn(2);
    death.call = 1 + m_dice->Below(death.inSource ? m_sourceCalls : m_targetCalls);
    death.flushSource = m_dice->OneIn(2);
    death.flushTarget = m_dice->OneIn(2);
    if (DiesOn(death)) ++m_kills;
    return "  dies at call " + std::to_string(death.call) + " on the " +
           (death.inSource ? "source" : "target") + (death.flushSource ? ", source written" : "") +
           (death.flushTarget ? ", target written" : "") + "\n";
}

std::string InterruptionTest::CancelSomewhere() {
    EnterStores();
    CCancelAtPoll cancel(1 + m_dice->Below(m_polls));
    progress = &cancel;
    Run();
    progress = nullptr;
    if (outcome.cancelled) ++m_kills;
    LeaveStores();
    return "  cancelled at poll " + std::to_string(cancel.Polls()) + "\n";
}

void InterruptionTest::PlayOne(unsigned seed) {
    m_dice = std::make_unique<CDice>(seed);
    m_texts = 0;
    const unsigned many = Case().cancels ? 4 : 1;  // a poll is for eight items
    Draw(Source(), 8 + m_dice->Below(8), many * (10 + m_dice->Below(30)));
    if (m_dice->OneIn(2)) Draw(Target(), 2, m_dice->Below(8));
    if (!Case().first) {
        Run();
        Run();
        std::set<std::string> touched;
        Act(Source(), many * (4 + m_dice->Below(12)), touched);
        Act(Target(), many * (4 + m_dice->Below(12)), touched);
    }
    setting.m_flags |= Case().flags;
    LeaveStores();
    Disk().Keep();

    EnterStores();
    FaultsOf(Source().Store())->SetFault(0, S_OK, FALSE);
    FaultsOf(Target().Store())->SetFault(0, S_OK, FALSE);
    CCancelAtPoll never(~0u);
    progress = &never;
    Run();
    progress = nullptr;
    m_polls = never.Polls();
    m_sourceCalls = FaultsOf(Source().Store())->CallCount();
    m_targetCalls = FaultsOf(Target().Store())->CallCount();
    m_carried += outcome.sourceChanged + outcome.targetChanged;
    const CState wanted = Settled();

    for (unsigned story = 0; story < 8 && !HasFailure(); ++story) {
        LeaveStores();
        Disk().BringBack();
        std::string told = "seed " + std::to_string(seed) + " story " + std::to_string(story) + "\n";
        const unsigned inARow = 1 + m_dice->Below(kMostKillsInARow);
        for (unsigned i = 0; i < inARow; ++i)
            told += Case().cancels ? CancelSomewhere() : DieSomehow();
        EnterStores();
        const CState found = Settled();
        EXPECT_EQ(Difference(wanted.source, found.source), "") << "in the source, " << told;
        EXPECT_EQ(Difference(wanted.target, found.target), "") << "in the target, " << told;
        EXPECT_EQ(wanted.conflicts, found.conflicts) << told;
    }
}

void InterruptionTest::Play(const CCase& which) {
    m_case = &which;
    const unsigned wanted = NumberOf("VELLUM_KILLS", kKills / Stride());
    const unsigned only = NumberOf("VELLUM_KILL_SEED", 0);
    for (unsigned seed = only ? only : 1; m_kills < wanted && !HasFailure(); ++seed) {
        expectMessages = false;
        setting.m_flags &= ~which.without;
        setting.m_query = which.query;
        PlayOne(seed);
        TearDown();
        SetUp();
        if (only) break;
    }
    std::printf("%s: %u runs ended early, %u items carried by runs that did not\n", which.name, m_kills,
                m_carried);
    if (!only && !HasFailure()) {
        EXPECT_GE(m_kills, wanted);
        EXPECT_GT(m_carried, 20u);
    }
    m_kills = m_carried = 0;
}
}  // namespace

INSTANTIATE_TEST_SUITE_P(Interruptions, InterruptionTest, ::testing::Bool(), [](const auto& which) {
    return std::string(which.param ? "RightIsSource" : "LeftIsSource");
});

TEST_P(InterruptionTest, FirstRunCarriesEachCopyOnce) {
    Play({"first run", 0, 0, "", true});
}

TEST_P(InterruptionTest, LaterRunsEndAsIfNobodyHadDied) {
    Play({"later run", 0});
}

TEST_P(InterruptionTest, RenewedItemsAreThereOnce) {
    Play({"renewing", SYNC_ALWAYS_RENEW});
}

TEST_P(InterruptionTest, OneWayPairs) {
    Play({"one way", 0, SYNC_FROM_TARGET, "", true});
}

TEST_P(InterruptionTest, NewOnly) {
    Play({"new only", SYNC_NEW_ONLY, SYNC_DELETE_IN_TARGET});
}

TEST_P(InterruptionTest, Queries) {
    Play({"query", 0, 0, "not Subject=\"variant\"", true});
    Play({"query", 0, 0, "not Subject=\"variant\""});
}

TEST_P(InterruptionTest, CancelledRuns) {
    Play({"cancelled first run", 0, 0, "", true, true});
    Play({"cancelled later run", 0, 0, "", false, true});
}
