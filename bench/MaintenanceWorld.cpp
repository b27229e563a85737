#include "MaintenanceWorld.h"

#include <Tarn/Maintenance/Duplicates.h>
#include <Tarn/Maintenance/IdMaintenance.h>

#include <chrono>
#include <stdexcept>

#include "BenchItems.h"

namespace {

template <class Body>
double Seconds(Body body) {
    const auto start = std::chrono::steady_clock::now();
    body();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

void MustBe(unsigned done, unsigned expected, const char* what) {
    if (done != expected) throw std::runtime_error(what);
}

}  // namespace

CMaintenanceWorld::CMaintenanceWorld(int count)
    : m_count(count), m_profile("Maintained" + std::to_string(count), 1) {
    m_session = m_profile.LogOn();
    m_store = OpenTestStore(m_session.Get(), "Store 1");
    m_folder = MakeFolder(OpenStoreFolder(m_store.Get(), PR_IPM_SUBTREE_ENTRYID).Get(), "Maintained");
    const ULONG id = NamedTag(m_folder.Get(), L"LarchID", PT_STRING8);
    const ULONG stamp = NamedTag(m_folder.Get(), L"LarchEid", PT_BINARY);
    const int groups = count / 10;
    MakeItems(m_store.Get(), m_folder.Get(), count, [&](IMessage* message, int number) {
        const int key = number <= groups ? number + groups : number;
        Must(SetBytes(message, PR_SEARCH_KEY, "key of item " + std::to_string(key)), "search key");
        Must(SetText(message, id, "link " + std::to_string(number)), "link");
        Must(SetBytes(message, stamp, std::string(24, 'x')), "stamp");
    });
}

double CMaintenanceWorld::Duplicates(bool dryRun) {
    CDuplicateOptions options;
    options.dryRun = dryRun;
    CDuplicateOutcome outcome;
    const CMaintainedFolder folder{IMsgStorePtr(m_store.Get()), IMAPIFolderPtr(m_folder.Get())};
    const double seconds = Seconds([&] { outcome = RemoveDuplicates(folder, options, nullptr); });
    MustBe(dryRun ? outcome.duplicates : outcome.removed, static_cast<unsigned>(m_count / 10), "duplicates");
    return seconds;
}

double CMaintenanceWorld::LookForDuplicates() {
    return Duplicates(true);
}

double CMaintenanceWorld::MoveDuplicates() {
    return Duplicates(false);
}

double CMaintenanceWorld::RemoveMarks() {
    CMaintenanceOutcome outcome;
    const CMaintainedFolder folder{IMsgStorePtr(m_store.Get()), IMAPIFolderPtr(m_folder.Get())};
    const double seconds = Seconds([&] { outcome = RemoveSyncMarks(folder, false, nullptr); });
    MustBe(outcome.changed, static_cast<unsigned>(m_count - m_count / 10), "marks");
    return seconds;
}
