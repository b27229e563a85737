// Stories about a pair of folders: what they hold, what happens to them, what a run makes of it.
//
//   STORY(DeletionTravelsWhenOtherSideIsUntouched) {
//       Given(Both("A B C"), Synced());
//       When(Left().Deletes("B"));
//       Then(Both("A C"));          // runs, compares, runs again: nothing moves
//   }
//
// Each story runs twice: with the left folder as the source of the pair and with the right one.
#pragma once
#include <MapiWrapper/MapiSession.h>
#include <Platform/Clock.h>
#include <Platform/UserInterface.h>
#include <Tarn/Engine/syncfolder.h>
#include <support/MemoryDisk.h>
#include <support/StoreFixture.h>

#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

// What happens, or what shall hold; nothing is done before Given, When or Then takes it.
using Step = std::function<void()>;

// One of the two folders, with the store around it. Items are named by their subjects; a text with
// blanks names several where the verb takes `items`.
class StorySide {
public:
    explicit StorySide(std::string name) : m_name(std::move(name)) {}
    // What it stands for from now on; nothing while the stores are closed.
    void Bind(TestRef<IMsgStore> store, TestRef<IMAPIFolder> folder);

    // --- what a person does -----------------------------------------------------------------------
    Step Creates(std::string items);
    Step Changes(std::string item, std::string body);
    Step Renames(std::string item, std::string subject);
    // Of several items of one subject the one that was made last.
    Step RenamesNewest(std::string item, std::string subject);
    Step Deletes(std::string items);
    Step CopiesWithin(std::string item);
    // To and from a folder beside this one, with everything that the store keeps at a move.
    Step MovesOut(std::string item);
    Step MovesIn(std::string item);
    // Into the other folder, keeping times and search key, as a person copies a folder's contents.
    Step CopiesTo(StorySide& other, std::string item);
    // Changes the item and sets its time of last modification by hand.
    Step ChangesAt(std::string item, std::string body, FILETIME time);

    // --- what it holds ------------------------------------------------------------------------------
    std::string Items() const;  // subjects, sorted, joined by blanks
    bool Holds(const std::string& item) const;
    std::string BodyOf(const std::string& item) const;
    // Entry IDs, times and subjects of all items: equal as long as nothing touches one.
    std::string Fingerprint() const;
    // Subjects below the store's root in "Conflicts" and below the wastebasket, wherever they lie.
    std::string ConflictCopies() const;
    std::string Discarded() const;

    // What ExpectTheTruthWasTold compares, by entry ID.
    struct CItemNow {
        std::string content, syncId;
        unsigned long long time = 0;
    };
    std::map<std::string, CItemNow> ItemsNow(bool below) const;

    Step Has(std::string items);
    Step Reads(std::string item, std::string body);
    Step KeepsConflictCopies(std::string items);
    Step Discards(std::string items);

    const std::string& Name() const { return m_name; }
    IMAPIFolder* Folder() const { return m_folder.Get(); }
    IMsgStore* Store() const { return m_store.Get(); }
    std::string Key() const;  // folder key for the engine

private:
    TestRef<IMAPIFolder> Beside();
    TestRef<IMessage> Open(const std::string& item) const;

    std::string m_name;
    TestRef<IMsgStore> m_store;
    TestRef<IMAPIFolder> m_folder;
};

// Both folders hold these items: as a given they are made on the left, as an outcome they are looked for.
struct Both {
    explicit Both(std::string names) : items(std::move(names)) {}
    std::string items;
};
struct Synced {};

// Makes what happens before and after it come at different times, also where a store's clock is coarse.
void NextMoment();

class TwoFolders : public TwoStores, public ::testing::WithParamInterface<bool> {
protected:
    explicit TwoFolders(StoreOptions options = StoreOptions::OfEnvironment()) : TwoStores(options) {}
    void SetUp() override;
    void TearDown() override;

