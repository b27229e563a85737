// Stores that go through the same trouble again and again: they lie where writing costs nothing, can be put
// aside, and can be brought back as they were. What is in them then is told here as well.
#pragma once
#include <support/StoreFixture.h>

#include <string>
#include <vector>

// A number of the environment, for trials that take long where every call is slow.
unsigned NumberOf(const char* variable, unsigned otherwise);
// Trials of every step of a run take each n-th step only: VELLUM_STRIDE, 1 if it is not set.
unsigned Stride();

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

// One item as a person sees it.
struct CSeenItem {
    std::string subject;
    std::string body;
};

// Subject and body of every item of a folder; of every item below a folder; and of a store whose holding
// folders, conflict folders and other folders all count.
std::vector<CSeenItem> SeenIn(IMsgStore* store, IMAPIFolder* folder);
std::vector<CSeenItem> SeenBelow(IMsgStore* store, IMAPIFolder* folder);
std::vector<CSeenItem> SeenAnywhere(IMsgStore* store);

TestRef<IStoreFaults> FaultsOf(IMsgStore* store);
