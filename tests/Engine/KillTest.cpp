// A run whose process dies at a save, at each in turn, and the run after it.
#include "FaultsTrial.h"

#include <Platform/Machine.h>

#include <cstdlib>
#include <filesystem>

namespace {
constexpr char kOrder[] = "--kill-trial=";
constexpr ULONG kFewestSaves = 10;

// What the process that dies is told on its command line.
struct CKillOrder {
    unsigned owner = 0;  // number of the process whose stores they are
    unsigned inSource = 0;
    unsigned save = 0;
    unsigned eager = 0;  // saves reach the disk between any two items
};

std::string TextOf(const CKillOrder& order) {
    return kOrder + std::to_string(order.owner) + "," + std::to_string(order.inSource) + "," +
           std::to_string(order.save) + "," + std::to_string(order.eager);
}

bool ReadOrder(CKillOrder& order) {
    for (const std::string& argument : ::testing::internal::GetArgvs())
        if (argument.rfind(kOrder, 0) == 0)
            return std::sscanf(argument.c_str() + sizeof kOrder - 1, "%u,%u,%u,%u", &order.owner,
                               &order.inSource, &order.save, &order.eager) == 4;
    return false;
}

// Brings to the disk what was saved so far, as a slow run would find it there.
class CEagerProgress : public CSyncProgressHidden {
public:
    CEagerProgress(IMsgStore* first, IMsgStore* second) {
        for (IMsgStore* store : {first, second}) {
            TestRef<IStoreBatch> batch;
            EXPECT_EQ(store->QueryInterface(IID_IStoreBatch, reinterpret_cast<void**>(batch.Out())), S_OK);
            m_batches.push_back(batch);
        }
    }
    void StepMessage() override { Flush(); }
    void SetMessageText(const std::string&) override { Flush(); }
    int IsCancelled() override {
        Flush();
        return 0;
    }

private:
    void Flush() {
        for (TestRef<IStoreBatch>& batch : m_batches)
            batch->FlushBatch();
    }
    std::vector<TestRef<IStoreBatch>> m_batches;
};

class KillTest : public FaultsTrial {
protected:
    static constexpr char kStarted[] = "started";
    static constexpr char kSurvived[] = "survived";

    // In the process that was told to die: does not return.
    void FollowOrder() {
        CKillOrder order;
        if (!ReadOrder(order)) return;
        LeaveStores();
        Disk().LeaveFor(order.owner);
        EnterStores();
        std::unique_ptr<CEagerProgress> eager;
        if (order.eager) eager = std::make_unique<CEagerProgress>(leftStore.Get(), rightStore.Get());
        progress = eager.get();
        WriteFileDurably(JoinPath(Disk().Path(), kStarted), "");
        FaultsOf((order.inSource ? Source() : Target()).Store())->SetKillAtSave(order.save);
        Run();
        WriteFileDurably(JoinPath(Disk().Path(), kSurvived), "");
        std::_Exit(0);  // what the end of a test takes down is not its own
    }

    // False if the run made fewer saves than the order names.
    bool RunAndDie(bool inSource, ULONG save, bool eager) {
        const std::vector<std::string> arguments = ::testing::internal::GetArgvs();
        const std::string program = std::filesystem::absolute(arguments.at(0)).string();
        const auto* test = ::testing::UnitTest::GetInstance()->current_test_info();
        const CKillOrder order{ProcessId(), inSource, save, eager};
        const std::string command = "\"" + program + "\" --gtest_filter=" + test->test_suite_name() + "." +
                                    test->name() + " " + TextOf(order) + " >" +
                                    JoinPath(Disk().Path(), "words") + " 2>&1";
        const int ended = std::system(command.c_str());
        EXPECT_TRUE(FileExists(JoinPath(Disk().Path(), kStarted))) << command << " ended with " << ended;
        return !FileExists(JoinPath(Disk().Path(), kSurvived));
    }

    void KillAtEachSave(bool inSource, bool eager) {
        ULONG save = 1;
        for (bool died = true; died && !HasFailure(); save += Stride()) {
            died = RunAndDie(inSource, save, eager);
            EnterStores();
            Run();
            ExpectWholeAfter(died ? Trouble::Deadly : Trouble::Passing,
                             "dying at save " + std::to_string(save) + " of the " +
                                 (inSource ? "source" : "target") + (eager ? " with what was saved" : ""));
            LeaveStores();
            Disk().BringBack();
        }
        EXPECT_GT(save, kFewestSaves);
    }
};
}  // namespace

INSTANTIATE_TEST_SUITE_P(Kills, KillTest, ::testing::Bool(), [](const auto& which) {
    return std::string(which.param ? "RightIsSource" : "LeftIsSource");
});

TEST_P(KillTest, NextRunMakesGoodWhatADeadOneLeft) {
    FollowOrder();
    MakeChanges();
    LeaveStores();
    Disk().Keep();
    for (const bool eager : {false, true}) {
        KillAtEachSave(true, eager);
        KillAtEachSave(false, eager);
    }
    EnterStores();
}
