// Damage of every kind has to end in an answer. On the other target the system's own reader is in use.
#include "Platform/CompoundFixture.h"

#include <cstring>
#include <random>

namespace {

class DamagedCompoundFileTest : public CompoundFileTest {
protected:
    static std::string BytesOf(const std::wstring& path) {
        std::string bytes;
        EXPECT_TRUE(ReadFileBytes(Utf8FromWide(path), bytes));
        return bytes;
    }

    // A file with a large and a small stream, a substorage and more names than one sector holds.
    static std::string SmallFile() {
        const std::wstring path = Path("whole.dat");
        {
            const StorageHold root = CreateFileStorage(path);
            AddStream(*root, L"large", Pattern(5000));
            AddStream(*root, L"small", Pattern(100));
            const StorageHold sub = AddStorage(*root, L"sub");
            AddStream(*sub, L"inner", Pattern(70));
            AddStorage(*sub, L"empty");
        }
        return BytesOf(path);
    }

    struct Outcome {
        HRESULT opened = S_OK;
        size_t cbRead = 0;
        unsigned elements = 0;
    };

    // Opens everything there is, as deep as it goes.
    static void Walk(IStorage& storage, Outcome& outcome) {
        IEnumSTATSTG* elements = nullptr;
        ASSERT_EQ(S_OK, storage.EnumElements(0, nullptr, 0, &elements));
        STATSTG stat{};
        while (elements->Next(1, &stat, nullptr) == S_OK) {
            ++outcome.elements;
            if (stat.type == STGTY_STORAGE) {
                IStorage* sub = nullptr;
                if (storage.OpenStorage(stat.pwcsName, nullptr, ReadExclusive, nullptr, 0, &sub) == S_OK) {
                    Walk(*sub, outcome);
                    sub->Release();
                }
            } else {
                IStream* stream = nullptr;
                if (storage.OpenStream(stat.pwcsName, nullptr, ReadExclusive, 0, &stream) == S_OK) {
                    outcome.cbRead += Rest(*stream).size();
                    stream->Release();
                }
            }
            CoTaskMemFree(stat.pwcsName);
        }
        elements->Release();
    }

    static Outcome ReadAll(const std::string& bytes) {
        Outcome outcome;
        const std::unique_ptr<void, decltype(&GlobalFree)> block(GlobalAlloc(GMEM_MOVEABLE, bytes.size()),
                                                                 &GlobalFree);
        std::memcpy(GlobalLock(block.get()), bytes.data(), bytes.size());
        GlobalUnlock(block.get());
        ILockBytes* lockBytes = nullptr;
        EXPECT_EQ(S_OK, CreateILockBytesOnHGlobal(block.get(), FALSE, &lockBytes)) << "the block stays ours";
        const LockBytesHold hold(lockBytes);
        IStorage* storage = nullptr;
        outcome.opened = StgOpenStorageOnILockBytes(lockBytes, nullptr, ReadExclusive, nullptr, 0, &storage);
        if (outcome.opened == S_OK) {
            Walk(*storage, outcome);
            storage->Release();
        }
        return outcome;
    }

    static void ExpectHarmless(const std::string& bytes) {
        const Outcome outcome = ReadAll(bytes);
        EXPECT_TRUE(outcome.opened == S_OK || HRESULT_FACILITY(outcome.opened) == FACILITY_STORAGE);
        EXPECT_LE(outcome.cbRead, bytes.size()) << "no byte of the file may come twice";
    }

    static void Put(std::string& bytes, size_t at, std::uint32_t value) {
        std::memcpy(bytes.data() + at, &value, sizeof value);
    }
    static std::uint32_t Get(const std::string& bytes, size_t at) {
        std::uint32_t value;
        std::memcpy(&value, bytes.data() + at, sizeof value);
        return value;
    }
    static size_t DirectoryOf(const std::string& bytes) { return (Get(bytes, 0x30) + 1) * 512; }
};

}  // namespace

TEST_F(DamagedCompoundFileTest, TheWholeFileGivesEverything) {
    const Outcome outcome = ReadAll(SmallFile());
    EXPECT_EQ(S_OK, outcome.opened);
    EXPECT_EQ(5000u + 100 + 70, outcome.cbRead);
    EXPECT_EQ(5u, outcome.elements);
}

