// Profiles, sessions, several of them at once, faults, batches, and files that are not as they should be.
#include <Platform/Clock.h>

#include "SessionFixture.h"

#include <atomic>
#include <filesystem>
#include <fstream>
#include <set>
#include <thread>

TEST_F(StoreSession, UnknownProfilesDoNotLogOn) {
    IMAPISession* none = nullptr;
    EXPECT_EQ(MAPILogonEx(0, Mutable("No such profile"), nullptr, MAPI_EXTENDED, &none), MAPI_E_LOGON_FAILED);
    EXPECT_EQ(MAPILogonEx(0, nullptr, nullptr, MAPI_EXTENDED, &none), MAPI_E_LOGON_FAILED);
    TestRef<IMAPISession> byDefault;
    EXPECT_EQ(MAPILogonEx(0, Mutable(""), Mutable(""), MAPI_USE_DEFAULT, byDefault.Out()), S_OK);
}

TEST_F(StoreSession, ProfilesAreListedRenamedAndDeleted) {
    TestRef<IProfAdmin> admin;
    ASSERT_EQ(MAPIAdminProfiles(0, admin.Out()), S_OK);
    const std::string odd = "A/b: \xC3\xA4%..";
    ASSERT_EQ(admin->CreateProfile(Mutable(odd), nullptr, 0, 0), S_OK);
    EXPECT_EQ(admin->CreateProfile(Mutable(odd), nullptr, 0, 0), MAPI_E_NO_ACCESS);
    ASSERT_EQ(admin->SetDefaultProfile(Mutable(odd), 0), S_OK);
    ASSERT_EQ(admin->RenameProfile(Mutable(odd), nullptr, Mutable("Plain"), 0, 0), S_OK);
    TestRef<IMAPITable> table;
    ASSERT_EQ(admin->GetProfileTable(0, table.Out()), S_OK);
    const TestRows rows(table.Get(), {PR_DISPLAY_NAME_A, PR_DEFAULT_PROFILE});
    ASSERT_EQ(rows.Count(), 2u);
    EXPECT_EQ(rows.Text(0, 0), "Plain");
    EXPECT_TRUE(rows.Cell(0, 1).Value.b);
    EXPECT_FALSE(rows.Cell(1, 1).Value.b);
    EXPECT_EQ(admin->DeleteProfile(Mutable("Plain"), 0), S_OK);
    EXPECT_EQ(admin->DeleteProfile(Mutable("Plain"), 0), MAPI_E_NOT_FOUND);
    ASSERT_EQ(admin->SetDefaultProfile(Mutable(Profile().Name()), 0), S_OK);
}

TEST_F(StoreSession, OneStoreIsTheDefaultStore) {
    auto defaults = [&] {
        TestRef<IMAPITable> table;
        EXPECT_EQ(session->GetMsgStoresTable(0, table.Out()), S_OK);
        const TestRows rows(table.Get(), {PR_DISPLAY_NAME_A, PR_RESOURCE_FLAGS});
        std::string names;
        for (ULONG i = 0; i < rows.Count(); ++i)
            if (rows.Cell(i, 1).Value.l & STATUS_DEFAULT_STORE) names += rows.Text(i, 0);
        return names;
    };
    EXPECT_EQ(defaults(), "Store 1");
    std::string id = BytesOf(rightStore.Get(), PR_ENTRYID);
    ASSERT_EQ(session->SetDefaultStore(MAPI_DEFAULT_STORE, static_cast<ULONG>(id.size()),
                                       reinterpret_cast<LPENTRYID>(id.data())),
              S_OK);
    EXPECT_EQ(defaults(), "Store 2");
}

