// The bytes of a sync file, and the two maps over them.
#include <Platform/Clock.h>
#include <Tarn/Engine/SyncFile.h>
#include <gtest/gtest.h>

#include <string>

namespace {
// Forty digits that do not count, then the ones that do.
const std::string Front(40, '0');

std::string Identifier(const std::string& tail) {
    return Front + tail;
}

void PutText(std::string& bytes, const std::string& text) {
    bytes += static_cast<char>(text.size());
    bytes += std::string(3, '\0');
    bytes += text;
    bytes += '\0';
}

// Two entries, byte for byte.
std::string GoldenBytes() {
    std::string bytes("\x02\x00\x00\x00", 4);
    PutText(bytes, Identifier("A1"));
    bytes += std::string("\x78\x56\x34\x12", 4);  // high half first
    bytes += std::string("\xEF\xCD\xAB\x89", 4);
    PutText(bytes, "0123");
    PutText(bytes, "Lunch");
    PutText(bytes, Identifier("B2"));
    bytes += std::string("\x01\x00\x00\x00", 4);
    bytes += std::string("\x02\x00\x00\x00", 4);
    PutText(bytes, "");
    PutText(bytes, "");
    return bytes;
}

std::vector<std::string> Names(CSyncFileMap& map) {
    std::vector<std::string> names;
    for (const CSyncFileEntry* entry : map.InKeyOrder())
        names.emplace_back(entry->Name());
    return names;
}

// Offsets of the five length fields and the count in GoldenBytes.
std::vector<size_t> LengthFields() {
    std::vector<size_t> fields;
    size_t at = 4;
    for (const size_t length : {42u, 4u, 5u, 42u, 0u, 0u}) {
        if (fields.size() % 3 == 1) at += 8;  // the time stands behind the identifier
        fields.push_back(at);
        at += 4 + length + 1;
    }
    return fields;
}
}  // namespace

TEST(SyncFile, WriterGivesTheKnownBytes) {
    CSyncFileWriter writer(2);
    writer.Add(Identifier("A1"), FileTimeOf(0x1234567889ABCDEFull), "0123", "Lunch");
    writer.Add(Identifier("B2"), FileTimeOf(0x0000000100000002ull), "", "");
    EXPECT_EQ(writer.Bytes(), GoldenBytes());
}

TEST(SyncFile, ReaderTakesTheKnownBytes) {
    CSyncFileMap map;
    std::uint32_t announced = 0;
    ASSERT_TRUE(map.Parse(GoldenBytes(), announced));
    EXPECT_EQ(announced, 2u);
    ASSERT_EQ(map.Count(), 2u);
    const CSyncFileEntry* lunch = map.FindBySyncId("0123");
    ASSERT_NE(lunch, nullptr);
    EXPECT_EQ(lunch->Identifier(), Identifier("A1"));
    EXPECT_EQ(TicksOf(lunch->time), 0x1234567889ABCDEFull);
    EXPECT_EQ(lunch->Name(), "Lunch");
    const CSyncFileEntry* unnamed = map.FindByIdentifier(Identifier("B2"));
    ASSERT_NE(unnamed, nullptr);
    EXPECT_TRUE(unnamed->SyncId().empty());
    EXPECT_EQ(map.FindBySyncId(""), nullptr);
}

TEST(SyncFile, BytesThatBreakOffGiveTheEntriesBeforeTheBreak) {
    const std::string bytes = GoldenBytes();
    const size_t endOfFirst = LengthFields()[3];
    for (size_t cut = 0; cut < bytes.size(); ++cut) {
        CSyncFileMap map;
        std::uint32_t announced = 0;
        EXPECT_FALSE(map.Parse(bytes.substr(0, cut), announced)) << "cut at " << cut;
        EXPECT_EQ(map.Count(), cut >= endOfFirst ? 1u : 0u) << "cut at " << cut;
    }
}

TEST(SyncFile, SpoiledLengthEndsTheReadingAtItsEntry) {
    const std::vector<size_t> fields = LengthFields();
    for (size_t field = 0; field < fields.size(); ++field)
        for (const std::uint32_t spoiled : {1u, 3u, 41u, 43u, 60u, 0xFFFFu, 0x7FFFFFFFu, 0xFFFFFFFFu}) {
            std::string bytes = GoldenBytes();
            for (int i = 0; i < 4; ++i)
                bytes[fields[field] + static_cast<size_t>(i)] = static_cast<char>(spoiled >> (8 * i));
            CSyncFileMap map;
            std::uint32_t announced = 0;
            EXPECT_FALSE(map.Parse(bytes, announced)) << "field " << field << " length " << spoiled;
            EXPECT_EQ(map.Count(), field / 3) << "field " << field << " length " << spoiled;
        }
}

