// Sync files from anywhere: what is read of one is found by its keys, and written anew reads the same.
#include <Tarn/Engine/SyncFile.h>

#include <cstdint>
#include <cstdlib>
#include <string>

namespace {

void Require(bool holds) {
    if (!holds) std::abort();
}

std::string Rewritten(CSyncFileMap& map) {
    const auto entries = map.InKeyOrder();
    CSyncFileWriter writer(static_cast<std::uint32_t>(entries.size()));
    for (const CSyncFileEntry* entry : entries) {
        const CSyncFileEntry* found = map.FindByIdentifier(entry->Identifier());
        Require(found &&
                CSyncFileMap::KeyOf(found->Identifier()) == CSyncFileMap::KeyOf(entry->Identifier()));
        if (!entry->SyncId().empty()) Require(map.FindBySyncId(entry->SyncId()) != nullptr);
        writer.Add(entry->Identifier(), entry->time, entry->SyncId(), entry->Name());
    }
    return writer.TakeBytes();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, size_t size) {
    CSyncFileMap map;
    std::uint32_t announced = 0;
    map.Parse(std::string(reinterpret_cast<const char*>(data), size), announced);
    map.SetSeen(0);
    const std::string bytes = Rewritten(map);

    CSyncFileMap again;
    Require(again.Parse(bytes, announced));
    Require(announced == map.InKeyOrder().size());
    Require(again.Count() == map.Count());
    Require(Rewritten(again) == bytes);
    return 0;
}
