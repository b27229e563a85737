// What a store's file shows to others: its rights, its versions, and the times that it gives.
#include <MapiStore/Storage/GivenTimes.h>
#include <Platform/Clock.h>

#include <algorithm>
#include <chrono>
#include <random>
#include <set>

#include "ItemParts.h"
#include "SessionFixture.h"

namespace {

using StoreFile = StoreSession;

constexpr std::uint64_t kMinute = 60ull * 10'000'000, kDay = 24 * 60 * kMinute;

std::uint64_t SavedTime(IMAPIFolder* folder, const std::string& subject) {
    return TicksOf(TimeOf(SavedMessage(folder, subject).Get(), PR_LAST_MODIFICATION_TIME));
}

}  // namespace

// --- times -----------------------------------------------------------------------------------------

TEST(GivenTimes, NeverRepeatAndFollowAClockThatIsSetBack) {
    for (unsigned seed = 1; seed <= 200; ++seed) {
        std::mt19937_64 random(seed);
        const auto below = [&random](std::uint64_t limit) { return random() % limit; };
        const std::uint64_t real = 1000 * kDay;
        std::uint64_t passed = 0, wrong = 0;
        CGivenTimes times;
        std::set<std::uint64_t> given;
        for (int i = 0; i < 400; ++i) {
            passed += below(4) ? below(20) : below(30) * kMinute;
            if (below(30) == 0) wrong = below(2) ? 0 : below(2) ? kDay * below(3000) : kMinute * below(60);
            const std::uint64_t clock = real + passed + wrong;
            const std::uint64_t time = times.Next(clock);
            ASSERT_TRUE(given.insert(time).second) << "seed " << seed << ", step " << i;
            ASSERT_GE(time, clock);
            times = CGivenTimes::FromBytes(std::string(times.Bytes()));
        }
        ASSERT_LE(times.Bytes().size(), CGivenTimes::kMostSpans * sizeof(CGivenTimes::Span));
    }
    // One save years ahead, in the middle of days of work: nothing after it is dated there.
    CGivenTimes times;
    for (std::uint64_t clock = 1000 * kDay; clock < 1030 * kDay;
         clock += 7 * kMinute + clock % 3 * 100 * kMinute) {
        const bool isWrong = clock / kDay == 1010 && times.Latest() < 3000 * kDay;
        EXPECT_EQ(isWrong ? times.Next(4000 * kDay) : 4000 * kDay, 4000 * kDay);
        EXPECT_EQ(times.Next(clock), clock);
    }
    EXPECT_EQ(times.Next(4000 * kDay), 4000 * kDay + 1);
}

TEST_F(StoreFile, ASaveUnderAClockYearsAheadDatesNothingElse) {
    const std::uint64_t start = TicksOf(UtcNow());
    SavedMessage(left.Get(), "before");
    {
        const CClockOverride ahead(FileTimeOf(start + 1500 * kDay));
        EXPECT_EQ(SavedTime(left.Get(), "ahead"), start + 1500 * kDay);
        EXPECT_EQ(SavedTime(left.Get(), "ahead, too"), start + 1500 * kDay + 1);
    }
    EXPECT_LT(SavedTime(left.Get(), "after"), start + kDay);
    // A file that an older program has left so: it kept the latest time alone.
    LogOffAll();
    Sql(FileOf("store1.vst"), kToVersion3);
    ASSERT_EQ(OpenFirst(), S_OK);
    left = MakeFolder(OpenStoreFolder(leftStore.Get(), PR_IPM_SUBTREE_ENTRYID).Get(), "Left");
    EXPECT_LT(SavedTime(left.Get(), "brought up"), start + kDay);
    const CClockOverride ahead(FileTimeOf(start + 1500 * kDay));
    EXPECT_EQ(SavedTime(left.Get(), "ahead again"), start + 1500 * kDay + 2);
}

// --- what other programs and processes do with the file ----------------------------------------------

TEST_F(StoreFile, OtherProgramsMayRewriteIt) {
    MakeFolder(OpenStoreFolder(leftStore.Get(), PR_IPM_SUBTREE_ENTRYID).Get(), "M\xC3\xBCll");
    LogOffAll();
    for (const char* statement : {"VACUUM; REINDEX; ANALYZE; PRAGMA integrity_check", kToVersion3}) {
        Sql(FileOf("store1.vst"), statement);
        ASSERT_EQ(OpenFirst(), S_OK) << statement;
        auto again = OpenStoreFolder(leftStore.Get(), PR_IPM_SUBTREE_ENTRYID);
        TestRef<IMAPIFolder> folder;
        EXPECT_EQ(again->CreateFolder(FOLDER_GENERIC, reinterpret_cast<LPTSTR>(Mutable("M\xC3\xBCll")),
                                      nullptr, nullptr, 0, folder.Out()),
                  MAPI_E_COLLISION)
            << "found by its name after " << statement;
        again.Reset();
        leftStore.Reset();
        session.Reset();
    }
}