TEST_F(StoreSession, EntriesOpenThroughTheSessionWhateverTheirStore) {
    std::string id = BytesOf(SavedMessage(right.Get(), "M").Get(), PR_ENTRYID);
    ULONG type = 0;
    TestRef<IMessage> message;
    auto open = [&] {
        return session->OpenEntry(static_cast<ULONG>(id.size()), reinterpret_cast<LPENTRYID>(id.data()),
                                  nullptr, MAPI_BEST_ACCESS, &type,
                                  reinterpret_cast<IUnknown**>(message.Out()));
    };
    ASSERT_EQ(open(), S_OK);
    EXPECT_EQ(TextOf(message.Get(), PR_SUBJECT_A), "M");
    id[20] ^= 1;
    EXPECT_EQ(open(), MAPI_E_NOT_FOUND);
    id[6] ^= 1;
    EXPECT_EQ(open(), MAPI_E_NOT_FOUND);
    id.pop_back();
    EXPECT_EQ(open(), MAPI_E_INVALID_ENTRYID);
    id = BytesOf(rightStore.Get(), PR_ENTRYID);
    TestRef<IMsgStore> store;
    ASSERT_EQ(session->OpenEntry(static_cast<ULONG>(id.size()), reinterpret_cast<LPENTRYID>(id.data()),
                                 nullptr, MAPI_BEST_ACCESS, &type, reinterpret_cast<IUnknown**>(store.Out())),
              S_OK);
    EXPECT_EQ(type, static_cast<ULONG>(MAPI_STORE));
    EXPECT_EQ(TextOf(store.Get(), PR_DISPLAY_NAME_A), "Store 2");
    session->Logoff(0, 0, 0);
    EXPECT_EQ(open(), MAPI_E_END_OF_SESSION);
}

TEST_F(StoreSession, OneOffRecipientsAreMadeResolvedAndOpened) {
    TestRef<IAddrBook> book;
    ASSERT_EQ(session->OpenAddressBook(0, nullptr, AB_NO_DIALOG, book.Out()), S_OK);
    ULONG cb = 0, type = 0;
    LPENTRYID id = nullptr;
    ASSERT_EQ(book->CreateOneOff(Mutable("J\xC3\xB6rg"), Mutable("SMTP"), Mutable("j@x"), 0, &cb, &id), S_OK);
    TestRef<IMailUser> user;
    ASSERT_EQ(book->OpenEntry(cb, id, nullptr, 0, &type, reinterpret_cast<IUnknown**>(user.Out())), S_OK);
    EXPECT_EQ(TextOf(user.Get(), PR_DISPLAY_NAME_A), "J\xC3\xB6rg");
    EXPECT_EQ(TextOf(user.Get(), PR_EMAIL_ADDRESS_A), "j@x");
    EXPECT_EQ(book->OpenEntry(cb - 3, id, nullptr, 0, &type, reinterpret_cast<IUnknown**>(user.Out())),
              MAPI_E_UNKNOWN_ENTRYID);
    MAPIFreeBuffer(id);
    auto resolve = [&](const char* name, bool& hasEntryId) {
        LPADRLIST list = nullptr;
        MAPIAllocateBuffer(sizeof(ADRLIST), reinterpret_cast<void**>(&list));
        list->cEntries = 1;
        list->aEntries[0] = {};
        list->aEntries[0].cValues = 1;
        MAPIAllocateBuffer(sizeof(SPropValue), reinterpret_cast<void**>(&list->aEntries[0].rgPropVals));
        list->aEntries[0].rgPropVals->ulPropTag = PR_DISPLAY_NAME_A;
        list->aEntries[0].rgPropVals->Value.lpszA = const_cast<char*>(name);
        const HRESULT hr = book->ResolveName(0, 0, nullptr, list);
        hasEntryId =
            PpropFindProp(list->aEntries[0].rgPropVals, list->aEntries[0].cValues, PR_ENTRYID) != nullptr;
        FreePadrlist(list);
        return hr;
    };
    bool hasEntryId = false;
    EXPECT_EQ(resolve("somebody@example.org", hasEntryId), S_OK);
    EXPECT_TRUE(hasEntryId);
    EXPECT_EQ(resolve("Somebody", hasEntryId), MAPI_E_NOT_FOUND);
    EXPECT_FALSE(hasEntryId);
}

TEST_F(StoreSession, TwoThreadsCopyBothWaysWithoutStandingStill) {
    std::vector<std::string> leftIds = {BytesOf(SavedMessage(left.Get(), "L").Get(), PR_ENTRYID)};
    std::vector<std::string> rightIds = {BytesOf(SavedMessage(right.Get(), "R").Get(), PR_ENTRYID)};
    std::atomic<int> failures{0};
    const auto copyMany = [&failures](IMAPIFolder* from, IMAPIFolder* to,
                                      const std::vector<std::string>& ids) {
        TestEntryList list(ids);
        for (int i = 0; i < 50; ++i)
            if (from->CopyMessages(list.Get(), nullptr, to, 0, nullptr, 0) != S_OK) ++failures;
    };
    std::thread there([&] { copyMany(left.Get(), right.Get(), leftIds); });
    copyMany(right.Get(), left.Get(), rightIds);
    there.join();
    EXPECT_EQ(failures, 0);
    EXPECT_EQ(LongOf(left.Get(), PR_CONTENT_COUNT), 51);
    EXPECT_EQ(LongOf(right.Get(), PR_CONTENT_COUNT), 51);
}

