#include "BenchWorld.h"

#include <chrono>
#include <stdexcept>

#include "BenchItems.h"

namespace {

std::string KeyOf(IMAPIFolder* folder) {
    const std::string folderId = BytesOf(folder, PR_ENTRYID);
    const std::string storeId = BytesOf(folder, PR_STORE_ENTRYID);
    const auto hex = [](const std::string& bytes) {
        return HexFromBinary(
            {static_cast<ULONG>(bytes.size()), reinterpret_cast<BYTE*>(const_cast<char*>(bytes.data()))});
    };
    return hex(folderId) + ":" + hex(storeId);
}

}  // namespace

CBenchWorld::CBenchWorld(int count) : m_profile("Bench" + std::to_string(count)) {
    m_session = m_profile.LogOn();
    m_leftStore = OpenTestStore(m_session.Get(), "Store 1");
    m_rightStore = OpenTestStore(m_session.Get(), "Store 2");
    const auto leftRoot = OpenStoreFolder(m_leftStore.Get(), PR_IPM_SUBTREE_ENTRYID);
    const auto rightRoot = OpenStoreFolder(m_rightStore.Get(), PR_IPM_SUBTREE_ENTRYID);
    m_left = MakeFolder(leftRoot.Get(), "Left");
    m_right = MakeFolder(rightRoot.Get(), "Right");
    m_leftKey = KeyOf(m_left.Get());
    m_rightKey = KeyOf(m_right.Get());
    MakeItems(m_leftStore.Get(), m_left.Get(), count);
}

double CBenchWorld::Sync() {
    CTarnSetting setting;
    setting.m_sourceKey = m_leftKey;
    setting.m_targetKey = m_rightKey;
    setting.m_flags = SYNC_ACTIVE | SYNC_TO_TARGET | SYNC_FROM_TARGET | SYNC_DELETE_IN_TARGET;
    const auto start = std::chrono::steady_clock::now();
    CSyncFolder folder;
    CSyncProtocol protocol;
    folder.m_session = CMapiSession(m_session.Get());
    folder.m_setting = &setting;
    folder.m_protocol = &protocol;
    const int answer = folder.SyncSubFolder(m_leftKey, m_rightKey, true, true, true, false, false);
    const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - start;
    const CSyncOutcome& outcome = folder.m_outcome;
    if (answer != 0 || outcome.pairsRun != 1 || outcome.rowsFailed != 0 || outcome.phasesFailed != 0)
        throw std::runtime_error("the run did not end cleanly");
    return seconds.count();
}

void CBenchWorld::ChangeItems(bool leftSide, int first, int step) {
    IMsgStore* store = leftSide ? m_leftStore.Get() : m_rightStore.Get();
    IMAPIFolder* folder = leftSide ? m_left.Get() : m_right.Get();
    const CGathered gathered(store);
    std::mt19937_64 random(static_cast<unsigned>(first * 1000 + step));
    const TestRows rows = ContentsOf(folder, {PR_ENTRYID});
    for (ULONG row = static_cast<ULONG>(first); row < rows.Count(); row += static_cast<ULONG>(step)) {
        const auto message = OpenTestMessage(store, rows.Bytes(row, 0));
        Must(SetText(message.Get(), PR_BODY_A, RandomText(random, kBenchBodySize)), "body");
        Must(SetLong(message.Get(), PR_IMPORTANCE, 2), "importance");
        Must(message->SaveChanges(0), "SaveChanges");
    }
}

unsigned CBenchWorld::CountOf(IMAPIFolder* folder) {
    return static_cast<unsigned>(LongOf(folder, PR_CONTENT_COUNT));
}
