#include "FaultsTrial.h"

#include <algorithm>
#include <set>

void FaultsTrial::SetUp() {
    UseMemoryDisk();
    TwoFolders::SetUp();
    expectMessages = true;  // a run that meets trouble tells of it
    foretells = false;      // nobody plans for that
}

void FaultsTrial::LeaveStores() {
    Close();
}

void FaultsTrial::EnterStores() {
    Reopen();
}

void FaultsTrial::StartOver(ULONG leftHabits, ULONG rightHabits) {
    LeaveStores();
    Disk().BringBack();
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