TEST_F(StoreSession, ReadOnlyStoresAnswerAndRefuse) {
    auto message = SavedMessage(left.Get(), "M");
    const ULONG tag = NamedTag(left.Get(), L"Known", PT_LONG);
    std::string id = BytesOf(leftStore.Get(), PR_ENTRYID), messageId = BytesOf(message.Get(), PR_ENTRYID);
    TestRef<IMsgStore> store;
    ASSERT_EQ(session->OpenMsgStore(0, static_cast<ULONG>(id.size()), reinterpret_cast<LPENTRYID>(id.data()),
                                    nullptr, MDB_NO_DIALOG, store.Out()),
              S_OK);
    EXPECT_TRUE(LongOf(store.Get(), PR_STORE_SUPPORT_MASK) & STORE_READONLY);
    EXPECT_EQ(SetText(store.Get(), PR_COMMENT_A, "x"), MAPI_E_NO_ACCESS);
    auto opened = OpenTestMessage(store.Get(), messageId);  // best access is reading here
    EXPECT_EQ(SetText(opened.Get(), PR_SUBJECT_A, "x"), MAPI_E_NO_ACCESS);
    EXPECT_EQ(NamedTag(opened.Get(), L"Known", PT_LONG), tag);
    TestRef<IMessage> refused;
    EXPECT_EQ(
        store->OpenEntry(static_cast<ULONG>(messageId.size()), reinterpret_cast<LPENTRYID>(messageId.data()),
                         nullptr, MAPI_MODIFY, nullptr, reinterpret_cast<IUnknown**>(refused.Out())),
        MAPI_E_NO_ACCESS);
}

TEST_F(StoreSession, StorePropertiesLast) {
    ASSERT_EQ(SetText(leftStore.Get(), PR_COMMENT_A, std::string(2000, 'c')), S_OK);
    SPropTagArray comment = {1, {PR_COMMENT_A}};
    auto again = OpenTestStore(session.Get(), "Store 1");
    EXPECT_EQ(TextOf(again.Get(), PR_COMMENT_A), std::string(2000, 'c'));
    ASSERT_EQ(again->DeleteProps(&comment, nullptr), S_OK);
    EXPECT_FALSE(HasProp(OpenTestStore(session.Get(), "Store 1").Get(), PR_COMMENT_A));
    EXPECT_EQ(BytesOf(leftStore.Get(), PR_RECORD_KEY), BytesOf(leftStore.Get(), PR_ENTRYID).substr(4, 16));
}

TEST_F(StoreSession, FaultsHitTheAskedCallAndDoNothing) {
    auto faults = FaultsOf(leftStore.Get());
    auto message = NewMessage(left.Get(), "F");
    faults->SetFault(2, MAPI_E_DISK_ERROR, FALSE);
    EXPECT_EQ(SetText(message.Get(), PR_SUBJECT_A, "G"), S_OK);
    EXPECT_EQ(message->SaveChanges(KEEP_OPEN_READWRITE), MAPI_E_DISK_ERROR);
    EXPECT_EQ(faults->CallCount(), 2u);
    EXPECT_EQ(SubjectsIn(left.Get()), "");
    EXPECT_EQ(message->SaveChanges(KEEP_OPEN_READWRITE), S_OK);
    faults->SetFault(1, MAPI_E_NETWORK_ERROR, TRUE);
    EXPECT_EQ(SetText(message.Get(), PR_SUBJECT_A, "H"), MAPI_E_NETWORK_ERROR);
    EXPECT_EQ(SetText(message.Get(), PR_SUBJECT_A, "H"), MAPI_E_NETWORK_ERROR);
    faults->SetFault(0, S_OK, FALSE);
    EXPECT_EQ(SetText(message.Get(), PR_SUBJECT_A, "H"), S_OK);
}