    StorySide& Left() { return m_left; }
    StorySide& Right() { return m_right; }
    // The sides as the pair has them, for rules that tell them apart.
    StorySide& Source() { return GetParam() ? m_right : m_left; }
    StorySide& Target() { return GetParam() ? m_left : m_right; }

    template <class... Steps>
    void Given(Steps... steps) {
        (Prepare(steps), ...);
    }
    template <class... Steps>
    void When(Steps... steps) {
        (Prepare(steps), ...);
    }
    // Runs the pair, looks, runs it again and demands that nothing moved.
    template <class... Outcomes>
    void Then(Outcomes... outcomes) {
        Run();
        (Expect(outcomes), ...);
        ExpectNothingMoves();
        (Expect(outcomes), ...);
    }
    // The outcome without a run before it.
    template <class... Outcomes>
    void Still(Outcomes... outcomes) {
        (Expect(outcomes), ...);
    }

    // From now on, and to be called before SetUp: the stores lie on a disk of their own.
    void UseMemoryDisk();
    CMemoryDisk& Disk() { return *m_disk; }
    // Gives everything back that keeps the stores open, and opens them again by a new session.
    void Close();
    void Reopen();
    // The clock stands still but for NextMoment, where that is needed for these habits.
    void HoldClock(ULONG habits);
    bool Has(StoreHabit habit) const { return (Options().habits & habit) != 0; }

    // One run over the pair; the outcome and the protocol stay to be looked at. Message boxes are
    // failures unless expectMessages is set. Where the environment wants trouble (TroubledRuns.h), that is
    // met first, and the run itself finds the folders as they were.
    void Run();
    // Run demands by itself that outcome and protocol tell what has become of the folders. Where calls of a
    // store fail from before the run until behind it, Look comes before the first and ExpectTheTruthWasTold
    // behind the last.
    void Look();
    void ExpectTheTruthWasTold();
    // Demands that the memories of the last run, where it made them without reading the folders again, tell
    // of the folders as they stand, byte for byte. For folders that nobody has touched since it began.
    void ExpectMemoriesTellTheFolders();
    // What the protocol of the last run says of the items of that name.
    std::string SaidOf(const std::string& item);
    // The hidden message of that subject in the source folder; null if there is none.
    TestRef<IMessage> Hidden(const std::string& subject);
    // The sync file of that side ("SourceID", "TargetID"); empty if there is none.
    std::string SideFile(const std::string& side);
    void ExpectNothingMoves();

    CTarnSetting setting;
    CSyncProtocol protocol;
    CSyncOutcome outcome;
    unsigned notReadAgain = 0;  // memories that the last run made of its notes
    CSyncProgress* progress = nullptr;
    std::vector<std::string> missingFolders;
    bool expectMessages = false;
    bool foretells = true;     // each run is demanded to do what a plan says of it beforehand
    bool othersWrite = false;  // during runs: what comes of a run cannot be told from what they do
    std::vector<CRecordingUserInterface::Message> messages;  // of the last run

private:
    void Prepare(const Both& both);
    void Prepare(const Synced&) { Run(); }
    void Prepare(const Step& step) { step(); }
    void Expect(const Both& both);
    void Expect(const Step& step) { step(); }

    void BindSides();
    void RunAlone();
    void MeetEachTrouble();
    bool RunInTrouble(const struct CRunTrouble& trouble);
    bool RunAndDie(const CRunTrouble& trouble);
    // What a run does with which item, and what it tells of folders.
    struct CForetold {
        std::multiset<std::string> rows;
        unsigned pairs = 0, namesakes = 0, conflicts = 0, missing = 0, toSource = 0, toTarget = 0;
    };
    CForetold Foretell();
    void ExpectForetold(const CForetold& foretold);

    std::unique_ptr<CMemoryDisk> m_disk;
    bool m_inTrouble = false;
    std::optional<std::map<std::string, StorySide::CItemNow>> m_sourceBefore, m_targetBefore;
    StorySide m_left{"left"};
    StorySide m_right{"right"};
    std::unique_ptr<CClockOverride> m_clock;
};

#define STORY(name) TEST_P(TwoFolders, name)