// One object holds on to its version: what belonged to it and was not read yet is never another one's.
TEST_F(StoreFile, WhatSomebodyReplacedMeanwhileIsNotTakenForTheOldOne) {
    auto first = NewMessage(left.Get(), "one", std::string(3000, '1'));
    ASSERT_EQ(ModifyRecipient(first.Get(), MODRECIP_ADD, "one", MAPI_TO), S_OK);
    ASSERT_EQ(AddAttachment(first.Get(), "one", std::string(3000, '1'))->SaveChanges(0), S_OK);
    ASSERT_EQ(first->SaveChanges(KEEP_OPEN_READWRITE), S_OK);
    const std::string id = BytesOf(first.Get(), PR_ENTRYID);
    auto opened = OpenTestMessage(leftStore.Get(), id), forced = OpenTestMessage(leftStore.Get(), id);
    TestRef<IAttach> attach;
    ASSERT_EQ(opened->OpenAttach(0, nullptr, 0, attach.Out()), S_OK);
    opened = OpenTestMessage(leftStore.Get(), id);
    ASSERT_EQ(SetText(first.Get(), PR_BODY_A, std::string(4000, '2')), S_OK);
    ASSERT_EQ(first->DeleteAttach(0, 0, nullptr, 0), S_OK);
    ASSERT_EQ(first->SaveChanges(KEEP_OPEN_READWRITE), S_OK);
    const auto streamCode = [](IMAPIProp* object, ULONG tag) {
        TestRef<IStream> stream;
        return object->OpenProperty(tag, &IID_IStream, 0, 0, reinterpret_cast<IUnknown**>(stream.Out()));
    };
    TestRef<IMAPITable> table;
    EXPECT_EQ(TextOf(opened.Get(), PR_SUBJECT_A), "one");
    EXPECT_EQ(streamCode(opened.Get(), PR_BODY_A), MAPI_E_OBJECT_CHANGED);
    EXPECT_EQ(opened->GetRecipientTable(0, table.Out()), MAPI_E_OBJECT_CHANGED);
    EXPECT_EQ(opened->GetAttachmentTable(0, table.Out()), MAPI_E_OBJECT_CHANGED);
    EXPECT_EQ(streamCode(attach.Get(), PR_ATTACH_DATA_BIN), MAPI_E_OBJECT_CHANGED);
    // What is saved by force goes over what lies there, and does not mix with it.
    ASSERT_EQ(SetText(forced.Get(), PR_SUBJECT_A, "forced"), S_OK);
    ASSERT_EQ(forced->SaveChanges(FORCE_SAVE | KEEP_OPEN_READWRITE), S_OK);
    EXPECT_EQ(StreamOf(OpenTestMessage(leftStore.Get(), id).Get(), PR_BODY_A), std::string(4000, '2'));
    opened = OpenTestMessage(leftStore.Get(), id);
    ASSERT_EQ(DeleteBySubject(left.Get(), "forced"), S_OK);
    EXPECT_EQ(streamCode(opened.Get(), PR_BODY_A), MAPI_E_OBJECT_DELETED);
}

#ifndef _WIN32

TEST_F(StoreFile, IsOpenToItsOwnerAloneFromTheBeginning) {
    const mode_t mask = umask(0);
    const std::string base = JoinPath(DataDirectory(), "rights");
    const int status = InAnotherProcess([&] {
        SetBaseDirectory(base);
        TestProfile own("Owner's own", 1);
        const auto ownSession = own.LogOn();
        const auto store = OpenTestStore(ownSession.Get(), "Store 1");
        SavedMessage(OpenReceiveFolder(store.Get()).Get(), "private");
        unsigned seen = 0;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(base)) {
            struct stat found {};
            if (stat(entry.path().c_str(), &found) != 0 || (found.st_mode & 077) != 0) _exit(1);
            ++seen;
        }
        _exit(seen >= 8 ? 0 : 2);  // data, config, profiles, profile's directory and list, store, log, index
    });
    umask(mask);
    EXPECT_EQ(status, 0) << WEXITSTATUS(status);
    RemoveTree(base);
}

