#include "FaultsTrial.h"

#include <Platform/Machine.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <set>
#include <sstream>
#include <thread>

namespace fs = std::filesystem;

unsigned NumberOf(const char* variable, unsigned otherwise) {
    const char* text = std::getenv(variable);
    return text && *text ? static_cast<unsigned>(std::strtoul(text, nullptr, 10)) : otherwise;
}

unsigned Stride() {
    return std::max(1u, NumberOf("VELLUM_STRIDE", 1));
}

// --- CMemoryDisk -----------------------------------------------------------------------------------

namespace {
fs::path PlaceInMemory() {
    const fs::path memory = "/dev/shm";
    std::error_code error;
    return fs::is_directory(memory, error) ? memory : fs::temp_directory_path();
}

std::string TrialPath(unsigned processId) {
    return (PlaceInMemory() / ("vellum-trial-" + std::to_string(processId))).string();
}

fs::path KeptPath(const std::string& path) {
    return path + "-kept";
}

// The thread that looks out for other processes may hold a store a moment longer than its last user, and
// what is held cannot be removed on every system.
void RemoveWhenLeft(const fs::path& path) {
    constexpr int tries = 5000;
    std::error_code error;
    for (int i = 0; i < tries; ++i) {
        fs::remove_all(path, error);
        if (!error) return;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    throw fs::filesystem_error("somebody still holds a store", path, error);
}

void CopyTree(const fs::path& from, const fs::path& to) {
    RemoveWhenLeft(to);
    fs::copy(from, to, fs::copy_options::recursive);
}
}  // namespace

CMemoryDisk::CMemoryDisk()
    : m_path(TrialPath(ProcessId())), m_before(fs::path(DataDirectory()).parent_path().string()) {
    RemoveWhenLeft(m_path);
    SetBaseDirectory(m_path);
}

CMemoryDisk::~CMemoryDisk() {
    SetBaseDirectory(m_before);
    if (!m_own) return;
    std::error_code error;
    fs::remove_all(m_path, error);
    fs::remove_all(KeptPath(m_path), error);
}

// A store that is left has no journal any more.
void CMemoryDisk::AwaitClosing() const {
    const auto isOpen = [this] {
        for (const auto& entry : fs::recursive_directory_iterator(m_path))
            if (entry.path().extension().string().find("-wal") != std::string::npos) return true;
        return false;
    };
    constexpr int tries = 5000;
    for (int i = 0; isOpen(); ++i) {
        ASSERT_LT(i, tries) << "somebody still holds a store";
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

void CMemoryDisk::Keep() {
    AwaitClosing();
    CopyTree(m_path, KeptPath(m_path));
}

void CMemoryDisk::BringBack() {
    AwaitClosing();
    CopyTree(KeptPath(m_path), m_path);
}

void CMemoryDisk::LeaveFor(unsigned processId) {
    RemoveWhenLeft(m_path);
    m_own = false;
    m_path = TrialPath(processId);
    SetBaseDirectory(m_path);
}

// --- what is there -----------------------------------------------------------------------------------

namespace {
void CollectSeen(IMsgStore* store, IMAPIFolder* folder, bool below, std::vector<CSeenItem>& seen) {
    const TestRows rows = ContentsOf(folder, {PR_SUBJECT_A, PR_BODY_A});
    for (ULONG row = 0; row < rows.Count(); ++row)
        seen.push_back({rows.Text(row, 0), rows.Text(row, 1)});
    if (!below) return;
    const TestRows children = HierarchyOf(folder, {PR_ENTRYID});
    for (ULONG row = 0; row < children.Count(); ++row)
        CollectSeen(store, OpenTestFolder(store, children.Bytes(row, 0)).Get(), true, seen);
}
}  // namespace

std::vector<CSeenItem> SeenIn(IMsgStore* store, IMAPIFolder* folder) {
    std::vector<CSeenItem> seen;
    CollectSeen(store, folder, false, seen);
    return seen;
}

std::vector<CSeenItem> SeenBelow(IMsgStore* store, IMAPIFolder* folder) {
    std::vector<CSeenItem> seen;
    CollectSeen(store, folder, true, seen);
    return seen;
}

std::vector<CSeenItem> SeenAnywhere(IMsgStore* store) {
    return SeenBelow(store, OpenStoreFolder(store, PR_IPM_SUBTREE_ENTRYID).Get());
}

TestRef<IStoreFaults> FaultsOf(IMsgStore* store) {
    TestRef<IStoreFaults> faults;
    EXPECT_EQ(store->QueryInterface(IID_IStoreFaults, reinterpret_cast<void**>(faults.Out())), S_OK);
    return faults;
}

// --- FaultsTrial -------------------------------------------------------------------------------------

void FaultsTrial::SetUp() {
    m_disk = std::make_unique<CMemoryDisk>();
    TwoFolders::SetUp();
    expectMessages = true;  // a run that meets trouble tells of it
}

void FaultsTrial::TearDown() {
    TwoFolders::TearDown();
    m_disk.reset();
}

void FaultsTrial::LeaveStores() {
    Close();
}

void FaultsTrial::EnterStores() {
    Reopen();
}

void FaultsTrial::StartOver(ULONG leftHabits, ULONG rightHabits) {
    LeaveStores();
    m_disk->BringBack();
    HoldClock(Options().habits | leftHabits | rightHabits);
    if (leftHabits) Profile().SetHabits(1, Options().habits | leftHabits);
    if (rightHabits) Profile().SetHabits(2, Options().habits | rightHabits);
    EnterStores();
}

void FaultsTrial::MakeChanges() {
    Given(Left().Creates("Stay LeftChanged LeftGone RightChanged RightGone BothRight BothLeft Original"),
          Left().Creates("Rewritten Back GoneAndChanged ChangedAndGone"), Right().Creates("Template"),
          Synced(), Left().MovesOut("Back"), Synced());
    When(Left().Creates("LeftNew"), Right().Creates("RightNew"), Left().Changes("LeftChanged", "by left"),
         Right().Changes("RightChanged", "by right"), Left().Changes("Rewritten", "once more"),
         Left().Deletes("LeftGone"), Right().Deletes("RightGone"));
    When(Left().Changes("BothRight", "left, too early"), Right().Changes("BothRight", "right, later"),
         Right().Changes("BothLeft", "right, too early"), Left().Changes("BothLeft", "left, later"));
    When(Target().Changes("GoneAndChanged", "lost its source"), Source().Deletes("GoneAndChanged"),
         Source().Changes("ChangedAndGone", "lost its target"), Target().Deletes("ChangedAndGone"));
    When(Left().CopiesWithin("Original"), Left().RenamesNewest("Original", "LeftCopy"),
         Right().CopiesWithin("Template"), Right().RenamesNewest("Template", "RightCopy"),
         Left().Changes("LeftCopy", "a copy of mine"), Left().MovesIn("Back"));
    m_written = {"text of Stay",     "text of Original", "text of Template", "text of LeftNew",
                 "text of RightNew", "by left",          "by right",         "once more",
                 "left, too early",  "right, later",     "right, too early", "left, later",
                 "lost its source",  "lost its target",  "a copy of mine",   "text of Back"};
}

namespace {
const char* const kOnBothSides[] = {"Stay",     "LeftChanged", "RightChanged", "BothRight", "BothLeft",
                                    "Original", "Rewritten",   "Back",         "Template",  "LeftNew",
                                    "RightNew", "LeftCopy",    "RightCopy"};
}

void FaultsTrial::ExpectEachOnce(StorySide& side, Trouble kind, const std::string& trouble) {
    const std::string where = " on the " + side.Name() + " after " + trouble;
    std::map<std::string, int> counts;
    for (const CSeenItem& item : SeenIn(side.Store(), side.Folder()))
        ++counts[item.subject];
    for (const char* subject : kOnBothSides) {
        EXPECT_EQ(counts[subject], 1) << subject << where;
        counts.erase(subject);
    }
    // Changed on the source and removed from the target: stays on the source alone, until somebody changes
    // it again.
    const int stays = counts["ChangedAndGone"];
    counts.erase("ChangedAndGone");
    EXPECT_LE(stays, 1) << where;
    if (kind == Trouble::Passing) {
        EXPECT_EQ(stays, &side == &Source() ? 1 : 0) << "ChangedAndGone" << where;
    }
    for (const auto& [subject, count] : counts) {
        EXPECT_LE(count, kind == Trouble::Lasting ? 1 : 0) << subject << where;
    }
}

void FaultsTrial::ExpectNothingGone(const std::string& trouble) {
    std::set<std::string> bodies;
    for (StorySide* side : {&Left(), &Right()})
        for (const CSeenItem& item : SeenAnywhere(side->Store()))
            bodies.insert(item.body);
    for (const std::string& text : m_written) {
        EXPECT_EQ(bodies.count(text), 1u) << "\"" << text << "\" is gone after " << trouble;
    }
}

void FaultsTrial::ExpectWholeAfter(Trouble kind, const std::string& trouble) {
    ExpectEachOnce(Left(), kind, trouble);
    ExpectEachOnce(Right(), kind, trouble);
    ExpectNothingGone(trouble);
}