TEST(SyncFile, CountIsNotBelieved) {
    std::string bytes = GoldenBytes();
    bytes.replace(0, 4, std::string("\xFF\xFF\xFF\xFF", 4));
    CSyncFileMap map;
    std::uint32_t announced = 0;
    EXPECT_FALSE(map.Parse(bytes, announced));
    EXPECT_EQ(announced, 0xFFFFFFFFu);
    EXPECT_EQ(map.Count(), 2u);

    bytes.replace(0, 4, std::string(4, '\0'));
    EXPECT_TRUE(map.Parse(bytes, announced));
    EXPECT_EQ(map.Count(), 0u);
}

TEST(SyncFile, IdentifiersMatchFromTheirFortyFirstDigitOn) {
    CSyncFileMap map;
    map.Add(Identifier("A1"), {}, "one", "first");
    EXPECT_NE(map.FindByIdentifier(std::string(40, 'F') + "A1"), nullptr);
    EXPECT_EQ(map.FindByIdentifier(Identifier("A10")), nullptr);
    EXPECT_EQ(map.FindByIdentifier(Front), nullptr);

    std::string bytes(20, '\x7F');
    bytes += '\xA1';
    EXPECT_NE(map.FindByItem(CItemKeyView::OfKept(bytes)), nullptr);
    EXPECT_EQ(map.FindByItem(CItemKeyView::OfKept(bytes.substr(0, 20))), nullptr);
}

TEST(SyncFile, ShortIdentifierHasTheEmptyKey) {
    CSyncFileMap map;
    map.Add("ABC", {}, "one", "short");
    EXPECT_NE(map.FindByIdentifier(""), nullptr);
    EXPECT_NE(map.FindByIdentifier(Front), nullptr);
    EXPECT_NE(map.FindByItem({}), nullptr);
}

TEST(SyncFile, LongIdentifiersAreFoundByTheirBytes) {
    std::string bytes(400, '\x5A');
    std::string hex;
    for (int i = 0; i < 400; ++i)
        hex += "5A";
    CSyncFileMap map;
    map.Add(hex, {}, "", "long");
    EXPECT_NE(map.FindByItem(CItemKeyView::OfKept(bytes)), nullptr);
}

TEST(SyncFile, FirstOfTwoEqualKeysStays) {
    CSyncFileMap map;
    map.Add(Identifier("A1"), {}, "one", "first");
    map.Add(Identifier("A1"), {}, "two", "second");
    map.Add(Identifier("B1"), {}, "one", "third");
    EXPECT_EQ(map.Count(), 2u);
    EXPECT_EQ(map.FindByIdentifier(Identifier("A1"))->Name(), "first");
    EXPECT_EQ(map.FindBySyncId("one")->Name(), "first");
    EXPECT_EQ(map.FindBySyncId("two")->Name(), "second");
    EXPECT_EQ(Names(map), (std::vector<std::string>{"first", "third"}));
}

TEST(SyncFile, WalksInTheOrderOfTheKeysAlsoWhenGrown) {
    CSyncFileMap map;
    for (int i = 999; i >= 0; --i)
        map.Add(Identifier(std::to_string(1000 + i)), {}, std::to_string(i), std::to_string(i));
    map.SetSeen(1);
    int expected = 0;
    for (const CSyncFileEntry* entry : map.InKeyOrder()) {
        EXPECT_EQ(entry->Name(), std::to_string(expected++));
        EXPECT_EQ(entry->seen, 1);
    }
    EXPECT_EQ(expected, 1000);
    map.Clear();
    EXPECT_EQ(map.Count(), 0u);
    EXPECT_EQ(map.FindBySyncId("5"), nullptr);
}

TEST(SyncFile, TextEndsAtItsFirstZeroByte) {
    CSyncFileWriter writer(1);
    writer.Add(Identifier("A1"), {}, "id", std::string("Lun\0ch", 6));
    CSyncFileMap map;
    std::uint32_t announced = 0;
    ASSERT_TRUE(map.Parse(writer.Bytes(), announced));
    EXPECT_EQ(map.FindBySyncId("id")->Name(), "Lun");
}
