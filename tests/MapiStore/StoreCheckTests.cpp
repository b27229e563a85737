// A check finds each kind of damage that it speaks of, in files that a test has damaged, and none in whole
// ones.
#include <algorithm>
#include <map>

#include "ItemParts.h"
#include "SessionFixture.h"

namespace {

class StoreCheck : public StoreSession {
protected:
    struct Found {
        std::string kinds;  // each once, in order of the alphabet
        std::string texts;
    };
    Found Check() {
        Found found;
        std::map<std::string, std::string> byKind;
        const auto take = [](void* context, const char* kind, const char* text) {
            (*static_cast<std::map<std::string, std::string>*>(context))[kind] += std::string(text) + "\n";
        };
        TestRef<IStoreCare> care;
        EXPECT_EQ(leftStore->QueryInterface(IID_IStoreCare, reinterpret_cast<void**>(care.Out())), S_OK);
        EXPECT_EQ(care->Check(take, &byKind, &counts), S_OK);
        for (const auto& [kind, texts] : byKind) {
            found.kinds += (found.kinds.empty() ? "" : " ") + kind;
            found.texts += texts;
        }
        return found;
    }
    // Everything that a file can hold: large values, recipients, attachments in attachments, names, lookups.
    void Fill() {
        auto message = NewMessage(left.Get(), "Full", std::string(3000, 'b'));
        ASSERT_EQ(SetText(message.Get(), NamedTag(left.Get(), L"Named", PT_STRING8), "named"), S_OK);
        ASSERT_EQ(ModifyRecipient(message.Get(), MODRECIP_ADD, "ann", MAPI_TO), S_OK);
        ASSERT_EQ(AddAttachment(message.Get(), "file", std::string(3000, 'f'))->SaveChanges(0), S_OK);
        TestRef<IAttach> attach;
        ULONG number = 0;
        ASSERT_EQ(message->CreateAttach(nullptr, 0, &number, attach.Out()), S_OK);
        auto inner = EmbeddedIn(attach.Get(), MAPI_CREATE | MAPI_MODIFY);
        ASSERT_EQ(SetText(inner.Get(), PR_SUBJECT_A, "inner"), S_OK);
        ASSERT_EQ(inner->SaveChanges(0), S_OK);
        ASSERT_EQ(attach->SaveChanges(0), S_OK);
        ASSERT_EQ(message->SaveChanges(0), S_OK);
        MakeFolder(left.Get(), "Below");
        auto batch = BatchOf(leftStore.Get());
        ASSERT_EQ(batch->BeginBatch(), S_OK);
        for (int i = 0; i < 600; ++i)
            SavedMessage(left.Get(), "Many " + std::to_string(i));
        ASSERT_EQ(batch->EndBatch(), S_OK);
        ASSERT_EQ(RowsOfSubject(left.Get(), "many 77"), 1u);  // makes a lookup
        SavedMessage(left.Get(), "Later");
    }
    StoreCheckCounts counts{};
};

}  // namespace

