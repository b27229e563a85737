// Notifications of tables and stores, and what reaches whom on which thread.
#include <MapiStore/Objects/FolderTree.h>
#include <MapiStore/Storage/SqliteStorage.h>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>

#include "TableFixture.h"

namespace {

using namespace std::chrono_literals;

// Gathers what it is told, in words.
class CRecordingSink final : public IMAPIAdviseSink {
public:
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID, void** object) override {
        *object = nullptr;
        return E_NOINTERFACE;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return ++references; }
    ULONG STDMETHODCALLTYPE Release() override { return --references; }
    ULONG STDMETHODCALLTYPE OnNotify(ULONG count, LPNOTIFICATION notifications) override {
        if (inCall) inCall();
        const std::lock_guard lock(m_mutex);
        thread = std::this_thread::get_id();
        for (ULONG i = 0; i < count; ++i)
            m_told.push_back(Words(notifications[i]));
        m_changed.notify_all();
        return 0;
    }

    // The first `count` things told, within two seconds.
    std::vector<std::string> Wait(std::size_t count) {
        std::unique_lock lock(m_mutex);
        m_changed.wait_for(lock, 2s, [&] { return m_told.size() >= count; });
        return {m_told.begin(), m_told.end()};
    }
    void Forget() {
        const std::lock_guard lock(m_mutex);
        m_told.clear();
    }

    std::atomic<ULONG> references{1};
    std::thread::id thread;
    std::function<void()> inCall;

private:
    static std::string Words(const NOTIFICATION& notification) {
        if (notification.ulEventType == fnevTableModified) {
            const TABLE_NOTIFICATION& table = notification.info.tab;
            std::string words = "table " + std::to_string(table.ulTableEvent);
            if (table.propIndex.ulPropTag == PR_INSTANCE_KEY) words += " key";
            if (table.propPrior.ulPropTag == PR_INSTANCE_KEY) words += " prior";
            for (ULONG i = 0; i < table.row.cValues; ++i)
                if (table.row.lpProps[i].ulPropTag == PR_SUBJECT_A)
                    words += std::string(" ") + table.row.lpProps[i].Value.lpszA;
            return words;
        }
        return "object " + std::to_string(notification.ulEventType) + " type " +
               std::to_string(notification.info.obj.ulObjType) +
               (notification.info.obj.cbEntryID == sizeof(StoreEntryId) ? " id" : "") +
               (notification.info.obj.cbOldID == sizeof(StoreEntryId) ? " old" : "");
    }
    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::deque<std::string> m_told;
};

using Told = std::vector<std::string>;

class AdviseFixture : public TableFixture {
protected:
    CRef<IMAPITable> Watched(ULONG& connection) {
        auto table = Contents();
        CTagList tags{PR_SUBJECT_A};
        EXPECT_EQ(S_OK, table->SetColumns(tags, 0));
        EXPECT_EQ(S_OK, table->Advise(fnevTableModified, &sink, &connection));
        return table;
    }
    CRecordingSink sink;
};

TEST_F(AdviseFixture, RowsThatComeChangeAndGoAreTold) {
    const ObjectId first = AddSubject("first");
    ULONG connection = 0;
    const auto table = Watched(connection);
    const ObjectId second = AddSubject("second");
    EXPECT_EQ((Told{"table 3 key prior second"}), sink.Wait(1));
    EXPECT_NE(std::this_thread::get_id(), sink.thread);
    sink.Forget();
    ChangeSubject(first, "changed");
    EXPECT_EQ((Told{"table 5 key changed"}), sink.Wait(1));
    sink.Forget();
    Delete(second);
    EXPECT_EQ((Told{"table 4 key"}), sink.Wait(1));
    sink.Forget();
    AddSubject("elsewhere", kOutboxFolder);
    EXPECT_EQ(S_OK, table->Unadvise(connection));
    AddSubject("unheard");
    std::this_thread::sleep_for(50ms);
    EXPECT_EQ(Told{}, sink.Wait(0));
    EXPECT_EQ(1u, sink.references);
    EXPECT_EQ(MAPI_E_NOT_FOUND, table->Unadvise(connection));
}

TEST_F(AdviseFixture, RestrictionDecidesWhoIsTold) {
    const ObjectId id = AddSubject("kept");
    auto table = Contents();
    CTagList tags{PR_SUBJECT_A};
    EXPECT_EQ(S_OK, table->SetColumns(tags, 0));
    TextRestriction kept(PR_SUBJECT_A, RELOP_EQ, "kept");
    EXPECT_EQ(S_OK, table->Restrict(&kept.restriction, 0));
    ULONG connection = 0;
    EXPECT_EQ(S_OK, table->Advise(fnevTableModified, &sink, &connection));
    AddSubject("other");
    ChangeSubject(id, "no longer");
    EXPECT_EQ((Told{"table 4 key"}), sink.Wait(1));
    sink.Forget();
    ChangeSubject(id, "kept");
    EXPECT_EQ((Told{"table 3 key kept"}), sink.Wait(1));
}

TEST_F(AdviseFixture, ManyChangesAtOnceBecomeOne) {
    ULONG connection = 0;
    const auto table = Watched(connection);
    {
        const CQuietCall call(*core);
        for (int i = 0; i < 400; ++i)
            AddSubject("x");
    }
    EXPECT_EQ((Told{"table 1"}), sink.Wait(1));
}

