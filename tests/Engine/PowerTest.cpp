// Stores that lost what no disk had to keep yet, and stores that were brought back from a backup.
#include "FaultsTrial.h"

#include <Platform/Files.h>

#include <algorithm>
#include <filesystem>
#include <random>
#include <set>

namespace {
namespace fs = std::filesystem;

struct CStoreFiles {
    std::string store, log;
};

// Where the commits of a log end: the last frame of a commit says how many pages the store has then.
std::vector<size_t> CommitsIn(const std::string& log) {
    const auto number = [&](size_t at) {
        size_t value = 0;
        for (size_t i = 0; i < 4; ++i)
            value = value << 8 | static_cast<unsigned char>(log.at(at + i));
        return value;
    };
    std::vector<size_t> ends;
    if (log.size() < 32) return ends;
    const size_t cbFrame = 24 + number(8);
    for (size_t at = 32; at + cbFrame <= log.size(); at += cbFrame)
        if (number(at + 4) != 0) ends.push_back(at + cbFrame);
    return ends;
}

class PowerTest : public FaultsTrial {
protected:
    std::string PathOf(bool inSource) {
        const bool isLeft = inSource != GetParam();
        for (const auto& entry : fs::recursive_directory_iterator(Disk().Path()))
            if (entry.path().filename() == (isLeft ? "store1.vst" : "store2.vst"))
                return entry.path().string();
        throw std::runtime_error("no store");
    }
    CStoreFiles Take(bool inSource) {
        CStoreFiles files;
        EXPECT_TRUE(ReadFileBytes(PathOf(inSource), files.store));
        if (FileExists(PathOf(inSource) + "-wal")) {
            EXPECT_TRUE(ReadFileBytes(PathOf(inSource) + "-wal", files.log));
        }
        return files;
    }
    // While the stores are left.
    void Put(bool inSource, const CStoreFiles& files) {
        const std::string path = PathOf(inSource);
        RemoveFile(path + "-shm");
        EXPECT_TRUE(WriteFileDurably(path, files.store));
        EXPECT_TRUE(WriteFileDurably(path + "-wal", files.log));
    }
    StorySide& Side(bool inSource) { return inSource ? Source() : Target(); }
    bool IsToldOfAge() const {
        return std::any_of(messages.begin(), messages.end(), [](const auto& message) {
            return message.text.find("older than it was") != std::string::npos;
        });
    }

    void LoseCommits(bool inSource, ULONG unsynced, const CStoreFiles& own, const CStoreFiles& other);
    void PlayBackup(unsigned seed);
    std::set<std::string> TextsAnywhere();

