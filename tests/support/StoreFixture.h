// A profile with stores for a test, made and entered through published interfaces alone.
#pragma once
#include <Platform/Directories.h>
#include <Platform/Files.h>
#include <Platform/MapiHeaders.h>
#include <Platform/StoreExtensions.h>
#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>
#include <utility>
#include <vector>

// Owns one reference, for tests; Out() for an out parameter.
template <class T>
class TestRef {
public:
    TestRef() = default;
    explicit TestRef(T* taken) : m_object(taken) {}
    TestRef(const TestRef& other) : m_object(other.m_object) {
        if (m_object) m_object->AddRef();
    }
    TestRef(TestRef&& other) noexcept : m_object(std::exchange(other.m_object, nullptr)) {}
    TestRef& operator=(TestRef other) noexcept {
        std::swap(m_object, other.m_object);
        return *this;
    }
    ~TestRef() { Reset(); }
    void Reset() {
        if (T* object = std::exchange(m_object, nullptr)) object->Release();
    }
    T** Out() {
        Reset();
        return &m_object;
    }
    T* Get() const { return m_object; }
    T* operator->() const { return m_object; }
    explicit operator bool() const { return m_object != nullptr; }

private:
    T* m_object = nullptr;
};

// A profile named `name` with `stores` stores called "Store 1", "Store 2" ..., the first of them the
// default store. Lives below the base directory of the test program and is removed at the end.
struct StoreOptions {
    ULONG habits = 0;  // PR_STORE_HABITS for all stores
    // The habits that the environment names: VELLUM_HABITS, names of StoreExtensions.h joined by commas.
    static StoreOptions OfEnvironment();
};

class TestProfile {
public:
    explicit TestProfile(std::string name, unsigned stores = 2, StoreOptions options = {});
    ~TestProfile();
    TestProfile(const TestProfile&) = delete;
    TestProfile& operator=(const TestProfile&) = delete;

    const std::string& Name() const { return m_name; }
    void AddStore(const std::string& displayName, StoreOptions options = {});
    // Of the store of that number, counted from 1, which nobody may have open.
    void SetHabits(unsigned store, ULONG habits);
    // A new session on the profile; null (and a failed expectation) if there is none.
    TestRef<IMAPISession> LogOn() const;

private:
    TestRef<IMsgServiceAdmin> Services() const;
    std::string m_name;
};

// The store whose display name is `name`, opened with MAPI_BEST_ACCESS; null if there is none.
TestRef<IMsgStore> OpenTestStore(IMAPISession* session, const std::string& name);
// The folder behind an entry-ID property of the store (PR_IPM_SUBTREE_ENTRYID ...).
TestRef<IMAPIFolder> OpenStoreFolder(IMsgStore* store, ULONG entryIdTag);
TestRef<IMAPIFolder> OpenReceiveFolder(IMsgStore* store);
// A folder below `parent`, created or opened.
TestRef<IMAPIFolder> MakeFolder(IMAPIFolder* parent, const std::string& name);
// A new message in `folder`, not saved, of class IPM.Note with the subject and body.
TestRef<IMessage> NewMessage(IMAPIFolder* folder, const std::string& subject, const std::string& body = {});
// The same, saved and kept open.
TestRef<IMessage> SavedMessage(IMAPIFolder* folder, const std::string& subject, const std::string& body = {});
TestRef<IMessage> OpenTestMessage(IMsgStore* store, const std::string& entryId);
TestRef<IMAPIFolder> OpenTestFolder(IMsgStore* store, const std::string& entryId);

// One property; empty, 0 or all-zero when the object does not have it. Text is UTF-8, here and below,
// whatever the code page; tags have the 8-bit type.
std::string TextOf(IMAPIProp* object, ULONG tag);
std::string BytesOf(IMAPIProp* object, ULONG tag);
LONG LongOf(IMAPIProp* object, ULONG tag);
FILETIME TimeOf(IMAPIProp* object, ULONG tag);
bool HasProp(IMAPIProp* object, ULONG tag);
// The whole of a text or binary property by stream, whatever its size.
std::string StreamOf(IMAPIProp* object, ULONG tag);

HRESULT SetText(IMAPIProp* object, ULONG tag, const std::string& text);
HRESULT SetLong(IMAPIProp* object, ULONG tag, LONG value);
HRESULT SetBytes(IMAPIProp* object, ULONG tag, const std::string& bytes);
HRESULT SetTime(IMAPIProp* object, ULONG tag, FILETIME time);
HRESULT SetStream(IMAPIProp* object, ULONG tag, const std::string& bytes);

// The tag of a named property of PS_PUBLIC_STRINGS or another set, of the given type; created if need be.
ULONG NamedTag(IMAPIProp* object, const std::wstring& name, ULONG type);
ULONG NamedTag(IMAPIProp* object, const GUID& set, LONG id, ULONG type);

// The rows of a table, all at once. Freed with the object.
class TestRows {
public:
    TestRows() = default;
    TestRows(IMAPITable* table, const std::vector<ULONG>& tags, LPSRestriction restriction = nullptr,
             LPSSortOrderSet sort = nullptr);
    TestRows(TestRows&& other) noexcept : m_rows(std::exchange(other.m_rows, nullptr)) {}
    TestRows& operator=(TestRows&& other) noexcept {
        std::swap(m_rows, other.m_rows);
        return *this;
    }
    ~TestRows();
    ULONG Count() const { return m_rows ? m_rows->cRows : 0; }
    const SPropValue& Cell(ULONG row, ULONG column) const { return m_rows->aRow[row].lpProps[column]; }
    std::string Text(ULONG row, ULONG column) const;   // PT_STRING8 (UTF-8), else empty
    std::string Bytes(ULONG row, ULONG column) const;  // PT_BINARY, else empty

private:
    LPSRowSet m_rows = nullptr;
};
TestRows ContentsOf(IMAPIFolder* folder, const std::vector<ULONG>& tags, ULONG flags = 0);
TestRows HierarchyOf(IMAPIFolder* folder, const std::vector<ULONG>& tags, ULONG flags = 0);
// Subjects of a folder's messages in table order, joined by blanks.
std::string SubjectsIn(IMAPIFolder* folder, ULONG flags = 0);
// Deletes all messages of that subject.
HRESULT DeleteBySubject(IMAPIFolder* folder, const std::string& subject);

// An entry list over the entry IDs given, valid as long as they are.
class TestEntryList {
public:
    explicit TestEntryList(const std::vector<std::string>& entryIds);
    LPENTRYLIST Get() { return &m_list; }

private:
    std::vector<SBinary> m_binaries;
    ENTRYLIST m_list{};
};

// Two stores, a session, and a folder "Left" in the first store and "Right" in the second.
class TwoStores : public ::testing::Test {
protected:
    explicit TwoStores(StoreOptions options = {});
    void SetUp() override;
    void TearDown() override;
    TestProfile& Profile() { return *m_profile; }
    // What SetUp and TearDown do around the life of the profile.
    void OpenStores();
    void CloseStores();

    TestRef<IMAPISession> session;
    TestRef<IMsgStore> leftStore, rightStore;
    TestRef<IMAPIFolder> left, right;
    const StoreOptions& Options() const { return m_options; }

private:
    StoreOptions m_options;
    std::unique_ptr<TestProfile> m_profile;
};