TEST_F(AdviseFixture, TableThatGoesEndsItsConnections) {
    ULONG connection = 0;
    Watched(connection);
    EXPECT_EQ(1u, sink.references);
    AddSubject("unheard");
    std::this_thread::sleep_for(50ms);
    EXPECT_EQ(Told{}, sink.Wait(0));
}

TEST_F(AdviseFixture, UnadviseWaitsForTheCallUnderWay) {
    ULONG connection = 0;
    const auto table = Watched(connection);
    std::atomic<bool> entered = false, left = false;
    sink.inCall = [&] {
        entered = true;
        std::this_thread::sleep_for(100ms);
        left = true;
    };
    AddSubject("x");
    while (!entered)
        std::this_thread::yield();
    EXPECT_EQ(S_OK, table->Unadvise(connection));
    EXPECT_TRUE(left);
}

TEST_F(AdviseFixture, SinkMayCallTheStoreAndEndItsOwnConnection) {
    ULONG connection = 0;
    const auto table = Watched(connection);
    std::atomic<int> calls = 0;
    sink.inCall = [&] {
        ULONG count = 0;
        EXPECT_EQ(S_OK, table->GetRowCount(0, &count));
        EXPECT_EQ(S_OK, table->Unadvise(connection));
        ++calls;
    };
    AddSubject("x");
    sink.Wait(1);
    AddSubject("y");
    std::this_thread::sleep_for(50ms);
    EXPECT_EQ(1, calls);
}

TEST_F(AdviseFixture, StoreTellsOfItsObjects) {
    const ULONG all = AdviseObject(core, 0, fnevObjectCreated | fnevObjectDeleted, &sink);
    const ObjectId id = AddSubject("x");
    ChangeSubject(id, "not asked for");
    Delete(id);
    EXPECT_EQ((Told{"object 4 type 5 id", "object 8 type 5 id"}), sink.Wait(2));
    UnadviseObject(all);
    EXPECT_THROW(UnadviseObject(all), CStoreError);

    sink.Forget();
    const ULONG copies = AdviseObject(core, 0, fnevObjectCopied, &sink);
    const ObjectId original = AddSubject("copied");
    {
        const CStoreCall call(*core);
        core->Save([&] { CopyMessageRow(*core, original, *core, kOutboxFolder, false); });
    }
    EXPECT_EQ(Told{"object 64 type 5 id old"}, sink.Wait(1));
    UnadviseObject(copies);

    sink.Forget();
    const ULONG folder = AdviseObject(core, kOutboxFolder, fnevObjectCreated, &sink);
    AddSubject("inbox");
    AddSubject("outbox", kOutboxFolder);
    EXPECT_EQ(1u, sink.Wait(1).size());
    std::this_thread::sleep_for(50ms);
    EXPECT_EQ(1u, sink.Wait(0).size());
    UnadviseObject(folder);
}

// Another connection to the same file stands for another process.
TEST_F(AdviseFixture, ChangesOfAnotherProcessAreToldWithinASecond) {
    AddSubject("mine");
    ULONG connection = 0;
    const auto table = Watched(connection);
    const ULONG object = AdviseObject(core, kInboxFolder, fnevObjectCreated, &sink);
    {
        CSqliteStorage other(core->Path());
        StoreCounters counters;
        other.BeginWrite(counters);
        MessageHead head;
        head.id = MakeMessageId(kInboxFolder, false, counters.serial++);
        head.change = counters.change++;
        CPropertyBag bag;
        bag.SetText(PROP_ID(PR_SUBJECT), "theirs");
        other.InsertMessage(head, bag.Build({}).small);
        other.Commit(counters);
    }
    auto told = sink.Wait(2);
    std::sort(told.begin(), told.end());
    EXPECT_EQ((Told{"object 4 type 5 id", "table 3 key prior theirs"}), told);
    UnadviseObject(object);
}

TEST_F(AdviseFixture, SinkOfAThreadIsCalledWhenTheThreadAsks) {
    static std::thread::id called;
    static ULONG seen;
    seen = 0;
    LPMAPIADVISESINK function = nullptr, bound = nullptr;
    const auto callback = [](LPVOID, ULONG count, LPNOTIFICATION) -> __LONG32 {
        called = std::this_thread::get_id();
        seen += count;
        return 0;
    };
    ASSERT_EQ(S_OK, HrAllocAdviseSink(+callback, nullptr, &function));
    ASSERT_EQ(S_OK, HrThisThreadAdviseSink(function, &bound));
    function->Release();
    const auto table = Contents();
    ULONG connection = 0;
    ASSERT_EQ(S_OK, table->Advise(fnevTableModified, bound, &connection));
    bound->Release();
    AddSubject("x");
    for (int i = 0; i < 200 && seen == 0; ++i) {
        std::this_thread::sleep_for(10ms);
        EXPECT_EQ(0u, seen);
        HrDispatchNotifications(0);
    }
    EXPECT_EQ(1u, seen);
    EXPECT_EQ(std::this_thread::get_id(), called);
}

TEST_F(AdviseFixture, TablesThatStandStillDoNotNotify) {
    CRef<IMAPITable> table;
    OpenRowsTable(core, {}, {PR_DISPLAY_NAME_A}, 0, table.Out());
    ULONG connection = 0;
    EXPECT_EQ(MAPI_E_NO_SUPPORT, table->Advise(fnevTableModified, &sink, &connection));
    EXPECT_EQ(MAPI_E_INVALID_PARAMETER, Contents()->Advise(fnevTableModified, nullptr, &connection));
}

}  // namespace