    unsigned m_losses = 0;
    unsigned m_older = 0;
};

// What was durable for certain is taken as well, as a disk that lies would: then the store is older than the
// memory of it.
void PowerTest::LoseCommits(bool inSource, ULONG unsynced, const CStoreFiles& own, const CStoreFiles& other) {
    const std::vector<size_t> ends = CommitsIn(own.log);
    for (size_t lost = 1; lost <= ends.size() && !HasFailure(); lost += Stride()) {
        const bool isHonest = lost <= unsynced;
        const std::string trouble = std::string(inSource ? "the source" : "the target") + " lost " +
                                    std::to_string(lost) + " of " + std::to_string(ends.size()) + " commits";
        SCOPED_TRACE(trouble);
        LeaveStores();
        Disk().AwaitClosing();
        CStoreFiles cut = own;
        cut.log.resize(lost < ends.size() ? ends[ends.size() - 1 - lost] : 0);
        Put(inSource, cut);
        Put(!inSource, other);
        EnterStores();
        Run();
        m_older += IsToldOfAge();
        EXPECT_FALSE(isHonest && IsToldOfAge()) << "the memory outlived what it tells of";
        ExpectWholeAfter(isHonest ? Trouble::Deadly : Trouble::Lasting, trouble);
        expectMessages = false;
        Run();
        ExpectNothingMoves();
        expectMessages = true;
        ++m_losses;
    }
}

std::set<std::string> PowerTest::TextsAnywhere() {
    std::set<std::string> texts;
    for (StorySide* side : {&Left(), &Right()})
        for (const CSeenItem& item : SeenAnywhere(side->Store()))
            texts.insert(item.body);
    return texts;
}

// A backup of one store, taken at any time, takes its place later, and people go on with it.
void PowerTest::PlayBackup(unsigned seed) {
    std::mt19937 dice(seed);
    const auto below = [&](size_t limit) { return static_cast<size_t>(dice() % limit); };
    unsigned made = 0, written = 0;
    std::string story;
    std::set<std::string> writtenOver;  // what a person has seen is not missed
    const auto act = [&](std::set<std::string>& touched, bool mayDelete) {
        StorySide& side = Side(below(2) == 0);
        std::vector<std::string> items;
        for (const CSeenItem& item : SeenIn(side.Store(), side.Folder()))
            // An item that was changed here and is gone there stays alone, with or without a backup.
            if (!touched.count(item.subject) && Left().Holds(item.subject) && Right().Holds(item.subject))
                items.push_back(item.subject);
        std::sort(items.begin(), items.end());
        const size_t what = below(4);
        const std::string item =
            items.empty() || what == 0 ? "item" + std::to_string(++made) : items[below(items.size())];
        touched.insert(item);
        const bool isNew = items.empty() || what == 0, isDeletion = what == 1 && mayDelete;
        story += side.Name() + (isNew ? " new " : isDeletion ? " deletes " : " changes ") + item + "; ";
        if (isNew) return side.Creates(item)();
        writtenOver.insert(side.BodyOf(item));
        if (isDeletion) return side.Deletes(item)();
        side.Changes(item, "version " + std::to_string(++written))();
    };
    const auto live = [&](size_t acts, bool mayDelete) {
        std::set<std::string> touched;
        for (; acts > 0; --acts)
            act(touched, mayDelete);
    };
    std::vector<CStoreFiles> backups[2];
    live(5, false);
    Run();
    for (size_t stages = 1 + below(3); stages > 0; --stages) {
        live(below(3), false);  // not synchronised yet when the backup is taken
        LeaveStores();
        Disk().AwaitClosing();
        for (const bool inSource : {false, true})
            backups[inSource].push_back(Take(inSource));
        EnterStores();
        story += "backup; ";
        Run();
        live(below(4), true);
        Run();
    }
    const bool inSource = below(2) == 0;
    const size_t stage = below(backups[inSource].size());
    story += std::string("back comes ") + (inSource ? "source" : "target") + std::to_string(stage) + "; ";
    LeaveStores();
    Disk().AwaitClosing();
    Put(inSource, backups[inSource][stage]);
    EnterStores();
    writtenOver.clear();
    live(below(3), false);
    const std::set<std::string> texts = TextsAnywhere();
    std::set<std::string> stay;
    for (const CSeenItem& item : SeenIn(Side(!inSource).Store(), Side(!inSource).Folder()))
        stay.insert(item.subject);
    Run();
    m_older += IsToldOfAge();
    ++m_losses;
    SCOPED_TRACE("VELLUM_HISTORY_SEED=" + std::to_string(seed) + ": " + story);
    const std::set<std::string> after = TextsAnywhere();
    for (const std::string& text : texts)
        EXPECT_TRUE(after.count(text) || writtenOver.count(text)) << "\"" << text << "\" is gone";
    for (const std::string& item : stay)
        for (const bool side : {false, true})
            EXPECT_TRUE(Side(side).Holds(item))
                << item << " is gone from the " << (side ? "source" : "target");
    Run();
    ExpectNothingMoves();
    for (StorySide* side : {&Left(), &Right()}) {
        std::set<std::string> items;
        for (const CSeenItem& item : SeenIn(side->Store(), side->Folder()))
            EXPECT_TRUE(items.insert(item.subject).second) << item.subject << " is there twice";
    }
}
}  // namespace

INSTANTIATE_TEST_SUITE_P(Power, PowerTest, ::testing::Bool(), [](const auto& which) {
    return std::string(which.param ? "RightIsSource" : "LeftIsSource");
});

TEST_P(PowerTest, AStoreThatLosesItsLastCommitsCostsNobodyAnything) {
    MakeChanges();
    LeaveStores();
    Disk().Keep();
    EnterStores();
    for (const bool inSource : {false, true}) {
        const auto faults = FaultsOf(Side(inSource).Store());
        faults->SetSavesPerCommit(1);
        faults->SetCommitFault(0, S_OK, FALSE);
    }
    Run();
    ULONG unsynced[2];
    CStoreFiles files[2];
    for (const bool inSource : {false, true}) {
        const auto faults = FaultsOf(Side(inSource).Store());
        unsynced[inSource] = faults->CommitCount() - faults->DurableCommitCount();
        faults->SetSavesPerCommit(0);
        files[inSource] = Take(inSource);
    }
    // Behind the memories nothing of the target may still have to reach the disk.
    EXPECT_EQ(unsynced[false], 0u);
    EXPECT_GT(unsynced[true], 0u);
    for (const bool inSource : {false, true})
        LoseCommits(inSource, unsynced[inSource], files[inSource], files[!inSource]);
    EXPECT_GE(m_losses * Stride(), 30u);
    EXPECT_GE(m_older * Stride(), 10u);
    RecordProperty("losses", static_cast<int>(m_losses));
}

TEST_P(PowerTest, AStoreThatComesBackFromABackupCostsNobodyAnEdit) {
    LeaveStores();
    Disk().Keep();
    EnterStores();
    const unsigned only = NumberOf("VELLUM_HISTORY_SEED", 0);
    const unsigned count = only ? 1 : NumberOf("VELLUM_HISTORIES", 200);
    for (unsigned i = 1; i <= count && !HasFailure(); ++i) {
        PlayBackup(only ? only : i);
        StartOver();
    }
    EXPECT_EQ(m_losses, count);
    EXPECT_GE(m_older, count / 8) << "backups are no longer found to be older";
}
