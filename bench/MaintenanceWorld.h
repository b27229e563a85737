// A folder of which a tenth are copies of other items, each of these twice there and stamped as by a run.
#pragma once
#include <support/StoreFixture.h>

#include <string>

class CMaintenanceWorld {
public:
    explicit CMaintenanceWorld(int count);

    // Seconds. Each throws std::runtime_error if it did not do what it is measured for.
    double LookForDuplicates();
    double MoveDuplicates();  // once
    double RemoveMarks();     // once

private:
    double Duplicates(bool dryRun);

    int m_count;
    TestProfile m_profile;
    TestRef<IMAPISession> m_session;
    TestRef<IMsgStore> m_store;
    TestRef<IMAPIFolder> m_folder;
};
