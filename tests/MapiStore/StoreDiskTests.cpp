// The storage itself: a full disk, and the blocks that it keeps.
#include <MapiStore/Storage/SqliteStorage.h>
#include <MapiStore/Values/PropertyBag.h>
#include <MapiStore/Values/PropertyCodec.h>
#include <MapiStore/Values/StoreError.h>
#include <Platform/Directories.h>
#include <Platform/Files.h>
#include <gtest/gtest.h>

namespace {

HRESULT CodeOf(const std::function<void()>& body) {
    try {
        body();
        return S_OK;
    } catch (const CStoreError& error) {
        return error.Code();
    }
}

class StoreDisk : public ::testing::Test {
protected:
    void SetUp() override {
        m_path = JoinPath(DataDirectory(), "disk.vst");
        RemoveFile(m_path);
        CSqliteStorage::Create(m_path);
    }
    void TearDown() override { RemoveFile(m_path); }
    std::string m_path;
};

std::string TextIn(const CPropertyBag& bag, PropId id) {
    CStoredValue value;
    return bag.Find(id, value) ? std::string(value.Bytes()) : "-";
}

}  // namespace

TEST_F(StoreDisk, AFullDiskFailsTheSaveAndKeepsTheStore) {
    CSqliteStorage storage(m_path);
    StoreCounters counters;
    storage.LimitPages(60);
    ObjectId last = 0;
    HRESULT hr = S_OK;
    for (int i = 0; i < 1000 && hr == S_OK; ++i) {
        hr = CodeOf([&] {
            storage.BeginWrite(counters);
            MessageHead head;
            head.id = MakeMessageId(2, false, counters.serial++);
            head.hasLarge = true;
            storage.InsertMessage(head, "block");
            storage.WriteLarge(head.id, std::string(20000, 'x'));
            storage.Commit(counters);
            last = head.id;
        });
    }
    EXPECT_EQ(hr, MAPI_E_NOT_ENOUGH_DISK);
    storage.Rollback();
    EXPECT_EQ(storage.CountMessages(2, false), last & kSerialMask);
    storage.LimitPages(100000);
    storage.BeginWrite(counters);
    EXPECT_TRUE(storage.DeleteMessage(last));
    storage.Commit(counters);
}

TEST_F(StoreDisk, PartsThatOwnThemselvesAreNotFollowedForever) {
    CSqliteStorage storage(m_path);
    StoreCounters counters;
    storage.BeginWrite(counters);
    storage.WritePart({MakePartId(1), MakePartId(2), 0, false}, "a");
    storage.WritePart({MakePartId(2), MakePartId(1), 0, false}, "b");
    EXPECT_EQ(CodeOf([&] { storage.DeletePart(MakePartId(1)); }), MAPI_E_CORRUPT_STORE);
    storage.Rollback();
}

TEST(StoreBlock, FindsEveryValueAndNothingElse) {
    CValueBlockWriter writer;
    for (int i = 0; i < 100; ++i)
        writer.Add(static_cast<PropId>(10 + 3 * i), PT_STRING8, std::to_string(i));
    const std::string block = writer.Finish();
    const CValueBlock view(block);
    CStoredValue value;
    for (int i = 0; i < 100; ++i) {
        ASSERT_TRUE(view.Find(static_cast<PropId>(10 + 3 * i), value));
        EXPECT_EQ(value.Bytes(), std::to_string(i));
        EXPECT_FALSE(view.Find(static_cast<PropId>(11 + 3 * i), value));
    }
    EXPECT_FALSE(view.Find(0, value));
    EXPECT_EQ(CValueBlock(std::string_view()).Count(), 0u);
}

TEST(StoreBlock, EveryCutAndEveryFlippedByteIsSurvived) {
    CPropertyBag bag;
    bag.SetText(0x0037, "Subject");
    bag.SetLong(0x0E07, 1);
    const std::string elements = JoinElements({"one", "two"});
    bag.Set(0x6800, PT_MV_STRING8, elements);
    bag.Set(0x1000, PT_STRING8, std::string(2000, 'b'));
    const std::string block = bag.Build({}).small;
    const auto readAll = [](const std::string& bytes) {
        const CValueBlock view(bytes);
        CStoredValue value;
        for (std::size_t i = 0; i < view.Count(); ++i) {
            view.At(i, value);
            const auto type = GivenType(value.Type(), PT_UNSPECIFIED, true);
            std::string room(RoomFor(value, *type, false) + 8, 0);
            char* next = room.data();
            SPropValue out;
            GiveValue(value, PROP_TAG(*type, value.Id()), false, out, next);
        }
    };
    EXPECT_EQ(CodeOf([&] { readAll(block); }), S_OK);
    for (std::size_t cut = 0; cut < block.size(); ++cut) {
        const HRESULT hr = CodeOf([&] { readAll(block.substr(0, cut)); });
        EXPECT_TRUE(hr == S_OK || hr == MAPI_E_CORRUPT_DATA);
    }
    for (std::size_t at = 0; at < block.size(); ++at) {
        std::string damaged = block;
        damaged[at] = static_cast<char>(damaged[at] ^ 0xFF);
        const HRESULT hr = CodeOf([&] { readAll(damaged); });
        EXPECT_TRUE(hr == S_OK || hr == MAPI_E_CORRUPT_DATA);
    }
}

TEST(StoreBlock, ABagIsItsBlockWithTheChangesOverIt) {
    CPropertyBag first;
    first.SetText(3, "three");
    first.SetText(1, "one");
    first.Set(2, PT_STRING8, std::string(600, 'L'));
    const auto stored = first.Build({});
    EXPECT_TRUE(stored.hasLarge);
    CPropertyBag bag;
    bag.Load(stored.small);
    EXPECT_FALSE(bag.IsChanged());
    bag.SetText(4, "four");
    bag.SetText(1, "ONE");
    EXPECT_TRUE(bag.Remove(3));
    EXPECT_FALSE(bag.Remove(3));
    EXPECT_FALSE(bag.LargeChanged());
    EXPECT_EQ(TextIn(bag, 1) + TextIn(bag, 3) + TextIn(bag, 4), "ONE-four");
    std::string ids;
    bag.ForEach([&ids](const CStoredValue& value) { ids += std::to_string(value.Id()); });
    EXPECT_EQ(ids, "124");
    bag.SetText(2, "short now");
    EXPECT_TRUE(bag.LargeChanged());
    const auto rebuilt = bag.Build(stored.large);
    EXPECT_FALSE(rebuilt.hasLarge);
    EXPECT_TRUE(rebuilt.large.empty());
}