TEST_F(StoreSession, EveryCallOfACopyMayFailAndNothingHalfStays) {
    auto source = SavedMessage(left.Get(), "Source", std::string(2000, 's'));
    auto faults = FaultsOf(rightStore.Get());
    ULONG n = 1;
    for (;; ++n) {
        faults->SetFault(n, MAPI_E_DISK_ERROR, FALSE);
        TestRef<IMessage> target;
        HRESULT hr = right->CreateMessage(nullptr, 0, target.Out());
        if (hr == S_OK)
            hr = source->CopyTo(0, nullptr, nullptr, 0, nullptr, &IID_IMessage, target.Get(), 0, nullptr);
        if (hr == S_OK) hr = SetText(target.Get(), PR_COMMENT_A, "stamp");
        if (hr == S_OK) hr = target->SaveChanges(0);
        const bool reached = faults->CallCount() >= n;
        faults->SetFault(0, S_OK, FALSE);
        if (!reached) break;
        EXPECT_EQ(hr, MAPI_E_DISK_ERROR);
        EXPECT_EQ(SubjectsIn(right.Get()), "");
    }
    EXPECT_GT(n, 2u);
    EXPECT_EQ(SubjectsIn(right.Get()), "Source");
}

TEST_F(StoreSession, BatchesGatherAndFailedSavesTakeBackOnlyThemselves) {
    auto batch = BatchOf(leftStore.Get());
    ASSERT_EQ(batch->BeginBatch(), S_OK);
    ASSERT_EQ(batch->BeginBatch(), S_OK);
    auto kept = SavedMessage(left.Get(), "Kept");
    auto other = OpenTestMessage(leftStore.Get(), BytesOf(kept.Get(), PR_ENTRYID));
    ASSERT_EQ(SetText(other.Get(), PR_SUBJECT_A, "Changed"), S_OK);
    ASSERT_EQ(other->SaveChanges(0), S_OK);
    ASSERT_EQ(SetText(kept.Get(), PR_SUBJECT_A, "Lost"), S_OK);
    ASSERT_EQ(SetText(kept.Get(), PR_BODY_A, std::string(2000, 'l')), S_OK);
    EXPECT_EQ(kept->SaveChanges(0), MAPI_E_OBJECT_CHANGED);
    auto after = SavedMessage(left.Get(), "After");
    ASSERT_EQ(batch->EndBatch(), S_OK);
    ASSERT_EQ(batch->EndBatch(), S_OK);
    EXPECT_EQ(batch->EndBatch(), MAPI_E_CALL_FAILED);
    EXPECT_EQ(SubjectsIn(left.Get()), "Changed After");
    EXPECT_FALSE(HasProp(OpenTestMessage(leftStore.Get(), BytesOf(kept.Get(), PR_ENTRYID)).Get(), PR_BODY_A));
}

TEST_F(StoreSession, SavesThatACommitLosesAreToldToEachWhoGathersAndNothingIsBuiltOnThem) {
    const auto faults = FaultsOf(leftStore.Get());
    const auto second = OpenTestStore(session.Get(), "Store 1");
    const auto trySave = [&] { return NewMessage(left.Get(), "Later")->SaveChanges(0); };
    for (const bool onOwnThread : {false, true}) {
        auto mine = BatchOf(leftStore.Get()), other = BatchOf(second.Get());
        ASSERT_EQ(mine->BeginBatch(), S_OK);
        ASSERT_EQ(other->BeginBatch(), S_OK);
        SavedMessage(left.Get(), "Kept");
        ASSERT_EQ(mine->FlushBatch(), S_OK);
        faults->SetCommitFault(1, MAPI_E_NOT_ENOUGH_DISK, FALSE);
        SavedMessage(left.Get(), "Lost");
        EXPECT_EQ(mine->BatchState(), S_OK);
        const HRESULT first = onOwnThread ? S_OK : mine->FlushBatch();
        for (int i = 0; i < 500 && other->BatchState() == S_OK; ++i)
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        EXPECT_EQ(trySave(), MAPI_E_NOT_ENOUGH_DISK) << "built on what is lost";
        EXPECT_EQ(onOwnThread ? mine->FlushToDisk() : first, MAPI_E_NOT_ENOUGH_DISK);
        EXPECT_EQ(mine->FlushBatch(), S_OK) << "told twice";
        EXPECT_EQ(trySave(), MAPI_E_NOT_ENOUGH_DISK) << "while one does not know";
        EXPECT_EQ(other->EndBatch(), MAPI_E_NOT_ENOUGH_DISK);
        LPMAPIERROR why = nullptr;
        ASSERT_EQ(second->GetLastError(MAPI_E_NOT_ENOUGH_DISK, 0, &why), S_OK);
        ASSERT_NE(why, nullptr);
        EXPECT_STREQ(reinterpret_cast<const char*>(why->lpszError), "database or disk is full");
        MAPIFreeBuffer(why);
        EXPECT_EQ(trySave(), S_OK);
        EXPECT_EQ(mine->EndBatch(), S_OK);
        EXPECT_EQ(SubjectsIn(left.Get()), "Kept Later");
        for (const char* subject : {"Kept", "Later"})
            EXPECT_EQ(DeleteBySubject(left.Get(), subject), S_OK);
    }
}

