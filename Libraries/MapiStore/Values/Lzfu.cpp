#include "Lzfu.h"

#include "StoreError.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <vector>

namespace {

constexpr std::uint32_t kCompressed = 0x75465A4C;    // "LZFu"
constexpr std::uint32_t kUncompressed = 0x414C454D;  // "MELA"
constexpr std::size_t kHeaderSize = 16;
constexpr std::size_t kSizeFieldItself = 4;  // the first size does not count itself
constexpr std::size_t kWindow = 4096;
constexpr std::size_t kShortest = 2;
constexpr std::size_t kLongest = 17;
// One byte of input never yields more than this: two of a reference give seventeen.
constexpr std::size_t kBestRatio = 9;

// What every dictionary begins with: the words that RTF documents are full of.
constexpr char kPrefill[] =
    "{\\rtf1\\ansi\\mac\\deff0\\deftab720{\\fonttbl;}{\\f0\\fnil \\froman \\fswiss \\fmodern \\fscript "
    "\\fdecor MS Sans SerifSymbolArialTimes New RomanCourier{\\colortbl\\red0\\green0\\blue0\r\n\\par "
    "\\pard\\plain\\f0\\fs20\\b\\i\\u\\tab\\tx";
constexpr std::size_t kPrefillSize = sizeof kPrefill - 1;
static_assert(kPrefillSize == 207);

void AppendNumber(std::uint32_t number, std::string& out) {
    for (int shift = 0; shift < 32; shift += 8)
        out.push_back(static_cast<char>(number >> shift));
}

std::uint32_t NumberAt(std::string_view bytes, std::size_t at) {
    std::uint32_t number = 0;
    for (int i = 3; i >= 0; --i)
        number = number << 8 | static_cast<unsigned char>(bytes[at + static_cast<std::size_t>(i)]);
    return number;
}

std::string Frame(std::uint32_t type, std::size_t rawSize, std::uint32_t checksum,
                  std::string_view contents) {
    Require(rawSize <= 0x7FFFFFFF, MAPI_E_TOO_BIG);
    std::string frame;
    frame.reserve(kHeaderSize + contents.size());
    AppendNumber(static_cast<std::uint32_t>(contents.size() + kHeaderSize - kSizeFieldItself), frame);
    AppendNumber(static_cast<std::uint32_t>(rawSize), frame);
    AppendNumber(type, frame);
    AppendNumber(checksum, frame);
    frame += contents;
    return frame;
}

// Finds earlier occurrences of the next bytes in the last window of text, by chains of the places where
// the same two bytes stood. Places count from the beginning of the prefilled dictionary.
class CMatcher {
public:
    explicit CMatcher(std::string_view text) : m_heads(65536, kNone), m_previous(kWindow, kNone) {
        m_bytes.reserve(kPrefillSize + text.size());
        m_bytes.append(kPrefill, kPrefillSize);
        m_bytes.append(text);
    }

    std::size_t End() const { return m_bytes.size(); }
    char At(std::size_t place) const { return m_bytes[place]; }

    // The longest match for what stands at `place`, the oldest of equally long ones; 0 for none.
    std::size_t Find(std::size_t place, std::size_t& from) {
        Learn(place);
        const std::size_t most = std::min(kLongest, m_bytes.size() - place);
        if (most < kShortest) return 0;
        const std::size_t oldest = place >= kWindow ? place - (kWindow - 1) : 0;
        std::size_t best = 0;
        for (std::uint32_t at = m_heads[PairAt(place)]; at != kNone && at >= oldest;) {
            if (best == 0 || m_bytes[at + best - 1] == m_bytes[place + best - 1]) {
                const std::size_t length = LengthOf(at, place, most);
                if (length >= best) {
                    best = length;
                    from = at;
                }
                if (best == kLongest) break;
            }
            const std::uint32_t next = m_previous[at % kWindow];
            if (next == kNone || next >= at) break;
            at = next;
        }
        return best >= kShortest ? best : 0;
    }

private:
    static constexpr std::uint32_t kNone = 0xFFFFFFFF;

    std::uint32_t PairAt(std::size_t place) const {
        return static_cast<std::uint32_t>(static_cast<unsigned char>(m_bytes[place]) << 8 |
                                          static_cast<unsigned char>(m_bytes[place + 1]));
    }
    // Makes all places before `place` findable.
    void Learn(std::size_t place) {
        for (; m_learned < place && m_learned + 1 < m_bytes.size(); ++m_learned) {
            std::uint32_t& head = m_heads[PairAt(m_learned)];
            m_previous[m_learned % kWindow] = head;
            head = static_cast<std::uint32_t>(m_learned);
        }
    }
    std::size_t LengthOf(std::size_t at, std::size_t place, std::size_t most) const {
        std::size_t length = 0;
        while (length < most && m_bytes[at + length] == m_bytes[place + length])
            ++length;
        return length;
    }

