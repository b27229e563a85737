// Random histories of a pair against a model of what must come of them. Each has a seed that repeats it:
// VELLUM_HISTORY_SEED runs that one alone, VELLUM_HISTORIES says how many there are of each kind.
#include "Dice.h"
#include "FaultsTrial.h"
#include "HistoryModel.h"

#include <cstdlib>
#include <sstream>

namespace {
constexpr unsigned kHistories = 1700;  // of each kind and direction: 20,400

// Behind each text stands what some stores write in another way; it tells nothing.
constexpr char kRest[] = " \t\nand so on  \n";

std::string Plain(const std::string& body) {
    return body.substr(0, body.find_first_of(" \r\n"));
}

struct Kind {
    bool directions = false;  // and deletions, switched between runs
    bool faults = false;
    bool habits = false;   // of each store
    bool options = false;  // the same for a history: renewing, new items only, queries
};

class HistoryTest : public FaultsTrial {
protected:
    void Play(const Kind& kind);

private:
    void PlayOne(const Kind& kind, unsigned seed);
    void Act();
    void RunAndCompare();
    void RunDisturbed();
    void SwitchDirections();
    void TakeOptions();
    ULONG DrawHabits();
    void DrawOptions();
    std::string NewName(const std::string& like);

    StorySide& Side(bool inSource) { return inSource ? Source() : Target(); }
    std::string NewText() { return "text" + std::to_string(++m_texts); }
    std::string PickItem(bool inSource);

    void Create(bool inSource);
    void Change(const std::string& name, bool inSource);
    bool MayLeave(const CModelItem& item) const;
    void Remove(const std::string& name, bool inSource);
    void Copy(const std::string& name, bool inSource);
    void MoveOut(const std::string& name, bool inSource);
    void MoveBack(bool inSource);

    std::map<std::string, std::string> Seen(bool inSource);
    void ExpectKept();
    void Tell(const std::string& what) { m_story << "  " << what << "\n"; }

