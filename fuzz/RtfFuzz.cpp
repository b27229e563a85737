// Compressed RTF and RTF text, from whatever bytes. What was compressed must come back.
#include <MapiStore/Values/Lzfu.h>
#include <MapiStore/Values/RtfText.h>
#include <MapiStore/Values/StoreError.h>

#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view input(reinterpret_cast<const char*>(data), size);
    try {
        TextFromRtf(DecompressRtf(input).text);
    } catch (const CStoreError&) {
    }
    const std::string text = TextFromRtf(input);
    TextFromRtf(RtfFromText(text));
    const DecompressedRtf again = DecompressRtf(CompressRtf(input));
    if (again.damaged || again.text != input) std::abort();
    return 0;
}
