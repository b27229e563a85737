// Compound files: every element that lists itself is opened and read, within bounds.
#include "MemoryFile.h"

namespace {

constexpr int kDeepest = 16;

struct Budget {
    int elements = 2000;
    std::size_t bytes = 16 * 1024 * 1024;
};

void Read(IStream& stream, Budget& budget) {
    char piece[4096];
    ULONG read = 0;
    while (budget.bytes > sizeof piece && SUCCEEDED(stream.Read(piece, sizeof piece, &read)) && read > 0)
        budget.bytes -= read;
    LARGE_INTEGER middle{};
    middle.QuadPart = 1000;
    stream.Seek(middle, STREAM_SEEK_SET, nullptr);
    stream.Write("x", 1, &read);
}

void Walk(IStorage& storage, int depth, Budget& budget) {
    CRef<IEnumSTATSTG> list;
    if (FAILED(storage.EnumElements(0, nullptr, 0, list.Out()))) return;
    STATSTG stat{};
    while (budget.elements-- > 0 && list->Next(1, &stat, nullptr) == S_OK) {
        CRef<IStream> stream;
        CRef<IStorage> inner;
        constexpr DWORD mode = STGM_READWRITE | STGM_SHARE_EXCLUSIVE;
        if (stat.type == STGTY_STREAM &&
            SUCCEEDED(storage.OpenStream(stat.pwcsName, nullptr, mode, 0, stream.Out())))
            Read(*stream, budget);
        if (stat.type == STGTY_STORAGE && depth < kDeepest &&
            SUCCEEDED(storage.OpenStorage(stat.pwcsName, nullptr, mode, nullptr, 0, inner.Out())))
            Walk(*inner, depth + 1, budget);
        CoTaskMemFree(stat.pwcsName);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const CRef<IStorage> storage = StorageOf(data, size);
    if (!storage) return 0;
    Budget budget;
    Walk(*storage, 0, budget);
    storage->Commit(STGC_DEFAULT);
    return 0;
}
