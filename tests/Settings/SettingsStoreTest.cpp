// The list of pairs: its text form, its home in the mailbox, the file, and what happens to text that
// nobody understands.
#include <Platform/Files.h>
#include <Platform/Registry.h>
#include <Platform/UserInterface.h>
#include <Tarn/Settings/TarnContext.h>
#include <Tarn/Settings/TarnSettings.h>
#include <support/StoreFixture.h>

namespace {

constexpr char kKey[] = "Software\\Ostrand\\Vellum";

CTarnSetting Pair(const std::string& source, const std::string& path = "Store\\Inbox") {
    CTarnSetting setting;
    setting.m_sourceKey = source;
    setting.m_targetKey = "BB:22";
    setting.m_sourcePath = path;
    setting.m_targetPath = "Other\\Inbox";
    setting.m_flags = SYNC_ACTIVE | SYNC_TO_TARGET;
    return setting;
}

std::vector<std::string> SourceKeys(const CTarnSettings& settings) {
    std::vector<std::string> keys;
    for (size_t i = 0; i < settings.Count(); ++i)
        keys.push_back(settings.At(i).m_sourceKey);
    return keys;
}

class SettingsStore : public TwoStores {
protected:
    void SetUp() override {
        TwoStores::SetUp();
        DeleteRegistryTree(RegistryRoot::CurrentUser, kKey);
        RemoveFile(CTarnSettings::FilePath());
        RemoveFile(CTarnSettings::FilePath() + ".kept");
        mapi = CMapiSession(session.Get());
    }
    void TearDown() override {
        mapi.Free();
        TwoStores::TearDown();
    }

    CTarnSettings Loaded() {
        CTarnSettings settings;
        settings.Load(mapi);
        return settings;
    }
    IMAPIFolderPtr Inbox() { return mapi.OpenDefaultStore().GetReceiveFolder(""); }
    unsigned HiddenMessages(const std::string& subject) {
        const CMapiRowSet rows = Inbox()._rawAssociatedTable().QueryRows({PR_SUBJECT_A});
        unsigned found = 0;
        for (ULONG i = 0; i < rows.Count(); ++i)
            found += rows.Cell(i, 0).Str() == subject;
        return found;
    }
    // Puts a settings message with this body where `folder` is.
    void PlantMessage(const IMAPIFolderPtr& folder, const std::string& body) {
        IMessagePtr message = folder.CreateMessage(nullptr, MAPI_ASSOCIATED);
        message.SetStrProp(PR_SUBJECT_A, CTarnSettings::MessageSubject);
        message.SetStrProp(PR_MESSAGE_CLASS_A, CTarnSettings::MessageClass);
        message.SetBody(body);
        message.SaveChanges(0);
    }
    std::string BodyOf(const std::string& subject) {
        return FindOrCreateHidden(Inbox(), subject, CTarnSettings::MessageClass, false).GetBody();
    }

