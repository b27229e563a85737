// The list of pairs: its text form, its home in the mailbox, the file, and what happens to text that
// nobody understands.
#include <Platform/Files.h>
#include <Platform/Registry.h>
#include <Platform/UserInterface.h>
#include <Tarn/Settings/TarnContext.h>
#include <Tarn/Settings/TarnSettings.h>
#include <support/StoreFixture.h>

#include <atomic>
#include <random>
#include <thread>

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
        RemoveTree(CTarnSettings::FilePath());
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

TEST(SettingsText, MembersBelongToTheRecordThatTheyStandBehind) {
    CTarnSettings settings;
    settings.ParseSettingsText(
        "AA:11;BB:22;9;0;0;0;0;s;t\r\n+ ;a@b;Ann\r\nCC:33;DD:44;1;0;0;0;0;s2;t2\r\n+ ;c@d;Cid\r\n");
    ASSERT_EQ(settings.Count(), 2u);
    ASSERT_EQ(settings.At(1).m_emails.size(), 1u) << "or a pair is shared with people of another";
    EXPECT_EQ(settings.At(1).m_emails[0].m_address, "c@d");
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

// Every field of every record, whatever stands in the records around it: what is empty must not be filled
// from there, and what is full must not move.
TEST(SettingsText, EveryListIsReadBackAsItWasWritten) {
    std::mt19937 random(3);
    const auto one = [&](std::vector<std::string> texts) {
        return texts[std::uniform_int_distribution<size_t>(0, texts.size() - 1)(random)];
    };
    unsigned emptyBehindQuery = 0, queriesWithoutGroup = 0;
    for (int list = 0; list < 400; ++list) {
        CTarnSettings written;
        for (int i = 0; i < 5; ++i) {
            CTarnSetting pair = Pair("A" + std::to_string(i) + ":11", one({"Home\\A", "a;b\n", "s"}));
            pair.m_targetPath = one({"", " ", "t"});
            pair.m_groupId = one({"", "g", "two words"});
            pair.m_query = one({"", "Subject = \"x\"", "q"});
            pair.m_flags = one({"", "x"}).empty() ? ULONG{SYNC_ACTIVE} : 0xFFFFFFFFu;
            if (one({"", "", "m"}) == "m") pair.m_emails = {{"Ann", "a@b", ""}, {"", one({"c@d", ""}), "s"}};
            queriesWithoutGroup += pair.m_groupId.empty() && !pair.m_query.empty();
            emptyBehindQuery +=
                i > 0 && pair.m_query.empty() && !written.At(written.Count() - 1).m_query.empty();
            written.Add(pair);
        }
        const std::string text = written.BuildSettingsText();
        CTarnSettings read;
        ASSERT_TRUE(read.ParseSettingsText(text)) << text;
        ASSERT_EQ(read.Count(), written.Count()) << text;
        for (size_t i = 0; i < read.Count(); ++i) {
            EXPECT_EQ(read.At(i).m_query, written.At(i).m_query) << text;
            EXPECT_EQ(read.At(i).m_groupId, written.At(i).m_groupId) << text;
            EXPECT_EQ(read.At(i).m_flags, written.At(i).m_flags) << text;
            EXPECT_EQ(read.At(i).m_emails.size(), written.At(i).m_emails.size()) << text;
        }
        ASSERT_EQ(read.BuildSettingsText(), text) << "and stays so";
    }
    EXPECT_GT(emptyBehindQuery, 100u);
    EXPECT_GT(queriesWithoutGroup, 100u);
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
    EXPECT_EQ(shown.messages.size(), 1u) << "the person is told once";
}

TEST_F(SettingsStore, EmptyingTheListForgivesNothing) {
    const std::string damaged = "AA:11;BB:22;9;0;0;0;0;s;t\r\nsomething from the future";
    PlantMessage(Inbox(), damaged);
    CTarnSettings settings = Loaded();
    settings.Clear();
    settings.Add(Pair("CC:33"));
    EXPECT_TRUE(settings.Save(mapi));
    EXPECT_EQ(BodyOf(CTarnSettings::KeptSubject), damaged);
}

TEST_F(SettingsStore, AListThatWouldNotBeReadBackIsRefused) {
    CTarnSettings settings;
    settings.Add(Pair("AA:11"));
    ASSERT_TRUE(settings.Save(mapi));
    CTarnSetting cut = Pair("CC:33"), broken = Pair("CC:33"), twin = Pair("AA:11");
    cut.m_groupId = broken.m_groupId = twin.m_groupId = "the pair";
    cut.m_query = "Subject = \"a;b\"";
    broken.m_query = "Subject = x\r\ny";
    for (const CTarnSetting& pair : {cut, broken, twin}) {
        CTarnSettings changed = Loaded();
        changed.Add(pair);
        EXPECT_FALSE(changed.Save(mapi));
        ASSERT_FALSE(shown.messages.empty());
        EXPECT_NE(shown.messages.back().text.find("\"the pair\""), std::string::npos);
        EXPECT_EQ(SourceKeys(Loaded()), std::vector<std::string>{"AA:11"});
    }
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

    const std::string second = "damaged once more";
    ASSERT_TRUE(WriteFileDurably(CTarnSettings::FilePath(), second));
    settings = Loaded();
    EXPECT_TRUE(settings.Save(mapi));
    ASSERT_TRUE(ReadFileBytes(CTarnSettings::FilePath() + ".kept", kept));
    EXPECT_EQ(kept, damaged) << "what was kept is not replaced";
    ASSERT_TRUE(ReadFileBytes(CTarnSettings::FilePath() + ".kept2", kept));
    EXPECT_EQ(kept, second);
    RemoveFile(CTarnSettings::FilePath() + ".kept2");
}

// A directory in the file's place: there, and neither readable nor to be replaced.
TEST_F(SettingsStore, AFileThatCannotBeReadIsNeverReplaced) {
    CTarnSettings inMessage;
    inMessage.Add(Pair("AA:11"));
    ASSERT_TRUE(inMessage.Save(mapi));
    CRegistryKey key;
    ASSERT_EQ(key.Create(RegistryRoot::CurrentUser, kKey), ERROR_SUCCESS);
    key.WriteDword("StoreInIni", 1);
    ASSERT_TRUE(MakeDirectories(JoinPath(CTarnSettings::FilePath(), "x")));
    CTarnSettings settings;
    EXPECT_FALSE(settings.Load(mapi));
    EXPECT_EQ(settings.Count(), 0u) << "the mailbox holds another list";
    settings.Add(Pair("CC:33"));
    EXPECT_FALSE(settings.Save(mapi));
    EXPECT_FALSE(settings.Change(mapi, [](CTarnSettings&) { return true; }));
    CTarnSettings fresh;
    fresh.m_storeInIni = 1;
    fresh.Add(Pair("CC:33"));
    EXPECT_FALSE(fresh.Save(mapi)) << "what the next Load would not read is no save";
    RemoveTree(CTarnSettings::FilePath());
    EXPECT_EQ(SourceKeys(Loaded()), std::vector<std::string>{"AA:11"});
}

TEST_F(SettingsStore, ChangesAtOnceAllCount) {
    CRegistryKey key;
    ASSERT_EQ(key.Create(RegistryRoot::CurrentUser, kKey), ERROR_SUCCESS);
    key.WriteDword("StoreInIni", 1);
    ASSERT_TRUE(WriteFileDurably(CTarnSettings::FilePath(), std::string(1, '\0')));
    std::vector<std::thread> threads;
    std::atomic<unsigned> changed{0};
    for (int thread = 0; thread < 6; ++thread)
        threads.emplace_back([&, thread] {
            for (int i = 0; i < 5; ++i)
                changed += CTarnSettings().Change({}, [&](CTarnSettings& settings) {
                    settings.Add(Pair(std::to_string(thread) + std::to_string(i) + ":11"));
                    return true;
                });
        });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(changed, 30u);
    EXPECT_EQ(Loaded().Count(), 30u);
}

TEST_F(SettingsStore, ShowProtocolIsOneWithoutTheKeyAndZeroWithoutTheValue) {
    EXPECT_EQ(Loaded().m_showProtocol, 1u);
    CRegistryKey key;
    ASSERT_EQ(key.Create(RegistryRoot::CurrentUser, kKey), ERROR_SUCCESS);
    EXPECT_EQ(Loaded().m_showProtocol, 0u);
    EXPECT_EQ(Loaded().m_useComputername, 1u);
}

// Once, and from then on: whichever call of the store fails while a pair is added, the list is the former or
// the new one, as the answer says.
TEST_F(SettingsStore, AChangeThatFailsLeavesTheFormerList) {
    TestRef<IStoreFaults> faults;
    ASSERT_EQ(leftStore->QueryInterface(IID_IStoreFaults, reinterpret_cast<void**>(faults.Out())), S_OK);
    for (const BOOL lasting : {FALSE, TRUE}) {
        CTarnSettings former;
        former.Add(Pair("AA:11"));
        former.m_timer = true;
        former.m_seconds = 17;
        ASSERT_TRUE(former.Save(mapi));
        unsigned failures = 0;
        for (ULONG n = 1;; ++n) {
            ASSERT_LT(n, 500u);
            const auto before = SourceKeys(Loaded());
            const std::string added = std::to_string(n) + ":1";
            const size_t messages = shown.messages.size();
            faults->SetFault(n, MAPI_E_CALL_FAILED, lasting);
            const bool changed = CTarnSettings().Change(mapi, [&](CTarnSettings& settings) {
                settings.Add(Pair(added));
                return true;
            });
            const bool reached = faults->CallCount() >= n;
            faults->SetFault(0, S_OK, FALSE);
            auto expected = before;
            if (changed) expected.push_back(added);
            const CTarnSettings after = Loaded();
            EXPECT_EQ(SourceKeys(after), expected) << "after the failure of call " << n;
            EXPECT_TRUE(after.m_timer && after.m_seconds == 17u) << n;
            EXPECT_EQ(HiddenMessages(CTarnSettings::MessageSubject), 1u) << n;
            EXPECT_EQ(HiddenMessages(CTarnSettings::KeptSubject), 0u) << n;
            EXPECT_TRUE(changed || shown.messages.size() > messages) << "a failure is told, " << n;
            failures += !changed;
            if (!reached) break;
        }
        EXPECT_GT(failures, 10u);
    }
}

}  // namespace