    std::unique_ptr<CDice> m_dice;
    CHistoryModel m_model;
    CModelOptions m_options;
    ULONG m_fixed = 0;                      // options of the whole history
    bool m_mixed = false;                   // some items are left out by the query, or by being private
    std::map<std::string, bool> m_outside;  // items beside their folder; true: beside the source
    std::ostringstream m_story;
    bool m_disturbed = false;
    unsigned m_names = 0;
    unsigned m_texts = 0;
    unsigned m_fromNotes = 0;
};

std::string HistoryTest::PickItem(bool inSource) {
    const auto contents = m_model.Contents(inSource);
    if (contents.empty()) return {};
    auto at = contents.begin();
    std::advance(at, m_dice->Below(static_cast<unsigned>(contents.size())));
    return at->first;
}

std::string HistoryTest::NewName(const std::string& like) {
    return like + std::to_string(++m_names);
}

// --- what people do ------------------------------------------------------------------------------------

void HistoryTest::Create(bool inSource) {
    const bool leftOut = m_mixed && m_dice->OneIn(3);
    const std::string name = NewName(leftOut && !setting.m_query.empty() ? "note" : "item");
    const std::string body = NewText();
    Tell("create " + name + " in " + (inSource ? "source: " : "target: ") + body +
         (leftOut ? ", left out" : ""));
    NextMoment();
    const auto message = NewMessage(Side(inSource).Folder(), name, body + kRest);
    if (leftOut && (m_fixed & SYNC_SKIP_PRIVATE)) SetLong(message.Get(), PR_SENSITIVITY, SENSITIVITY_PRIVATE);
    EXPECT_EQ(message->SaveChanges(0), S_OK);
    NextMoment();
    m_model.Create(name, inSource, body);
    m_model.items[name].ignored = leftOut;
}

void HistoryTest::Change(const std::string& name, bool inSource) {
    const std::string body = NewText();
    Tell("change " + name + " in " + (inSource ? "source: " : "target: ") + body);
    Side(inSource).Changes(name, body + kRest)();
    m_model.Change(name, inSource, body);
}

// While two items of one search key are not both in both folders, a key that occurs once in each folder may
// stand for either, and the one may be taken for the other.
bool HistoryTest::MayLeave(const CModelItem& item) const {
    if (item.kin.empty()) return true;
    const CModelItem& kin = m_model.items.at(item.kin);
    return kin.Nowhere() || (kin.OnBothSides() && !kin.AwaitsRun());
}

void HistoryTest::Remove(const std::string& name, bool inSource) {
    if (!MayLeave(m_model.items[name])) return;
    Tell("delete " + name + (inSource ? " in source" : " in target"));
    Side(inSource).Deletes(name)();
    m_model.Remove(name, inSource);
}

// A copy bears its original's search key, and only one item of a key can be told from the others by it.
void HistoryTest::Copy(const std::string& name, bool inSource) {
    CModelItem& item = m_model.items[name];
    if (item.branched || !item.OnBothSides() || !item.stamped) return;
    const std::string copy = NewName("item");
    const std::string body = NewText();
    Tell("copy " + name + " to " + copy + (inSource ? " in source: " : " in target: ") + body);
    Side(inSource).CopiesWithin(name)();
    Side(inSource).RenamesNewest(name, copy)();
    Side(inSource).Changes(copy, body + kRest)();
    m_model.Create(copy, inSource, body, true);
    m_model.items[copy].branched = m_model.items[name].branched = true;
    m_model.items[copy].kin = name;
    m_model.items[name].kin = copy;
}

void HistoryTest::MoveOut(const std::string& name, bool inSource) {
    CModelItem& item = m_model.items[name];
    if (item.branched || !item.OnBothSides() || !item.stamped) return;
    Tell("move out " + name + (inSource ? " of source" : " of target"));
    Side(inSource).MovesOut(name)();
    m_model.Remove(name, inSource);
    item.branched = true;
    m_outside[name] = inSource;
}

// Only what both sides have forgotten: anything else is a second item beside the first. Most stores leave the
// item the time that it had, and an incremental pair then takes it for done.
void HistoryTest::MoveBack(bool inSource) {
    if (m_fixed & SYNC_NEW_ONLY) return;
    for (auto at = m_outside.begin(); at != m_outside.end(); ++at) {
        const std::string name = at->first;
        CModelItem& item = m_model.items[name];
        if (at->second != inSource || item.source.there || item.target.there) continue;
        if (item.source.pending != Pending::None || item.target.pending != Pending::None) continue;
        Tell("move back " + name + (inSource ? " to source" : " to target"));
        Side(inSource).MovesIn(name)();
        m_model.Create(name, inSource, Plain(Side(inSource).BodyOf(name)), true);
        m_outside.erase(at);
        return;
    }
}

void HistoryTest::Act() {
    const bool inSource = m_dice->OneIn(2);
    const unsigned what = m_dice->Below(12);
    if (what < 3) return Create(inSource);
    if (what == 3) return MoveBack(inSource);
    const std::string name = PickItem(inSource);
    if (name.empty()) return Create(inSource);
    if (what < 8) return Change(name, inSource);
    if (what < 10) return Remove(name, inSource);
    if (what == 10) return Copy(name, inSource);
    MoveOut(name, inSource);
}

// --- what runs make of it --------------------------------------------------------------------------------

std::map<std::string, std::string> HistoryTest::Seen(bool inSource) {
    std::map<std::string, std::string> seen;
    for (const CSeenItem& item : SeenIn(Side(inSource).Store(), Side(inSource).Folder())) {
        EXPECT_TRUE(seen.emplace(item.subject, Plain(item.body)).second)
            << item.subject << " is there twice in " << (inSource ? "source" : "target");
    }
    return seen;
}

void HistoryTest::ExpectKept() {
    std::set<std::string> found;
    for (const bool inSource : {true, false})
        for (const CSeenItem& item : SeenAnywhere(Side(inSource).Store()))
            found.insert(Plain(item.body));
    for (const std::string& text : m_model.Kept()) {
        EXPECT_EQ(found.count(text), 1u) << text << " is gone";
    }
}

ULONG HistoryTest::DrawHabits() {
    std::string names;
    const ULONG habits = m_dice->Habits(names);
    Tell("a store with" + (names.empty() ? " no habits" : names));
    return habits;
}

// An incremental pair looks for no deletions: what is older would all look deleted.
void HistoryTest::DrawOptions() {
    if (m_dice->OneIn(3)) m_fixed |= SYNC_ALWAYS_RENEW;
    if (m_dice->OneIn(4)) m_fixed |= SYNC_NEW_ONLY;
    if (m_dice->OneIn(4)) m_fixed |= SYNC_SKIP_PRIVATE;
    if (m_dice->OneIn(4)) setting.m_query = "Subject = prefix \"item\"";
    m_mixed = !setting.m_query.empty() || (m_fixed & SYNC_SKIP_PRIVATE);
    m_options.deletions = !(m_fixed & SYNC_NEW_ONLY);
    Tell(std::string("a pair") + (m_fixed & SYNC_ALWAYS_RENEW ? ", always renew" : "") +
         (m_fixed & SYNC_NEW_ONLY ? ", new only" : "") +
         (m_fixed & SYNC_SKIP_PRIVATE ? ", skip private" : "") + (setting.m_query.empty() ? "" : ", query"));
}

void HistoryTest::SwitchDirections() {
    if (m_fixed & SYNC_NEW_ONLY) return;
    m_options.toTarget = !m_dice->OneIn(4);
    m_options.toSource = !m_options.toTarget || !m_dice->OneIn(4);
    m_options.deletions = !m_dice->OneIn(4);
}

void HistoryTest::TakeOptions() {
    setting.m_flags = m_fixed | SYNC_ACTIVE | (m_options.toTarget ? ULONG{SYNC_TO_TARGET} : ULONG{0}) |
                      (m_options.toSource ? ULONG{SYNC_FROM_TARGET} : ULONG{0}) |
                      (m_options.deletions ? ULONG{SYNC_DELETE_IN_TARGET} : ULONG{0});
}

void HistoryTest::RunAndCompare() {
    Tell(std::string("run") + (m_options.toTarget ? " to target" : "") +
         (m_options.toSource ? " to source" : "") + (m_options.deletions ? " with deletions" : ""));
    TakeOptions();
    foretells = !m_disturbed;
    Run();
    ExpectMemoriesTellTheFolders();
    m_fromNotes += notReadAgain;
    if (m_disturbed) return m_model.Adopt(Seen(true), Seen(false));
    m_model.Run(m_options);
    EXPECT_EQ(Seen(true), m_model.Contents(true)) << "in the source";
    EXPECT_EQ(Seen(false), m_model.Contents(false)) << "in the target";
}

// What a failing call leaves to chance, in this run and later, is left to it here as well: one of each, and
// nothing gone.
void HistoryTest::RunDisturbed() {
    const bool inSource = m_dice->OneIn(2);
    const ULONG call = m_dice->Below(300) + 1;
    Tell("call " + std::to_string(call) + (inSource ? " of source" : " of target") + " fails in a run");
    TakeOptions();
    Look();
    const auto faults = FaultsOf(Side(inSource).Store());
    faults->SetFault(call, MAPI_E_NETWORK_ERROR, FALSE);
    Run();
    faults->SetFault(0, S_OK, FALSE);
    ExpectTheTruthWasTold();
    ExpectMemoriesTellTheFolders();
    m_disturbed = true;
    RunAndCompare();
}

void HistoryTest::PlayOne(const Kind& kind, unsigned seed) {
    m_dice = std::make_unique<CDice>(seed);
    m_model = {};
    m_options = {};
    m_fixed = 0;
    setting.m_query.clear();
    m_mixed = false;
    m_outside.clear();
    m_story.str("");
    m_disturbed = false;
    m_names = m_texts = 0;
    if (kind.habits) {
        const ULONG ofLeft = DrawHabits();
        StartOver(ofLeft, DrawHabits());
    } else {
        StartOver();
    }
    if (kind.options) DrawOptions();
    const unsigned runs = 3 + m_dice->Below(4);
    for (unsigned run = 0; run < runs && !HasFailure(); ++run) {
        for (unsigned acts = m_dice->Below(6); acts > 0; --acts)
            Act();
        if (kind.directions) SwitchDirections();
        if (kind.faults && m_dice->OneIn(3))
            RunDisturbed();
        else
            RunAndCompare();
        ExpectKept();
    }
}

void HistoryTest::Play(const Kind& kind) {
    LeaveStores();
    Disk().Keep();
    EnterStores();
    const unsigned only = NumberOf("VELLUM_HISTORY_SEED", 0);
    const unsigned count = only ? 1 : NumberOf("VELLUM_HISTORIES", kHistories);
    for (unsigned i = 1; i <= count; ++i) {
        const unsigned seed = only ? only : i;
        PlayOne(kind, seed);
        if (HasFailure()) {
            ADD_FAILURE() << "VELLUM_HISTORY_SEED=" << seed << ":\n" << m_story.str();
            return;
        }
    }
    if (!kind.habits) {
        EXPECT_GT(m_fromNotes, count) << "the runs no longer make their memories of notes";
    }
}
}  // namespace

INSTANTIATE_TEST_SUITE_P(Histories, HistoryTest, ::testing::Bool(), [](const auto& which) {
    return std::string(which.param ? "RightIsSource" : "LeftIsSource");
});

TEST_P(HistoryTest, EndsAsTheRulesSay) {
    Play({});
}

TEST_P(HistoryTest, EndsAsTheRulesSayWithOptionsSwitched) {
    Play({.directions = true});
}

TEST_P(HistoryTest, LosesAndDoublesNothingOverFaults) {
    Play({.faults = true});
}

TEST_P(HistoryTest, EndsAsTheRulesSayUnderHabits) {
    Play({.habits = true});
}

TEST_P(HistoryTest, EndsAsTheRulesSayUnderHabitsAndOptions) {
    Play({.directions = true, .habits = true, .options = true});
}

TEST_P(HistoryTest, LosesAndDoublesNothingUnderHabitsAndOptions) {
    Play({.directions = true, .faults = true, .habits = true, .options = true});
}