    CMapiSession mapi;
    CRecordingUserInterface shown;
};

TEST(SettingsText, LinesWithOneSourceKeyYieldTheFirst) {
    CTarnSettings settings;
    EXPECT_FALSE(
        settings.ParseSettingsText("AA:11;BB:22;9;0;0;0;0;first;t\r\nAA:11;CC:33;9;0;0;0;0;second;t"));
    ASSERT_EQ(settings.Count(), 1u);
    EXPECT_EQ(settings.At(0).m_sourcePath, "first");
}

TEST(SettingsText, AShortLineInheritsFromTheRecordBefore) {
    CTarnSettings settings;
    settings.ParseSettingsText("AA:11;BB:22;9;0;0;0;0;s;t;group;query\r\nCC:33;DD:44;1;0;0;0;0;s2;t2");
    ASSERT_EQ(settings.Count(), 2u);
    EXPECT_EQ(settings.At(1).m_groupId, "group");
    EXPECT_EQ(settings.At(1).m_query, "query");
}

TEST(SettingsText, MembersOfAnEarlierRecordComeAgainInLaterOnes) {
    CTarnSettings settings;
    settings.ParseSettingsText(
        "AA:11;BB:22;9;0;0;0;0;s;t\r\n+ ;a@b;Ann\r\nCC:33;DD:44;1;0;0;0;0;s2;t2\r\n+ ;c@d;Cid\r\n");
    ASSERT_EQ(settings.Count(), 2u);
    ASSERT_EQ(settings.At(1).m_emails.size(), 2u);
    EXPECT_EQ(settings.At(1).m_emails[0].m_address, "a@b");
    EXPECT_EQ(settings.At(1).m_emails[1].m_address, "c@d");
}

TEST(SettingsText, RecordsWithoutShownPathAndMembersAreNotWritten) {
    CTarnSettings settings;
    settings.Add(Pair("AA:11", ""));
    settings.Add(Pair("CC:33", "-gone"));
    settings.Add(Pair("DD:44"));
    CTarnSetting deleted = Pair("EE:55");
    deleted.m_deleted = 1;
    settings.Add(deleted);
    EXPECT_EQ(settings.BuildSettingsText().substr(0, 5), "DD:44");
    EXPECT_EQ(settings.BuildSettingsText().find("\r\n"), std::string::npos);
}

TEST(SettingsText, WhatIsWrittenIsReadWhole) {
    CTarnSettings written;
    CTarnSetting shared = Pair("AA:11");
    shared.m_groupId = "group";
    shared.m_query = "Subject = \"x\"";
    shared.m_emails.push_back({"Ann", "a@b", ""});
    written.Add(shared);
    written.Add(Pair("CC:33"));
    CTarnSettings read;
    EXPECT_TRUE(read.ParseSettingsText(written.BuildSettingsText()));
    ASSERT_EQ(read.Count(), 2u);
    EXPECT_EQ(read.At(0).m_query, shared.m_query);
    EXPECT_EQ(read.At(0).m_flags, shared.m_flags);
}

TEST(SettingsText, HostileTextNeverFailsAndLoadsWhatCanBeLoaded) {
    const std::string good = "AA:11;BB:22;9;0;0;0;0;s;t";
    for (const std::string& bad :
         {std::string("\r\n\r\n"), std::string(";;;;;;"), std::string("+;;;"), std::string(100000, ';'),
          std::string(200000, 'x'), std::string("a;b\0c;d", 7), std::string("1;2;99999999999999999999"),
          std::string("\n+\n+\r+"), std::string("no keys at all")}) {
        CTarnSettings settings;
        EXPECT_FALSE(settings.ParseSettingsText(bad + "\r\n" + good) && bad != "\r\n\r\n");
        EXPECT_NE(settings.Find("AA:11"), nullptr) << bad.substr(0, 20);
    }
}

TEST_F(SettingsStore, TheListTravelsInAHiddenMessage) {
    CTarnSettings settings;
    settings.Add(Pair("AA:11"));
    settings.m_timer = true;
    settings.m_seconds = 17;
    EXPECT_TRUE(settings.Save(mapi));
    EXPECT_TRUE(settings.Save(mapi));
    EXPECT_EQ(HiddenMessages(CTarnSettings::MessageSubject), 1u);

    const CTarnSettings loaded = Loaded();
    EXPECT_EQ(SourceKeys(loaded), std::vector<std::string>{"AA:11"});
    EXPECT_TRUE(loaded.m_timer);
    EXPECT_EQ(loaded.m_seconds, 17u);
    EXPECT_TRUE(shown.messages.empty());
}

TEST_F(SettingsStore, AnEmptyListGivesAnEmptyListBack) {
    CTarnSettings settings;
    EXPECT_TRUE(settings.Save(mapi));
    EXPECT_EQ(Loaded().Count(), 0u);
}

TEST_F(SettingsStore, TheOldPlaceIsReadAndLeftAlone) {
    const IMAPIFolderPtr root = mapi.OpenDefaultStore()._getIPMRoot();
    PlantMessage(root, "AA:11;BB:22;9;0;0;0;0;s;t");
    CTarnSettings settings = Loaded();
    EXPECT_EQ(SourceKeys(settings), std::vector<std::string>{"AA:11"});
    EXPECT_EQ(settings.m_seconds, 0u) << "a message without the value gives 0, not the default";
    settings.Add(Pair("CC:33"));
    EXPECT_TRUE(settings.Save(mapi));
    EXPECT_EQ(HiddenMessages(CTarnSettings::MessageSubject), 1u);
    EXPECT_EQ(Loaded().Count(), 2u);
}

TEST_F(SettingsStore, TextThatWasNotUnderstoodIsKeptBesideTheNewOne) {
    const std::string damaged = "AA:11;BB:22;9;0;0;0;0;s;t\r\nsomething from the future";
    PlantMessage(Inbox(), damaged);
    CTarnSettings settings = Loaded();
    EXPECT_NE(settings.Find("AA:11"), nullptr);
    EXPECT_TRUE(settings.Save(mapi));
    EXPECT_EQ(BodyOf(CTarnSettings::KeptSubject), damaged);
    EXPECT_NE(BodyOf(CTarnSettings::MessageSubject), damaged);
    EXPECT_TRUE(settings.Save(mapi));
    EXPECT_EQ(HiddenMessages(CTarnSettings::KeptSubject), 1u) << "a text that was read is not kept";
}

TEST_F(SettingsStore, FileModeKeepsTheListInTheFile) {
    CTarnSettings settings;
    settings.m_storeInIni = 1;
    settings.Add(Pair("AA:11"));
    EXPECT_TRUE(settings.Save(mapi));
    std::string bytes;
    ASSERT_TRUE(ReadFileBytes(CTarnSettings::FilePath(), bytes));
    EXPECT_EQ(bytes, settings.BuildSettingsText() + std::string(1, '\0'));
    EXPECT_EQ(HiddenMessages(CTarnSettings::MessageSubject), 0u);
    EXPECT_EQ(Loaded().Count(), 1u);
}

TEST_F(SettingsStore, FileModeWithoutAFileTakesTheMessageAndTheNextSaveMakesTheFile) {
    CTarnSettings inMessage;
    inMessage.Add(Pair("AA:11"));
    EXPECT_TRUE(inMessage.Save(mapi));
    CRegistryKey key;
    ASSERT_EQ(key.Create(RegistryRoot::CurrentUser, kKey), ERROR_SUCCESS);
    key.WriteDword("StoreInIni", 1);
    CTarnSettings settings = Loaded();
    EXPECT_EQ(settings.Count(), 1u);
    EXPECT_TRUE(settings.Save(mapi));
    EXPECT_TRUE(FileExists(CTarnSettings::FilePath()));
}

TEST_F(SettingsStore, ADamagedFileIsKeptBesideTheNewOne) {
    CRegistryKey key;
    ASSERT_EQ(key.Create(RegistryRoot::CurrentUser, kKey), ERROR_SUCCESS);
    key.WriteDword("StoreInIni", 1);
    const std::string damaged = "AA:11;BB:22;9;0;0;0;0;s;t\r\n\x01\x02garbage;;";
    ASSERT_TRUE(WriteFileDurably(CTarnSettings::FilePath(), damaged));
    CTarnSettings settings = Loaded();
    EXPECT_TRUE(settings.Save(mapi));
    std::string kept;
    ASSERT_TRUE(ReadFileBytes(CTarnSettings::FilePath() + ".kept", kept));
    EXPECT_EQ(kept, damaged);
}

TEST_F(SettingsStore, ShowProtocolIsOneWithoutTheKeyAndZeroWithoutTheValue) {
    EXPECT_EQ(Loaded().m_showProtocol, 1u);
    CRegistryKey key;
    ASSERT_EQ(key.Create(RegistryRoot::CurrentUser, kKey), ERROR_SUCCESS);
    EXPECT_EQ(Loaded().m_showProtocol, 0u);
    EXPECT_EQ(Loaded().m_useComputername, 1u);
}

TEST_F(SettingsStore, ASaveThatFailsIsShownAndLosesNothing) {
    CTarnSettings settings;
    settings.Add(Pair("AA:11"));
    ASSERT_TRUE(settings.Save(mapi));
    settings.Add(Pair("CC:33"));
    TestRef<IStoreFaults> faults;
    ASSERT_EQ(leftStore->QueryInterface(IID_IStoreFaults, reinterpret_cast<void**>(faults.Out())), S_OK);
    unsigned failures = 0;
    for (ULONG n = 1; n < 200; ++n) {
        faults->SetFault(n, MAPI_E_CALL_FAILED, FALSE);
        const bool saved = settings.Save(mapi);
        const bool reached = faults->CallCount() >= n;
        faults->SetFault(0, S_OK, FALSE);
        failures += !saved;
        EXPECT_GE(Loaded().Count(), 1u) << "after the failure of call " << n;
        EXPECT_EQ(HiddenMessages(CTarnSettings::MessageSubject), 1u);
        if (!reached) break;
    }
    EXPECT_GT(failures, 5u);
    EXPECT_EQ(settings.Count(), 2u);
}

}  // namespace