TEST_F(StoreSession, GatheredSavesReachTheDiskWithinTheirTime) {
    auto batch = BatchOf(leftStore.Get());
    ASSERT_EQ(batch->BeginBatch(), S_OK);
    SavedMessage(left.Get(), "Soon");
    const std::string file = FileOf("store1.vst");
    bool seen = false;
    for (int i = 0; i < 100 && !seen; ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
        sqlite3* database = nullptr;
        ASSERT_EQ(sqlite3_open_v2(file.c_str(), &database, SQLITE_OPEN_READWRITE, nullptr), SQLITE_OK);
        sqlite3_stmt* statement = nullptr;
        ASSERT_EQ(sqlite3_prepare_v2(database, "SELECT count(*) FROM message", -1, &statement, nullptr),
                  SQLITE_OK);
        ASSERT_EQ(sqlite3_step(statement), SQLITE_ROW);
        seen = sqlite3_column_int(statement, 0) == 1;
        sqlite3_finalize(statement);
        sqlite3_close(database);
    }
    EXPECT_TRUE(seen);
    EXPECT_EQ(batch->EndBatch(), S_OK);
}

TEST_F(StoreSession, FilesThatAreNoStoreOrOfALaterProgram) {
    LogOffAll();
    const std::string file = FileOf("store1.vst");
    Sql(file, "PRAGMA user_version=99");
    EXPECT_EQ(OpenFirst(), MAPI_E_VERSION);
    // What the earlier versions did not have is added; a file that has it already is left as it is.
    for (const char* older : {"DROP TABLE lookup; DROP TABLE lookup_key; DROP TABLE lookup_touched;"
                              "DROP TABLE lookup_page; PRAGMA user_version=1",
                              "DROP TABLE lookup_page; PRAGMA user_version=2", "PRAGMA user_version=1"}) {
        Sql(file, (std::string(kToVersion3) + older).c_str());
        EXPECT_EQ(OpenFirst(), S_OK);
        leftStore.Reset();
        session.Reset();
        Sql(file, "SELECT number, page FROM lookup JOIN lookup_page ON lookup = number");
    }
    EXPECT_EQ(OpenFirst(), S_OK);
    leftStore.Reset();
    session.Reset();
    Sql(file, "PRAGMA application_id=7");
    EXPECT_EQ(OpenFirst(), MAPI_E_CORRUPT_STORE);
    std::ofstream(file, std::ios::binary) << std::string(50000, 'x');
    EXPECT_EQ(OpenFirst(), MAPI_E_CORRUPT_STORE);
    std::filesystem::remove(file);
    EXPECT_EQ(OpenFirst(), MAPI_E_NOT_FOUND);
}

TEST_F(StoreSession, DamagedBlocksAreReportedNotFollowed) {
    auto message = SavedMessage(left.Get(), "Damaged", std::string(2000, 'd'));
    const std::string id = BytesOf(message.Get(), PR_ENTRYID);
    message.Reset();
    LogOffAll();
    const char* damages[] = {
        "UPDATE message SET block = x'FFFFFFFF00'",
        "UPDATE message SET block = x'0100000037001E00FFFFFF7F'",
        "UPDATE message SET block = x'0200000037001E000000000036001E0000000000'",
        "UPDATE message SET block = x'01'",
        "UPDATE message SET block = NULL, recipients = 5, attachments = 5",
        "UPDATE message SET recipients = 1; INSERT INTO recipients SELECT id, x'FFFFFF7F' FROM message",
    };
    for (const char* damage : damages) {
        Sql(FileOf("store1.vst"), damage);
        ASSERT_EQ(OpenFirst(), S_OK);
        TestRef<IMessage> opened;
        const HRESULT hr = leftStore->OpenEntry(
            static_cast<ULONG>(id.size()), reinterpret_cast<LPENTRYID>(Mutable(id)), nullptr,
            MAPI_BEST_ACCESS, nullptr, reinterpret_cast<IUnknown**>(opened.Out()));
        EXPECT_TRUE(hr == S_OK || hr == MAPI_E_CORRUPT_DATA) << damage;
        if (opened) {
            TestRef<IMAPITable> table;
            opened->GetRecipientTable(0, table.Out());
            SetText(opened.Get(), PR_SUBJECT_A, "again");
            opened->SaveChanges(KEEP_OPEN_READWRITE);
        }
        LogOffAll();
    }
}

