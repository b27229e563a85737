#include "Platform/CompoundFixture.h"

namespace {

constexpr CLSID SomeClass = {0x20D0B, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};
using Names = std::vector<std::string>;

// The code of a call that gives an object, which is not kept.
template <class Interface, class Call>
HRESULT Try(Call call) {
    Interface* object = nullptr;
    const HRESULT hr = call(&object);
    if (object) object->Release();
    return hr;
}

HRESULT TryOpenStream(IStorage& in, const wchar_t* name, DWORD mode) {
    return Try<IStream>([&](IStream** out) { return in.OpenStream(name, nullptr, mode, 0, out); });
}

HRESULT TryCreateStream(IStorage& in, const wchar_t* name, DWORD mode) {
    return Try<IStream>([&](IStream** out) { return in.CreateStream(name, mode, 0, 0, out); });
}

HRESULT TryOpen(const std::wstring& path, DWORD mode) {
    return Try<IStorage>(
        [&](IStorage** out) { return StgOpenStorage(path.c_str(), nullptr, mode, nullptr, 0, out); });
}

HRESULT TryCreate(const std::wstring& path, DWORD mode) {
    return Try<IStorage>([&](IStorage** out) { return StgCreateDocfile(path.c_str(), mode, 0, out); });
}

}  // namespace

// Sizes around the edges of small sectors, sectors and the border between small and large streams.
TEST_F(CompoundFileTest, StreamsOfAllSizesComeBack) {
    const std::wstring path = Path("sizes.dat");
    const std::vector<size_t> sizes = {0, 1, 63, 64, 65, 511, 512, 4095, 4096, 4097, 70000};
    {
        const StorageHold root = CreateFileStorage(path);
        for (const size_t cb : sizes) {
            AddStream(*root, (L"stream" + std::to_wstring(cb)).c_str(), Pattern(cb));
        }
        EXPECT_EQ(S_OK, root->Commit(STGC_DEFAULT));
    }
    const StorageHold root = OpenFileStorage(path);
    for (const size_t cb : sizes) {
        EXPECT_EQ(Pattern(cb), StreamBytes(*root, (L"stream" + std::to_wstring(cb)).c_str()));
    }
}

TEST_F(CompoundFileTest, ThousandsOfElementsComeBack) {
    const std::wstring path = Path("many.dat");
    constexpr int count = 3000;
    {
        const StorageHold root = CreateFileStorage(path, STGM_CREATE | STGM_TRANSACTED | Exclusive);
        for (int i = 0; i < count; ++i) {
            AddStream(*root, (L"e" + std::to_wstring(i)).c_str(), std::to_string(i));
        }
        EXPECT_EQ(S_OK, root->Commit(STGC_DEFAULT));
    }
    const StorageHold root = OpenFileStorage(path);
    EXPECT_EQ(static_cast<size_t>(count), Elements(*root).size());
    for (int i = 0; i < count; i += 7) {
        ASSERT_EQ(std::to_string(i), StreamBytes(*root, (L"e" + std::to_wstring(i)).c_str()));
    }
}

TEST_F(CompoundFileTest, NamesAreFoundWithoutRegardToCase) {
    const StorageHold root = CreateFileStorage(Path("case.dat"));
    AddStream(*root, L"Vellum", "x");
    EXPECT_EQ("x", StreamBytes(*root, L"VELLUM"));
    EXPECT_EQ(STG_E_FILEALREADYEXISTS, TryCreateStream(*root, L"vellum", Exclusive));
    EXPECT_EQ(S_OK, root->RenameElement(L"vellum", L"other"));
    EXPECT_EQ(STG_E_FILENOTFOUND, TryOpenStream(*root, L"Vellum", Exclusive));
    EXPECT_EQ("x", StreamBytes(*root, L"other"));
    EXPECT_EQ(S_OK, root->DestroyElement(L"other"));
    EXPECT_EQ(Names{}, Elements(*root));
    EXPECT_EQ(STG_E_FILENOTFOUND, root->DestroyElement(L"other"));
}