// A reader in another process, while this one replaces the whole message again and again.
TEST_F(StoreFile, EveryReadIsOfOneVersion) {
    auto message = SavedMessage(left.Get(), "?");
    const std::string id = BytesOf(message.Get(), PR_ENTRYID);
    const auto write = [&](char letter) {
        const std::string text(1200, letter);
        EXPECT_EQ(SetText(message.Get(), PR_SUBJECT_A, std::string(1, letter)), S_OK);
        EXPECT_EQ(SetText(message.Get(), PR_BODY_A, text), S_OK);
        EXPECT_EQ(ModifyRecipient(message.Get(), 0, std::string(1, letter), MAPI_TO), S_OK);
        message->DeleteAttach(0, 0, nullptr, 0);
        message->DeleteAttach(1, 0, nullptr, 0);
        EXPECT_EQ(AddAttachment(message.Get(), std::string(1, letter), text)->SaveChanges(0), S_OK);
        return message->SaveChanges(KEEP_OPEN_READWRITE);
    };
    ASSERT_EQ(write('a'), S_OK);
    const std::string stop = JoinPath(DataDirectory(), "stop");
    RemoveFile(stop);
    message.Reset();
    LogOffAll();
    const pid_t child = fork();
    if (child == 0) {
        if (OpenFirst() != S_OK) _exit(1);
        unsigned whole = 0, changed = 0;
        std::set<char> letters;
        while (!FileExists(stop) || whole < 20) {
            auto opened = OpenTestMessage(leftStore.Get(), id);
            if (!opened) _exit(2);
            const std::string subject = TextOf(opened.Get(), PR_SUBJECT_A);
            TestRef<IMAPITable> table;
            const HRESULT recipients = opened->GetRecipientTable(0, table.Out());
            const TestRows rows =
                recipients == S_OK ? TestRows(table.Get(), {PR_DISPLAY_NAME_A}) : TestRows();
            TestRef<IStream> body;
            const HRESULT text =
                opened->OpenProperty(PR_BODY_A, &IID_IStream, 0, 0, reinterpret_cast<IUnknown**>(body.Out()));
            if (recipients != S_OK || text != S_OK) {
                if (recipients != MAPI_E_OBJECT_CHANGED && text != MAPI_E_OBJECT_CHANGED) _exit(3);
                ++changed;
                continue;
            }
            char bytes[1200];
            ULONG read = 0;
            body->Read(bytes, sizeof bytes, &read);
            if (read != sizeof bytes || bytes[0] != subject[0] || bytes[1199] != subject[0]) _exit(4);
            if (rows.Count() != 1 || rows.Text(0, 0) != subject) _exit(5);
            letters.insert(subject[0]);
            ++whole;
        }
        _exit(letters.size() < 3 ? 6 : 0);
    }
    ASSERT_EQ(OpenFirst(), S_OK);
    message = OpenTestMessage(leftStore.Get(), id);
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(1500);
    for (unsigned i = 0; std::chrono::steady_clock::now() < end; ++i)
        ASSERT_EQ(write(static_cast<char>('a' + i % 26)), S_OK);
    WriteFileDurably(stop, "");
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0) << WEXITSTATUS(status);
}

// A file in a directory that cannot be written is read without a log and locks as long as nobody else writes.
TEST_F(StoreFile, AReaderWithoutRightsNoticesAWriter) {
    if (geteuid() != 0) GTEST_SKIP() << "needs a user who may write what another one may not";
    for (int i = 0; i < 400; ++i)
        SavedMessage(left.Get(), std::to_string(i), std::string(800, 'x'));
    LogOffAll();
    const std::string file = FileOf("store1.vst");
    const auto directory = std::filesystem::path(file).parent_path();
    const auto allow = [](const std::filesystem::path& path, unsigned mode) {
        std::filesystem::permissions(path, std::filesystem::perms(mode));
    };
    LetOthersPass(directory);
    allow(file, 0644);
    allow(directory / "profile", 0644);
    int toChild[2], toParent[2];
    ASSERT_EQ(pipe(toChild) + pipe(toParent), 0);
    const pid_t child = fork();
    if (child == 0) {
        if (setuid(65534) != 0 || OpenFirst() != S_OK) _exit(1);
        auto folder = MakeFolder(OpenStoreFolder(leftStore.Get(), PR_IPM_SUBTREE_ENTRYID).Get(), "Left");
        TestRef<IMAPITable> table;
        if (folder->GetContentsTable(0, table.Out()) != S_OK) _exit(2);
        for (const int expected : {400, 401, 1, 2}) {
            char step = 0;
            if (read(toChild[0], &step, 1) != 1) _exit(3);
            int found = -1;
            // The one call in which the writer came may fail; the next one sees what he has written.
            for (int attempt = 0; attempt < 2 && found != expected; ++attempt) {
                TestRef<IMAPITable> now;
                if (folder->GetContentsTable(0, now.Out()) != S_OK) continue;
                ULONG count = 0;
                found = now->GetRowCount(0, &count) == S_OK ? static_cast<int>(count) : -1;
            }
            if (found != expected) _exit(10 + expected % 100);
            if (write(toParent[1], &step, 1) != 1) _exit(4);
        }
        _exit(0);
    }
    const auto ask = [&] {
        char step = 's';
        return write(toChild[1], &step, 1) == 1 && read(toParent[0], &step, 1) == 1;
    };
    close(toParent[1]);
    EXPECT_TRUE(ask());
    ASSERT_EQ(OpenFirst(), S_OK);
    left = MakeFolder(OpenStoreFolder(leftStore.Get(), PR_IPM_SUBTREE_ENTRYID).Get(), "Left");
    SavedMessage(left.Get(), "while the other one reads");
    EXPECT_TRUE(ask());
    ASSERT_EQ(left->EmptyFolder(0, nullptr, 0), S_OK);
    SavedMessage(left.Get(), "alone");
    LogOffAll();  // the log has gone into the file, where the reader's pages lay
    EXPECT_TRUE(ask());
    ASSERT_EQ(OpenFirst(), S_OK);
    left = MakeFolder(OpenStoreFolder(leftStore.Get(), PR_IPM_SUBTREE_ENTRYID).Get(), "Left");
    SavedMessage(left.Get(), "the second");
    EXPECT_TRUE(ask());
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0) << WEXITSTATUS(status);
}
#endif