// What MAPI asks of a program that has several threads, or no message loop.
TEST(MapiThreads, EveryThreadComesToMapiAndNotificationsGoWhereTheFirstOneSaid) {
    for (const bool apart : {false, true}) {
        MAPIINIT_0 init{MAPI_INIT_VERSION, apart ? MAPI_MULTITHREAD_NOTIFICATIONS : 0u};
        ASSERT_EQ(MAPIInitialize(&init), S_OK);
        {
            TestProfile profile("threads", 1);
            const auto session = profile.LogOn();
            const auto store = OpenTestStore(session.Get(), "Store 1");
            const auto folder = OpenReceiveFolder(store.Get());
            static std::atomic<unsigned> heard;
            heard = 0;
            LPMAPIADVISESINK sink = nullptr;
            const auto callback = [](LPVOID, ULONG count, LPNOTIFICATION) -> __LONG32 {
                heard += count;
                return 0;
            };
            ASSERT_EQ(HrAllocAdviseSink(+callback, nullptr, &sink), S_OK);
            ULONG connection = 0;
            ASSERT_EQ(store->Advise(0, nullptr, fnevObjectCreated, sink, &connection), S_OK);
            sink->Release();
            SavedMessage(folder.Get(), "A");
            for (int i = 0; i < 30 && heard == 0; ++i)
                std::this_thread::sleep_for(std::chrono::milliseconds(10));
            EXPECT_EQ(heard > 0, apart);
            HrDispatchNotifications(0);
            EXPECT_GT(heard, 0u);
            store->Unadvise(connection);

            HRESULT unannounced = S_OK;
            const std::string id = BytesOf(store.Get(), PR_STORE_ENTRYID);
            std::thread([&] {
                TestRef<IMsgStore> opened;
                unannounced = session->OpenMsgStore(0, static_cast<ULONG>(id.size()),
                                                    reinterpret_cast<LPENTRYID>(const_cast<char*>(id.data())),
                                                    nullptr, 0, opened.Out());
            }).join();
            EXPECT_EQ(unannounced, MAPI_E_NOT_INITIALIZED);
        }
        MAPIUninitialize();
    }
}

#ifndef _WIN32
// Also those of the first version, in which nothing can be looked up and nothing can be added for it.
TEST_F(StoreSession, FilesThatOnlyOthersMayWriteAreRead) {
    constexpr int enoughForALookup = 600;
    NamedTag(left.Get(), L"Known", PT_LONG);
    auto batch = BatchOf(leftStore.Get());
    ASSERT_EQ(batch->BeginBatch(), S_OK);
    for (int i = 0; i < enoughForALookup; ++i)
        SavedMessage(left.Get(), "Readable " + std::to_string(i));
    ASSERT_EQ(batch->EndBatch(), S_OK);
    batch.Reset();
    LogOffAll();
    const std::string file = FileOf("store1.vst");
    const auto directory = std::filesystem::path(file).parent_path();
    LetOthersPass(directory);
    const auto body = [&] {
        if (geteuid() == 0 && setuid(65534) != 0) _exit(9);  // rights do not bind the root user
        if (OpenFirst() != S_OK) _exit(1);
        auto ipm = OpenStoreFolder(leftStore.Get(), PR_IPM_SUBTREE_ENTRYID);
        auto folder = MakeFolder(ipm.Get(), "Left");
        if (RowsOfSubject(folder.Get(), "readable 77") != 1) _exit(2);
        TestRef<IMessage> refused;
        if (folder->CreateMessage(nullptr, 0, refused.Out()) != MAPI_E_NO_ACCESS) _exit(3);
        if (PROP_ID(NamedTag(folder.Get(), L"Known", PT_LONG)) != 0x8000) _exit(4);
        if (PROP_ID(NamedTag(folder.Get(), L"Not known", PT_LONG)) != 0x8001) _exit(5);  // for this process
        if (BatchOf(leftStore.Get())->BeginBatch() != MAPI_E_NO_ACCESS) _exit(6);
        _exit(::testing::Test::HasFailure() ? 7 : 0);
    };
    for (const char* version : {"SELECT 1",
                                "DROP TABLE lookup; DROP TABLE lookup_key; DROP TABLE lookup_page;"
                                "DROP TABLE lookup_touched; PRAGMA user_version=1"}) {
        if (*version == 'D') Sql(file, kToVersion3);
        Sql(file, version);
        std::filesystem::permissions(file, std::filesystem::perms(0444));
        std::filesystem::permissions(directory / "profile", std::filesystem::perms(0444));
        std::filesystem::permissions(directory, std::filesystem::perms(0555));
        const int status = InAnotherProcess(body);
        EXPECT_EQ(status, 0) << WEXITSTATUS(status) << " after " << version;
        std::filesystem::permissions(directory, std::filesystem::perms(0755));
        std::filesystem::permissions(file, std::filesystem::perms(0644));
    }
}