TEST_F(CompoundFileTest, OpeningAnswersThePublishedCodes) {
    EXPECT_EQ(STG_E_FILENOTFOUND, TryOpen(Path("absent.dat"), Exclusive));
    EXPECT_EQ(STG_E_PATHNOTFOUND, TryOpen(Path("absent/absent.dat"), Exclusive));
    EXPECT_EQ(STG_E_INVALIDFLAG, TryOpen(Path("absent.dat"), STGM_READWRITE));

    WriteFileDurably(Utf8FromWide(Path("text.dat")), Pattern(5000));
    EXPECT_EQ(STG_E_FILEALREADYEXISTS, TryOpen(Path("text.dat"), ReadExclusive));
    EXPECT_EQ(STG_E_FILEALREADYEXISTS, TryCreate(Path("text.dat"), Exclusive));
    std::string bytes;
    EXPECT_TRUE(ReadFileBytes(Utf8FromWide(Path("text.dat")), bytes));
    EXPECT_EQ(Pattern(5000), bytes) << "a refused creation leaves the file alone";

    const StorageHold root = CreateFileStorage(Path("modes.dat"));
    AddStream(*root, L"s", "x");
    EXPECT_EQ(STG_E_INVALIDFLAG, TryOpenStream(*root, L"s", STGM_READ | STGM_SHARE_DENY_NONE));
    EXPECT_EQ(STG_E_INVALIDNAME, TryCreateStream(*root, std::wstring(32, L'n').c_str(), Exclusive));
    EXPECT_EQ(S_OK, TryCreateStream(*root, std::wstring(31, L'n').c_str(), Exclusive));
    const StreamHold open = OpenStream(*root, L"s", Exclusive);
    EXPECT_EQ(STG_E_ACCESSDENIED, TryOpenStream(*root, L"s", Exclusive)) << "it is open already";
}

TEST_F(CompoundFileTest, ReadersCannotWrite) {
    const std::wstring path = Path("readonly.dat");
    AddStream(*CreateFileStorage(path), L"s", "before");
    const StorageHold root = OpenFileStorage(path);
    EXPECT_EQ(STG_E_ACCESSDENIED, TryCreateStream(*root, L"new", Exclusive));
    EXPECT_LT(TryOpenStream(*root, L"s", Exclusive), 0);
    EXPECT_EQ(STG_E_ACCESSDENIED, root->DestroyElement(L"s"));
    const StreamHold stream = OpenStream(*root, L"s");
    EXPECT_EQ(STG_E_ACCESSDENIED, stream->Write("after", 5, nullptr));
    EXPECT_EQ("before", Rest(*stream));
}

TEST_F(CompoundFileTest, AnExclusiveFileIsNobodyElses) {
    const std::wstring path = Path("shared.dat");
    AddStream(*CreateFileStorage(path), L"s", "x");
    StorageHold root = OpenFileStorage(path, Exclusive);
    EXPECT_LT(TryOpen(path, Exclusive), 0);
    EXPECT_EQ(S_OK, root->Commit(STGC_DEFAULT));
    EXPECT_LT(TryOpen(path, Exclusive), 0) << "also after a commit";
    root.reset();
    EXPECT_EQ(S_OK, TryOpen(path, Exclusive));
}

TEST_F(CompoundFileTest, WithoutCommitATransactionLeavesNothing) {
    const std::wstring path = Path("transacted.dat");
    AddStream(*CreateFileStorage(path), L"s", "old");
    {
        const StorageHold root = OpenFileStorage(path, STGM_TRANSACTED | Exclusive);
        AddStream(*root, L"s", "new");
        AddStream(*root, L"t", "more");
    }
    EXPECT_EQ(Names{"s:3"}, Elements(*OpenFileStorage(path)));
    {
        const StorageHold root = OpenFileStorage(path, STGM_TRANSACTED | Exclusive);
        AddStream(*root, L"t", "more");
        EXPECT_EQ(S_OK, root->Revert());
        EXPECT_EQ(Names{"s:3"}, Elements(*root));
        AddStream(*root, L"u", "kept");
        EXPECT_EQ(S_OK, root->Commit(STGC_DEFAULT));
    }
    EXPECT_EQ((Names{"s:3", "u:4"}), Elements(*OpenFileStorage(path)));
}

