// A pair of folders in two stores with items as real ones are (BenchItems.h).
#pragma once
#include <Tarn/Engine/syncfolder.h>
#include <support/StoreFixture.h>

#include <string>

class CBenchWorld {
public:
    // Makes profile, stores and folders, and `count` items in the left folder. Not measured.
    explicit CBenchWorld(int count);

    // One run over the pair in both directions with deletions. Returns seconds; throws
    // std::runtime_error if the run did not end cleanly.
    double Sync();

    // Changes body and one property of every `step`-th item, beginning with item `first`.
    void ChangeItems(bool leftSide, int first, int step);

    // Items in both folders; for the check that the runs did what they are measured for.
    unsigned LeftCount() const { return CountOf(m_left.Get()); }
    unsigned RightCount() const { return CountOf(m_right.Get()); }

private:
    static unsigned CountOf(IMAPIFolder* folder);

    TestProfile m_profile;
    TestRef<IMAPISession> m_session;
    TestRef<IMsgStore> m_leftStore, m_rightStore;
    TestRef<IMAPIFolder> m_left, m_right;
    std::string m_leftKey, m_rightKey;
};
