#include <Platform/Machine.h>
#include <support/MemoryDisk.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
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