TEST_F(StoreCheck, FindsEachKindOfDamageAndNoneInAWholeFile) {
    Fill();
    Found whole = Check();
    EXPECT_EQ(whole.kinds, "") << whole.texts;
    EXPECT_EQ(counts.messages, 602u);
    EXPECT_EQ(counts.parts, 3u);
    EXPECT_GE(counts.lookups, 1u);
    LogOffAll();
    const std::string file = FileOf("store1.vst"), good = file + ".good";
    std::filesystem::copy_file(file, good);
    struct Case {
        const char *damage, *kinds, *words;
    };
    const Case cases[] = {
        {"UPDATE message SET block = x'FFFFFFFF00' WHERE attachments > 0", "block lookup", "cannot be read"},
        {"UPDATE part SET block = x'0100000037001E00FFFFFF7F'", "block", "cannot be read"},
        {"UPDATE folder SET block = x'01' WHERE id = 4", "block", "cannot be read"},
        {"DELETE FROM large WHERE owner = (SELECT max(owner) FROM large)", "block count", "large value"},
        {"UPDATE large SET block = x'00000000'", "block", "has lost a large value"},
        {"UPDATE recipients SET list = x'FFFFFF7F'", "block", "recipients that cannot be read"},
        {"DELETE FROM recipients", "count", "has 0 recipient(s), and 1 by its row"},
        {"UPDATE message SET attachments = 1 WHERE attachments = 2", "count", "has 2 attachment(s), and 1"},
        {"UPDATE message SET large = 0 WHERE large = 1", "count", "other large values"},
        {"INSERT INTO part VALUES(549755814288, 12345678901234567, 0, 0, x'00000000')", "owner",
         "no message"},
        {"UPDATE part SET owner = id WHERE number = 0", "count owner", "belongs to no message"},
        {"INSERT INTO large VALUES(77, x'00000000')", "owner", "large values of"},
        {"INSERT INTO recipients VALUES(77, x'00000000')", "owner", "recipients of"},
        {"UPDATE folder SET parent = 999 WHERE id = (SELECT max(id) FROM folder)", "parent", "\"\\Below\""},
        {"UPDATE folder SET parent = id WHERE id > 11", "parent", "or in itself"},
        {"DELETE FROM folder WHERE id = 3", "parent", "standard folder"},
        {"UPDATE message SET id = id + (900 << 40) WHERE attachments = 2", "block count owner parent",
         "not there"},
        {"UPDATE folder SET name = x'41' WHERE id = 5", "name", "another name"},
        {"DELETE FROM name", "name", "\"Full\" in the folder \"\\Left\""},
        {"DELETE FROM fact WHERE name = 'properties'; INSERT INTO fact VALUES('properties', x'FFFFFF7F')",
         "fact", "properties of the store"},
        {"INSERT INTO fact VALUES('receive:IPM.X', x'FF00000000000000')", "fact", "IPM.X"},
        {"UPDATE counter SET serial = 5", "counter", "next number of a message"},
        {"UPDATE counter SET folder = 5", "counter", "next number of a folder"},
        {"UPDATE counter SET change = 5", "counter", "next number of a change"},
        {"UPDATE counter SET times = x'0102'", "counter", "times given"},
        {"DELETE FROM counter", "counter", "not there"},
        {"DELETE FROM lookup_page", "lookup", "are not found by a question"},
        {"DELETE FROM lookup_touched; DELETE FROM lookup_key", "lookup", "1 message(s) are not found"},
        {"UPDATE lookup_page SET page = x'FF0000'", "lookup", "cannot be read"},
        {"INSERT INTO lookup_key VALUES(99, x'41', 1)", "lookup", "a lookup that is not there"},
        {"PRAGMA writable_schema=1; DELETE FROM sqlite_schema WHERE name = 'folder_name'", "file", ""},
    };
    for (const Case& one : cases) {
        SCOPED_TRACE(one.damage);
        std::filesystem::remove(file);  // not every library replaces a file, whatever it is told
        std::filesystem::copy_file(good, file);
        Sql(file, one.damage);
        if (OpenFirst() != S_OK) {
            EXPECT_STREQ(one.damage, "DELETE FROM counter");  // no store at all without them
            leftStore.Reset();
            session.Reset();
            continue;
        }
        const Found found = Check();
        EXPECT_EQ(found.kinds, one.kinds) << found.texts;
        EXPECT_NE(found.texts.find(one.words), std::string::npos) << found.texts;
        leftStore.Reset();
        session.Reset();
    }
    // Bytes that fall anywhere: the check ends, and finds most of them.
    std::string bytes;
    ReadFileBytes(good, bytes);
    unsigned found = 0, refused = 0;
    for (std::size_t at = 300; at < bytes.size(); at += bytes.size() / 40) {
        std::string damaged = bytes;
        for (std::size_t i = at; i < at + 40 && i < bytes.size(); ++i)
            damaged[i] = static_cast<char>(~damaged[i]);
        WriteFileDurably(file, damaged);
        if (OpenFirst() != S_OK)
            ++refused;
        else
            found += !Check().kinds.empty();
        leftStore.Reset();
        session.Reset();
    }
    EXPECT_GE(found + refused, 8u) << found << " found, " << refused << " did not open";
    RemoveFile(good);
}