TEST_F(StoreSession, TwoProcessesWriteAtOnceAndLoseNothing) {
    LogOffAll();
    constexpr int kEach = 60;
    const auto writeMany = [this](const std::string& who) {
        if (OpenFirst() != S_OK) return false;
        auto folder = MakeFolder(OpenStoreFolder(leftStore.Get(), PR_IPM_SUBTREE_ENTRYID).Get(), "Left");
        auto batch = BatchOf(leftStore.Get());
        batch->BeginBatch();
        for (int i = 0; i < kEach; ++i) {
            NamedTag(folder.Get(), std::wstring(1, wchar_t(who[0])) + std::to_wstring(i), PT_LONG);
            SavedMessage(folder.Get(), who);
        }
        return batch->EndBatch() == S_OK;
    };
    const pid_t child = fork();
    if (child == 0) _exit(writeMany("B") ? 0 : 1);
    EXPECT_TRUE(writeMany("A"));
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
    auto folder = MakeFolder(OpenStoreFolder(leftStore.Get(), PR_IPM_SUBTREE_ENTRYID).Get(), "Left");
    EXPECT_EQ(LongOf(folder.Get(), PR_CONTENT_COUNT), 2 * kEach);
    const TestRows rows = ContentsOf(folder.Get(), {PR_LAST_MODIFICATION_TIME});
    std::set<std::uint64_t> times;
    for (ULONG i = 0; i < rows.Count(); ++i)
        times.insert(TicksOf(rows.Cell(i, 0).Value.ft));
    EXPECT_EQ(times.size(), 2u * kEach);
    std::set<ULONG> tags;
    for (int i = 0; i < kEach; ++i)
        for (const wchar_t who : {L'A', L'B'})
            tags.insert(NamedTag(folder.Get(), std::wstring(1, who) + std::to_wstring(i), PT_LONG));
    EXPECT_EQ(tags.size(), 2u * kEach);
}

TEST_F(StoreSession, AKilledProcessLeavesWhatItsSavesConfirmed) {
    LogOffAll();
    for (ULONG n = 1; n <= 4; ++n) {
        const int status = InAnotherProcess([&] {
            if (OpenFirst() != S_OK) _exit(1);
            auto folder = MakeFolder(OpenStoreFolder(leftStore.Get(), PR_IPM_SUBTREE_ENTRYID).Get(),
                                     "Killed" + std::to_string(n));
            FaultsOf(leftStore.Get())->SetKillAtSave(n);
            for (int i = 1; i <= 9; ++i)
                SavedMessage(folder.Get(), std::to_string(i), std::string(2000, 'k'));
        });
        EXPECT_TRUE(WIFSIGNALED(status));
        ASSERT_EQ(OpenFirst(), S_OK);
        auto folder = MakeFolder(OpenStoreFolder(leftStore.Get(), PR_IPM_SUBTREE_ENTRYID).Get(),
                                 "Killed" + std::to_string(n));
        EXPECT_EQ(SubjectsIn(folder.Get()), std::string("1 2 3").substr(0, n == 1 ? 0 : 2 * n - 3));
        folder.Reset();
        LogOffAll();
    }
}
#endif
