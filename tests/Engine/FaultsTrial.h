// A pair of folders that goes through the same trouble again and again: its stores lie where writing costs
// nothing, can be put aside, and can be brought back as they were.
#pragma once
#include <support/MemoryDisk.h>
#include <support/TwoFolders.h>

#include <map>
#include <string>
#include <vector>

enum class Trouble {
    Passing,  // deletions travel as if nothing had been, and what was not deleted stays
    Lasting,  // what was not reached stays as it is
    Deadly,   // with one side's memory written and the other's not, what was deleted there goes here too
};

class FaultsTrial : public TwoFolders {
protected:
    void SetUp() override;

    // Leaves the stores and comes back to them, by new sessions.
    void LeaveStores();
    void EnterStores();
    // Back to what Keep found, with these habits of the stores from then on.
    void StartOver(ULONG leftHabits = 0, ULONG rightHabits = 0);

    // A bit of everything that people do between two runs, over a pair that was synchronised before.
    void MakeChanges();
    // What must hold after a run over these changes that followed one which met trouble: each item once on
    // either side, nothing gone that a person wrote. `trouble` stands in the messages.
    void ExpectWholeAfter(Trouble kind, const std::string& trouble);

private:
    void ExpectEachOnce(StorySide& side, Trouble kind, const std::string& trouble);
    void ExpectNothingGone(const std::string& trouble);

    std::vector<std::string> m_written;  // every text that a person wrote and did not overwrite
};