    std::string m_bytes;
    std::vector<std::uint32_t> m_heads;
    std::vector<std::uint32_t> m_previous;
    std::size_t m_learned = 0;
};

// Runs of eight tokens behind a byte that tells which of them are references.
class CTokenWriter {
public:
    void Literal(char c) {
        Begin();
        m_out.push_back(c);
    }
    void Reference(std::size_t place, std::size_t length) {
        Begin();
        m_out[m_control] = static_cast<char>(m_out[m_control] | 1 << (m_count - 1));
        const auto token = static_cast<unsigned>((place % kWindow) << 4 | (length - kShortest));
        m_out.push_back(static_cast<char>(token >> 8));
        m_out.push_back(static_cast<char>(token));
    }
    std::string Take() { return std::move(m_out); }

private:
    void Begin() {
        if (m_count % 8 == 0) {
            m_control = m_out.size();
            m_out.push_back(0);
            m_count = 0;
        }
        ++m_count;
    }

    std::string m_out;
    std::size_t m_control = 0;
    int m_count = 0;
};

class CDecoder {
public:
    CDecoder(std::string_view contents, std::size_t rawSize) : m_in(contents), m_rawSize(rawSize) {
        m_window.fill(' ');
        std::memcpy(m_window.data(), kPrefill, kPrefillSize);
        m_text.reserve(std::min(rawSize, contents.size() * 3));
    }

    // True if the text came to its end mark or to the size that was announced.
    bool Run() {
        while (m_at < m_in.size()) {
            const auto control = static_cast<unsigned char>(m_in[m_at++]);
            for (int bit = 0; bit < 8; ++bit) {
                if (control >> bit & 1) {
                    if (m_at + 2 > m_in.size()) return false;
                    if (!Reference()) return m_text.size() == m_rawSize;
                } else {
                    if (m_at >= m_in.size()) return m_text.size() == m_rawSize;
                    if (!Put(m_in[m_at++])) return false;
                }
            }
        }
        return m_text.size() == m_rawSize;
    }
    std::string Take() { return std::move(m_text); }

private:
    bool Put(char c) {
        if (m_text.size() >= m_rawSize) return false;
        m_text.push_back(c);
        m_window[m_place] = c;
        m_place = (m_place + 1) % kWindow;
        return true;
    }
    // False at the end mark, a reference to the place that is written next.
    bool Reference() {
        const unsigned token =
            static_cast<unsigned char>(m_in[m_at]) << 8 | static_cast<unsigned char>(m_in[m_at + 1]);
        m_at += 2;
        std::size_t from = token >> 4;
        if (from == m_place) return false;
        for (std::size_t left = (token & 15) + kShortest; left > 0; --left) {
            if (!Put(m_window[from])) return true;  // the announced size is full; the end mark may follow
            from = (from + 1) % kWindow;
        }
        return true;
    }

    std::string_view m_in;
    const std::size_t m_rawSize;
    std::size_t m_at = 0;
    std::array<char, kWindow> m_window;
    std::size_t m_place = kPrefillSize;
    std::string m_text;
};

}  // namespace

std::uint32_t RtfChecksum(std::string_view bytes) {
    static const auto table = [] {
        std::array<std::uint32_t, 256> entries{};
        for (std::uint32_t i = 0; i < 256; ++i) {
            std::uint32_t entry = i;
            for (int bit = 0; bit < 8; ++bit)
                entry = entry & 1 ? entry >> 1 ^ 0xEDB88320u : entry >> 1;
            entries[i] = entry;
        }
        return entries;
    }();
    std::uint32_t checksum = 0;
    for (char c : bytes)
        checksum = table[(checksum ^ static_cast<unsigned char>(c)) & 0xFF] ^ checksum >> 8;
    return checksum;
}

std::string CompressRtf(std::string_view text) {
    CMatcher matcher(text);
    CTokenWriter writer;
    std::size_t place = kPrefillSize;
    while (place < matcher.End()) {
        std::size_t from = 0;
        if (const std::size_t length = matcher.Find(place, from)) {
            writer.Reference(from, length);
            place += length;
        } else {
            writer.Literal(matcher.At(place++));
        }
    }
    writer.Reference(place, kShortest);
    const std::string contents = writer.Take();
    return Frame(kCompressed, text.size(), RtfChecksum(contents), contents);
}

std::string WrapUncompressedRtf(std::string_view text) {
    return Frame(kUncompressed, text.size(), 0, text);
}

DecompressedRtf DecompressRtf(std::string_view packed) {
    DecompressedRtf result;
    if (packed.empty()) return result;
    Require(packed.size() >= kHeaderSize, MAPI_E_CORRUPT_DATA);
    const std::size_t announced = NumberAt(packed, 0) + std::size_t{kSizeFieldItself};
    const std::size_t rawSize = NumberAt(packed, 4);
    const std::uint32_t type = NumberAt(packed, 8);
    Require(type == kCompressed || type == kUncompressed, MAPI_E_CORRUPT_DATA);
    // Bytes behind the announced size are no part of it; missing ones end the text early.
    result.damaged = announced < kHeaderSize || announced > packed.size();
    std::string_view contents = packed.substr(kHeaderSize);
    if (!result.damaged) contents = contents.substr(0, announced - kHeaderSize);
    if (type == kUncompressed) {
        result.damaged = result.damaged || rawSize > contents.size();
        result.text.assign(contents.substr(0, rawSize));
        return result;
    }
    Require(rawSize / kBestRatio <= contents.size(), MAPI_E_CORRUPT_DATA);
    CDecoder decoder(contents, rawSize);
    const bool whole = decoder.Run();
    result.damaged = result.damaged || !whole || RtfChecksum(contents) != NumberAt(packed, 12);
    result.text = decoder.Take();
    return result;
}
