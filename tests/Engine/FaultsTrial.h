// A pair of folders that goes through the same trouble again and again: its stores lie where writing costs
// nothing, can be put aside, and can be brought back as they were.
#pragma once
#include <support/TwoFolders.h>

#include <map>
#include <string>
#include <vector>

// A number of the environment, for trials that take long where every call is slow.
unsigned NumberOf(const char* variable, unsigned otherwise);
// Trials of every step of a run take each n-th step only: VELLUM_STRIDE, 1 if it is not set.
unsigned Stride();

// One item as a person sees it.
struct CSeenItem {
    std::string subject;
    std::string body;
};

// Stores lie in memory while one lives, where the system has a place for that: what is tested here is what
// the store was told to keep, not whether the disk kept it.
class CMemoryDisk {
public:
    CMemoryDisk();
    ~CMemoryDisk();
    CMemoryDisk(const CMemoryDisk&) = delete;
    CMemoryDisk& operator=(const CMemoryDisk&) = delete;

    const std::string& Path() const { return m_path; }
    // These wait until the stores are left by everybody; a failed expectation if that does not happen.
    void AwaitClosing() const;
    void Keep();
    void BringBack();
    // To the stores of another process of this program; its own are removed, the others are not.
    void LeaveFor(unsigned processId);

private:
    std::string m_path;
    std::string m_before;
    bool m_own = true;
};

// Subject and body of every item of a folder; of every item below a folder; and of a store whose holding
// folders, conflict folders and other folders all count.
std::vector<CSeenItem> SeenIn(IMsgStore* store, IMAPIFolder* folder);
std::vector<CSeenItem> SeenBelow(IMsgStore* store, IMAPIFolder* folder);
std::vector<CSeenItem> SeenAnywhere(IMsgStore* store);

TestRef<IStoreFaults> FaultsOf(IMsgStore* store);

enum class Trouble {
    Passing,  // deletions travel as if nothing had been, and what was not deleted stays
    Lasting,  // what was not reached stays as it is
    Deadly,   // with one side's memory written and the other's not, what was deleted there goes here too
};

class FaultsTrial : public TwoFolders {
protected:
    void SetUp() override;
    void TearDown() override;

    CMemoryDisk& Disk() { return *m_disk; }
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

    std::unique_ptr<CMemoryDisk> m_disk;
    std::vector<std::string> m_written;  // every text that a person wrote and did not overwrite
};