TEST_F(CompoundFileTest, ATransactedSubstorageShowsAtItsCommit) {
    const StorageHold root = CreateFileStorage(Path("nested.dat"));
    {
        const StorageHold sub = AddStorage(*root, L"sub", STGM_TRANSACTED | Exclusive);
        AddStream(*sub, L"lost", "x");
    }
    EXPECT_EQ(Names{}, Elements(*SubStorage(*root, L"sub")));
    {
        const StorageHold sub = SubStorage(*root, L"sub", STGM_TRANSACTED | Exclusive);
        AddStream(*sub, L"kept", "x");
        EXPECT_EQ(S_OK, sub->Commit(STGC_DEFAULT));
    }
    EXPECT_EQ(Names{"kept:1"}, Elements(*SubStorage(*root, L"sub")));
}

TEST_F(CompoundFileTest, ObjectsOutliveTheirStorageAsReverted) {
    StorageHold root = CreateFileStorage(Path("reverted.dat"));
    StorageHold sub = AddStorage(*root, L"sub");
    AddStream(*sub, L"s", "x");
    const StreamHold stream = OpenStream(*sub, L"s", Exclusive);
    root.reset();
    EXPECT_EQ(STG_E_REVERTED, stream->Write("y", 1, nullptr));
    STATSTG stat{};
    EXPECT_EQ(STG_E_REVERTED, sub->Stat(&stat, STATFLAG_NONAME));
}

TEST_F(CompoundFileTest, StreamPositionsFollowThePublishedRules) {
    const StorageHold root = CreateFileStorage(Path("seek.dat"));
    AddStream(*root, L"s", "0123456789");
    const StreamHold stream = OpenStream(*root, L"s", Exclusive);
    LARGE_INTEGER move{};
    ULARGE_INTEGER at{};
    move.QuadPart = -3;
    EXPECT_EQ(S_OK, stream->Seek(move, STREAM_SEEK_END, &at));
    EXPECT_EQ(7u, at.QuadPart);
    IStream* clone = nullptr;
    ASSERT_EQ(S_OK, stream->Clone(&clone));
    EXPECT_EQ("789", Rest(*stream));
    EXPECT_EQ("789", Rest(*clone)) << "a clone has a position of its own";
    clone->Release();
    move.QuadPart = 12;
    EXPECT_EQ(S_OK, stream->Seek(move, STREAM_SEEK_SET, nullptr));
    EXPECT_EQ("", Rest(*stream)) << "behind the end there is nothing to read";
    EXPECT_EQ(S_OK, stream->Write("x", 1, nullptr));
    STATSTG stat{};
    EXPECT_EQ(S_OK, stream->Stat(&stat, STATFLAG_NONAME));
    EXPECT_EQ(13u, stat.cbSize.QuadPart) << "and writing fills the gap";
    at.QuadPart = 4;
    EXPECT_EQ(S_OK, stream->SetSize(at));
    move.QuadPart = 0;
    EXPECT_EQ(S_OK, stream->Seek(move, STREAM_SEEK_SET, nullptr));
    EXPECT_EQ("0123", Rest(*stream));
}

TEST_F(CompoundFileTest, CopyToCarriesTheTreeButForWhatIsExcluded) {
    const StorageHold from = CreateFileStorage(Path("from.dat"));
    from->SetClass(SomeClass);
    AddStream(*from, L"s", "stream");
    AddStream(*from, L"left", "out");
    AddStream(*AddStorage(*from, L"sub"), L"inner", "deep");
    const StorageHold to = CreateFileStorage(Path("to.dat"));
    std::wstring left = L"left";
    LPOLESTR excluded[] = {left.data(), nullptr};
    EXPECT_EQ(S_OK, from->CopyTo(0, nullptr, excluded, to.get()));
    EXPECT_EQ((Names{"s:6", "sub/"}), Elements(*to));
    EXPECT_EQ("deep", StreamBytes(*SubStorage(*to, L"sub"), L"inner"));
    CLSID clsid{};
    EXPECT_EQ(S_OK, ReadClassStg(to.get(), &clsid));
    EXPECT_TRUE(IsEqualGUID(SomeClass, clsid));
}
