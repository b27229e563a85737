// Published rules of compound files that not every system's own implementation keeps.
#include "Platform/CompoundFixture.h"

#include <filesystem>

TEST_F(CompoundFileTest, StateBitsAndTimesComeBack) {
    const std::wstring path = Path("attributes.dat");
    const FILETIME time = FileTimeOf(0x01D0123456789ABC);
    {
        const StorageHold root = CreateFileStorage(path);
        EXPECT_EQ(S_OK, root->SetStateBits(0x05, 0x0F));
        EXPECT_EQ(S_OK, root->SetStateBits(0xF2, 0xF3));
        AddStorage(*root, L"sub");
        EXPECT_EQ(S_OK, root->SetElementTimes(L"sub", &time, nullptr, &time));
    }
    STATSTG stat{};
    const StorageHold root = OpenFileStorage(path);
    EXPECT_EQ(S_OK, root->Stat(&stat, STATFLAG_NONAME));
    EXPECT_EQ(0xF6u, stat.grfStateBits);
    EXPECT_EQ(S_OK, SubStorage(*root, L"sub")->Stat(&stat, STATFLAG_NONAME));
    EXPECT_EQ(TicksOf(time), TicksOf(stat.ctime));
    EXPECT_EQ(TicksOf(time), TicksOf(stat.mtime));
}

TEST_F(CompoundFileTest, NamesThatNoElementMayHaveAreRefused) {
    const StorageHold root = CreateFileStorage(Path("names.dat"));
    for (const wchar_t* name : {L"", L"a/b", L"a\\b", L"a:b", L"a!b"}) {
        IStream* stream = nullptr;
        EXPECT_EQ(STG_E_INVALIDNAME, root->CreateStream(name, Exclusive, 0, 0, &stream));
        EXPECT_EQ(nullptr, stream);
    }
}

TEST_F(CompoundFileTest, NobodySeeksBeforeTheBeginning) {
    const StorageHold root = CreateFileStorage(Path("before.dat"));
    AddStream(*root, L"s", "0123456789");
    const StreamHold stream = OpenStream(*root, L"s", Exclusive);
    LARGE_INTEGER move{};
    ULARGE_INTEGER at{};
    move.QuadPart = 4;
    EXPECT_EQ(S_OK, stream->Seek(move, STREAM_SEEK_SET, nullptr));
    move.QuadPart = -5;
    EXPECT_EQ(STG_E_INVALIDFUNCTION, stream->Seek(move, STREAM_SEEK_CUR, &at));
    EXPECT_EQ("456789", Rest(*stream)) << "the position stays";
}

TEST_F(CompoundFileTest, SizesBeyondTheFormatAreRefusedWithoutTakingMemory) {
    const StorageHold root = CreateFileStorage(Path("huge.dat"));
    AddStream(*root, L"s", "x");
    const StreamHold stream = OpenStream(*root, L"s", Exclusive);
    ULARGE_INTEGER size{};
    size.QuadPart = 0x80000000;
    EXPECT_EQ(STG_E_MEDIUMFULL, stream->SetSize(size));
    LARGE_INTEGER far{};
    far.QuadPart = INT64_MAX;
    EXPECT_EQ(S_OK, stream->Seek(far, STREAM_SEEK_SET, nullptr));
    EXPECT_EQ(STG_E_MEDIUMFULL, stream->Write("y", 1, nullptr));
}

TEST_F(CompoundFileTest, ACommitThatFailsKeepsTheOldFile) {
    const std::string directory = JoinPath(DataDirectory(), "full");
    ASSERT_TRUE(MakeDirectories(directory));
    const std::wstring path = WideFromUtf8(JoinPath(directory, "kept.dat"));
    AddStream(*CreateFileStorage(path), L"s", "old");
    {
        const StorageHold root = OpenFileStorage(path, Exclusive);
        AddStream(*root, L"s", "new");
        // With its directory gone nothing new can be written.
        std::filesystem::rename(directory, directory + ".away");
        EXPECT_EQ(STG_E_WRITEFAULT, root->Commit(STGC_DEFAULT));
    }
    std::filesystem::rename(directory + ".away", directory);
    EXPECT_EQ("old", StreamBytes(*OpenFileStorage(path), L"s"));
}