TEST_F(DamagedCompoundFileTest, EveryByteSpoiledAndEveryLengthCutIsHarmless) {
    const std::string whole = SmallFile();
    for (size_t at = 0; at < whole.size(); ++at) {
        for (const int flip : {0xFF, 0x01, 0x80}) {
            std::string bytes = whole;
            bytes[at] = static_cast<char>(bytes[at] ^ flip);
            ExpectHarmless(bytes);
        }
        ExpectHarmless(whole.substr(0, at));
    }
}

TEST_F(DamagedCompoundFileTest, EveryLinkPointedAnywhereIsHarmless) {
    const std::string whole = SmallFile();
    const auto sectors = static_cast<std::uint32_t>(whole.size() / 512);
    for (size_t at = 0; at + 4 <= whole.size(); at += 4) {
        for (std::uint32_t target = 0; target < sectors; ++target) {
            std::string bytes = whole;
            Put(bytes, at, target);
            ExpectHarmless(bytes);
        }
    }
}

TEST_F(DamagedCompoundFileTest, ManyFaultsAtOnceAreHarmless) {
    const std::string whole = SmallFile();
    std::mt19937 random(7);
    for (int round = 0; round < 3000; ++round) {
        std::string bytes = whole;
        for (int fault = 0; fault < 1 + round % 40; ++fault) {
            bytes[random() % bytes.size()] = static_cast<char>(random());
        }
        ExpectHarmless(bytes);
    }
}

TEST_F(DamagedCompoundFileTest, EachKindOfDamageHasItsCode) {
    const std::string whole = SmallFile();
    EXPECT_EQ(STG_E_FILEALREADYEXISTS, ReadAll("").opened);
    EXPECT_EQ(STG_E_FILEALREADYEXISTS, ReadAll("not a compound file").opened);
    EXPECT_EQ(STG_E_INVALIDHEADER, ReadAll(whole.substr(0, 100)).opened);
    EXPECT_EQ(STG_E_DOCFILECORRUPT, ReadAll(whole.substr(0, 512)).opened);

    std::string circle = whole;  // the root's child is the root
    Put(circle, DirectoryOf(circle) + 0x4C, 0);
    EXPECT_EQ(STG_E_DOCFILECORRUPT, ReadAll(circle).opened);

    std::string beyond = whole;
    Put(beyond, DirectoryOf(beyond) + 0x4C, 4711);
    EXPECT_EQ(STG_E_DOCFILECORRUPT, ReadAll(beyond).opened);
}

TEST_F(DamagedCompoundFileTest, ADamagedStreamLeavesTheOthersReadable) {
    std::string bytes = SmallFile();
    const size_t fat = (Get(bytes, 0x4C) + 1) * 512;
    Put(bytes, fat, 0);  // the large stream begins in sector 0, which now follows itself
    const Outcome outcome = ReadAll(bytes);
    EXPECT_EQ(S_OK, outcome.opened);
    EXPECT_EQ(100u + 70, outcome.cbRead);
}

TEST_F(DamagedCompoundFileTest, TwoStreamsOnOneChainDoNotMultiply) {
    std::string bytes = SmallFile();
    const size_t directory = DirectoryOf(bytes);
    unsigned entries = 0;
    for (size_t at = directory; at + 128 <= directory + 1024; at += 128) {
        if (bytes[at + 0x42] != 2) continue;
        Put(bytes, at + 0x74, 0);
        Put(bytes, at + 0x78, 5000);
        ++entries;
    }
    ASSERT_EQ(3u, entries);
    EXPECT_EQ(5000u, ReadAll(bytes).cbRead);
}

TEST_F(DamagedCompoundFileTest, StoragesNestNoDeeperThanAnyMessage) {
    const StorageHold root = CreateFileStorage(Path("deep.dat"));
    std::vector<StorageHold> chain;
    IStorage* in = root.get();
    HRESULT hr = S_OK;
    for (unsigned depth = 0; depth < 1000 && hr == S_OK; ++depth) {
        IStorage* sub = nullptr;
        hr = in->CreateStorage(L"d", Exclusive, 0, 0, &sub);
        if (hr == S_OK) chain.emplace_back(sub);
        in = sub;
    }
    EXPECT_LT(hr, 0);
    EXPECT_GT(chain.size(), 200u);
    EXPECT_EQ(S_OK, root->Commit(STGC_DEFAULT));
    EXPECT_EQ(S_OK, ReadAll(BytesOf(Path("deep.dat"))).opened) << "what can be written can be read";
}
