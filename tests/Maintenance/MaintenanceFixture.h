// Folders of a pair under maintenance, through every trouble.
#pragma once
#include <Engine/FaultsTrial.h>
#include <Tarn/Maintenance/Duplicates.h>
#include <Tarn/Maintenance/IdMaintenance.h>
#include <Tarn/Maintenance/SearchKeys.h>

class MaintenanceTest : public FaultsTrial {
protected:
    static CMaintainedFolder Of(const StorySide& side) {
        return {IMsgStorePtr(side.Store()), IMAPIFolderPtr(side.Folder())};
    }
    CDuplicateOutcome Clean(StorySide& side, const CDuplicateOptions& options = {},
                            IMaintenanceWatch* watch = nullptr) {
        const CRecordingUserInterface person;
        const CDuplicateOutcome done = RemoveDuplicates(Of(side), options, watch);
        boxes = person.messages;
        return done;
    }
    std::array<CDuplicateOutcome, 2> CleanPair() {
        const CRecordingUserInterface person;
        const auto done = RemoveDuplicatesOfPair(Of(Source()), Of(Target()), {}, nullptr);
        boxes = person.messages;
        return done;
    }
    // Everything that runs have left, taken away on both sides.
    void ForgetRuns(bool marks, bool files) {
        for (StorySide* side : {&Left(), &Right()}) {
            if (marks) {
                EXPECT_EQ(RemoveSyncMarks(Of(*side), false, nullptr).failed, 0u);
            }
            if (files) {
                EXPECT_EQ(RemoveSyncFiles(Of(*side), false).failed, 0u);
            }
            NextMoment();
        }
    }
    // `body` with empty folders, for stores without habits and for stores that have each of them alone.
    template <class Body>
    void WithEachHabit(Body body) {
        LeaveStores();
        Disk().Keep();
        EnterStores();
        body();
        for (const CStoreHabitName& habit : kStoreHabits) {
            SCOPED_TRACE(habit.name);
            StartOver(habit.habit, habit.habit);
            body();
            if (HasFailure()) return;
        }
    }

    std::vector<CRecordingUserInterface::Message> boxes;  // of the last call
};

// Counts what it is told, and cancels at a poll.
class CCountingWatch : public IMaintenanceWatch {
public:
    explicit CCountingWatch(unsigned cancelAt = ~0u) : m_cancelAt(cancelAt) {}
    void ShowRow(unsigned row, unsigned) override { rows.push_back(row); }
    bool IsCancelled() override { return ++polls >= m_cancelAt; }
    std::vector<unsigned> rows;
    unsigned polls = 0;

private:
    unsigned m_cancelAt;
};

#define INSTANTIATE_BOTH_WAYS(prefix, fixture)                                           \
    INSTANTIATE_TEST_SUITE_P(prefix, fixture, ::testing::Bool(), [](const auto& which) { \
        return std::string(which.param ? "RightIsSource" : "LeftIsSource");              \
    })
