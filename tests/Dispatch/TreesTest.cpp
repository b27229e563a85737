// Pairs with subfolders: deep ones and wide ones.
#include <Tarn/Dispatch/PermanentSynchronization.h>
#include <Tarn/Dispatch/RunDispatch.h>
#include <Tarn/Settings/TarnContext.h>
#include <support/StoreFixture.h>

#include <Platform/UserInterface.h>

namespace {

class Trees : public TwoStores {
protected:
    void SetUp() override {
        TwoStores::SetUp();
        mapi = CMapiSession(session.Get());
    }
    void TearDown() override {
        TarnContext().m_settings.Clear();
        PermanentSynchronizations().Clear();
        mapi.Free();
        TwoStores::TearDown();
    }
    CSyncOutcome Run() {
        CTarnSetting setting;
        setting.m_sourceKey = KeyOfFolder(IMAPIFolderPtr(left.Get()));
        setting.m_targetKey = KeyOfFolder(IMAPIFolderPtr(right.Get()));
        setting.m_flags = SYNC_ACTIVE | SYNC_TO_TARGET | SYNC_FROM_TARGET | SYNC_DELETE_IN_TARGET |
                          SYNC_SUBFOLDERS | SYNC_CREATE_SUBFOLDERS;
        TarnContext().m_settings.Clear();
        TarnContext().m_settings.Add(setting);
        CSyncProgressHidden progress;
        CSyncOutcome outcome;
        RunAllSettings(progress, mapi, RUN_MANUAL, &outcome);
        return outcome;
    }
    CMapiSession mapi;
    CRecordingUserInterface shown;
};

TEST_F(Trees, TenLevelsAreMadeAndCarriedBothWays) {
    const auto dig = [](IMAPIFolder* top, const std::string& name) {
        std::vector<TestRef<IMAPIFolder>> levels;
        for (int level = 1; level <= 10; ++level)
            levels.push_back(
                MakeFolder(levels.empty() ? top : levels.back().Get(), name + std::to_string(level)));
        return levels;
    };
    const auto down = dig(left.Get(), "L");
    const auto up = dig(right.Get(), "R");
    SetText(down[4].Get(), PR_CONTAINER_CLASS_A, "IPF.Contact");
    SavedMessage(down[9].Get(), "Deep left");
    SavedMessage(up[9].Get(), "Deep right");
    const CSyncOutcome first = Run();
    EXPECT_EQ(first.pairsRun, 21u);
    EXPECT_EQ(first.phasesFailed + first.rowsFailed + first.pairsNotOpened, 0u);
    const auto other = dig(right.Get(), "L");
    EXPECT_EQ(SubjectsIn(other[9].Get()), "Deep left");
    EXPECT_EQ(TextOf(other[4].Get(), PR_CONTAINER_CLASS_A), "IPF.Contact");
    EXPECT_EQ(SubjectsIn(dig(left.Get(), "R")[9].Get()), "Deep right");
    DeleteBySubject(other[9].Get(), "Deep left");
    EXPECT_EQ(Run().sourceChanged + Run().targetChanged, 1u);
    EXPECT_EQ(SubjectsIn(down[9].Get()), "");
    EXPECT_TRUE(shown.messages.empty());
}

// A thousand folders: each is made once, found again by its name, and run once.
TEST_F(Trees, AThousandFoldersWide) {
    constexpr unsigned folders = 1000;
    for (unsigned i = 0; i < folders; ++i) {
        const auto folder = MakeFolder(left.Get(), "Folder " + std::to_string(i));
        if (i % 100 == 0) SavedMessage(folder.Get(), "Item");
    }
    const CSyncOutcome first = Run();
    EXPECT_EQ(first.pairsRun, folders + 1);
    EXPECT_EQ(first.targetChanged, folders / 100);
    EXPECT_EQ(HierarchyOf(right.Get(), {PR_DISPLAY_NAME_A}).Count(), folders);
    const CSyncOutcome second = Run();
    EXPECT_EQ(second.pairsRun, folders + 1);
    EXPECT_EQ(second.sourceChanged + second.targetChanged, 0u);
    EXPECT_TRUE(shown.messages.empty());
}

}  // namespace
