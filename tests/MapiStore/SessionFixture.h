// A profile whose files a test changes, and whose stores other processes open.
#pragma once
#include <sqlite3.h>
#include <support/StoreFixture.h>

#include <filesystem>

#ifndef _WIN32
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#endif

inline char* Mutable(const std::string& text) {
    return const_cast<char*>(text.c_str());
}

class StoreSession : public TwoStores {
protected:
    std::string FileOf(const char* name) {
        for (const auto& entry : std::filesystem::recursive_directory_iterator(DataDirectory()))
            if (entry.path().filename() == name) return entry.path().string();
        return {};
    }
    // Everything closed, so that a test may change the files.
    void LogOffAll() {
        left.Reset();
        right.Reset();
        leftStore.Reset();
        rightStore.Reset();
        session->Logoff(0, 0, 0);
        session.Reset();
    }
    HRESULT OpenFirst() {
        session = Profile().LogOn();
        TestRef<IMAPITable> table;
        EXPECT_EQ(session->GetMsgStoresTable(0, table.Out()), S_OK);
        const TestRows rows(table.Get(), {PR_ENTRYID});
        const SBinary& id = rows.Cell(0, 0).Value.bin;
        return session->OpenMsgStore(0, id.cb, reinterpret_cast<LPENTRYID>(id.lpb), nullptr, MAPI_BEST_ACCESS,
                                     leftStore.Out());
    }
    TestRef<IStoreBatch> BatchOf(IMsgStore* store) {
        TestRef<IStoreBatch> batch;
        EXPECT_EQ(store->QueryInterface(IID_IStoreBatch, reinterpret_cast<void**>(batch.Out())), S_OK);
        return batch;
    }
    TestRef<IStoreFaults> FaultsOf(IMsgStore* store) {
        TestRef<IStoreFaults> faults;
        EXPECT_EQ(store->QueryInterface(IID_IStoreFaults, reinterpret_cast<void**>(faults.Out())), S_OK);
        return faults;
    }
    void Sql(const std::string& file, const char* statement) {
        sqlite3* database = nullptr;
        ASSERT_EQ(sqlite3_open(file.c_str(), &database), SQLITE_OK);
        sqlite3_busy_timeout(database, 5000);
        // What the index of versions 1 to 3 called.
        const auto name = [](sqlite3_context* context, int, sqlite3_value**) {
            sqlite3_result_null(context);
        };
        sqlite3_create_function(database, "folder_name", 1, SQLITE_UTF8 | SQLITE_DETERMINISTIC, nullptr, name,
                                nullptr, nullptr);
        EXPECT_EQ(sqlite3_exec(database, statement, nullptr, nullptr, nullptr), SQLITE_OK)
            << sqlite3_errmsg(database);
        sqlite3_close(database);
    }
};

// By a question to the store, without regard to case.
inline ULONG RowsOfSubject(IMAPIFolder* folder, const std::string& subject) {
    SPropValue value{};
    value.ulPropTag = PR_SUBJECT_A;
    value.Value.lpszA = Mutable(subject);
    SRestriction equal{};
    equal.rt = RES_CONTENT;
    equal.res.resContent = {FL_FULLSTRING | FL_IGNORECASE, PR_SUBJECT_A, &value};
    TestRef<IMAPITable> table;
    EXPECT_EQ(folder->GetContentsTable(0, table.Out()), S_OK);
    EXPECT_EQ(table->Restrict(&equal, 0), S_OK);
    ULONG count = 0;
    EXPECT_EQ(table->GetRowCount(0, &count), S_OK);
    return count;
}

// Takes from a file of today what versions 1 to 3 did not have; these were alike in it.
inline constexpr char kToVersion3[] =
    "DROP INDEX folder_name; ALTER TABLE folder DROP COLUMN name; ALTER TABLE counter DROP COLUMN times;"
    "CREATE INDEX folder_name ON folder(parent, folder_name(block)); PRAGMA user_version=3;";

#ifndef _WIN32
// Others may go into the directory; those above it are open to their owner alone.
inline void LetOthersPass(const std::filesystem::path& directory) {
    for (auto above = directory; above != above.root_path(); above = above.parent_path())
        std::filesystem::permissions(above, std::filesystem::perms(0755));
}

// Runs `body` in a process of its own that ends without clean-up; answers its exit status.
template <class Body>
int InAnotherProcess(Body&& body) {
    const pid_t child = fork();
    if (child == 0) {
        body();
        _exit(0);
    }
    int status = 0;
    waitpid(child, &status, 0);
    return status;
}
#endif
