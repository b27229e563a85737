// The text form of a pair.
#include <Tarn/Engine/TarnSetting.h>
#include <gtest/gtest.h>

namespace {
CTarnSetting FullSetting() {
    CTarnSetting setting;
    setting.m_sourceKey = "AA:BB";
    setting.m_targetKey = "CC:DD";
    setting.m_sourcePath = "Mail\\Calendar";
    setting.m_targetPath = "Public\\Calendar";
    setting.m_groupId = "group";
    setting.m_query = "Subject = \"x\"";
    setting.m_flags = SYNC_TO_TARGET | SYNC_ACTIVE | SYNC_SUBFOLDERS;
    return setting;
}

CTarnSetting Read(const std::string& line) {
    CTarnSetting setting;
    setting.FromText(line);
    return setting;
}
}  // namespace

TEST(TarnSetting, RecordLineIsWrittenAsKnown) {
    EXPECT_EQ(FullSetting().ToText(),
              "AA:BB;CC:DD;4105;0;0;0;0;Mail\\Calendar;Public\\Calendar;group;Subject = \"x\"");
}

TEST(TarnSetting, EmptyPathsBecomeABlankInTheRecordToo) {
    CTarnSetting setting;
    EXPECT_EQ(setting.ToText(), ";;0;0;0;0;0; ; ;;");
    EXPECT_EQ(setting.m_sourcePath, " ");
    EXPECT_EQ(setting.m_targetPath, " ");
}

TEST(TarnSetting, FullRecordComesBack) {
    CTarnSetting written = FullSetting();
    const CTarnSetting read = Read(written.ToText());
    EXPECT_EQ(read.m_sourceKey, written.m_sourceKey);
    EXPECT_EQ(read.m_targetKey, written.m_targetKey);
    EXPECT_EQ(read.m_sourcePath, written.m_sourcePath);
    EXPECT_EQ(read.m_targetPath, written.m_targetPath);
    EXPECT_EQ(read.m_groupId, written.m_groupId);
    EXPECT_EQ(read.m_query, written.m_query);
    EXPECT_EQ(read.m_flags, written.m_flags);
}

TEST(TarnSetting, QueryWithoutGroupMovesIntoTheGroup) {
    CTarnSetting written = FullSetting();
    written.m_groupId.clear();
    const CTarnSetting read = Read(written.ToText());
    EXPECT_EQ(read.m_groupId, written.m_query);
    EXPECT_TRUE(read.m_query.empty());
}

TEST(TarnSetting, SemicolonCutsTheQuery) {
    CTarnSetting written = FullSetting();
    written.m_query = "a;b";
    EXPECT_EQ(Read(written.ToText()).m_query, "a");
}

TEST(TarnSetting, MissingAndSenselessFieldsDoNoHarm) {
    CTarnSetting setting = FullSetting();
    setting.FromText("");
    EXPECT_EQ(setting.m_sourceKey, "AA:BB");
    setting.FromText(";;;");
    EXPECT_EQ(setting.m_sourceKey, "AA:BB");
    setting.FromText("EE:FF");
    EXPECT_EQ(setting.m_sourceKey, "EE:FF");
    EXPECT_EQ(setting.m_targetKey, "CC:DD");
    EXPECT_EQ(Read("a;b;not a number").m_flags, 0u);
    EXPECT_EQ(Read("a;b;-1").m_flags, 0xFFFFFFFFu);
    Read("a;b;99999999999999999999999999");
}

TEST(TarnSetting, MembersFollowTheRecord) {
    CTarnSetting setting = FullSetting();
    setting.m_emails = {{"Ann", "ann@example.org", ""}, {"", "", ""}};
    const std::string text = setting.ToText();
    EXPECT_EQ(text.substr(text.find("\r\n")), "\r\n+ ;ann@example.org;Ann\r\n+ ; ; \r\n");

    CTarnSetting read;
    read.EmailsFromText({"+ ;ann@example.org;Ann", "+ ; ; ", "spare"});
    ASSERT_EQ(read.m_emails.size(), 3u);
    EXPECT_EQ(read.m_emails[0].m_spare, " ");
    EXPECT_EQ(read.m_emails[0].m_address, "ann@example.org");
    EXPECT_EQ(read.m_emails[0].m_name, "Ann");
    EXPECT_EQ(read.m_emails[1].m_name, " ");
    EXPECT_EQ(read.m_emails[2].m_spare, "spare");
    EXPECT_TRUE(read.m_emails[2].m_address.empty());
}
