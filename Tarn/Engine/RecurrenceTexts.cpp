#include <Tarn/Engine/RecurrenceTexts.h>

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <stdexcept>
#include <string_view>
#include <vector>

namespace {
constexpr std::uint16_t kVersion = 0x3004;
constexpr std::uint32_t kVersionWithHighlight = 0x3009;

// What an occurrence has of its own, in the order in which the values stand.
enum Override : std::uint16_t {
    SUBJECT = 0x1,
    MEETING_TYPE = 0x2,
    REMINDER_DELTA = 0x4,
    REMINDER = 0x8,
    LOCATION = 0x10,
    BUSY_STATUS = 0x20,
    ATTACHMENT = 0x40,
    ALL_DAY = 0x80,
    COLOR = 0x100,
    BODY = 0x200,  // without a value here
    TEXTS = SUBJECT | LOCATION | ATTACHMENT | BODY,
    KNOWN = 0x3FF
};
constexpr Override kInOrder[] = {SUBJECT,     MEETING_TYPE, REMINDER_DELTA, REMINDER, LOCATION,
                                 BUSY_STATUS, ATTACHMENT,   ALL_DAY,        COLOR};

class CBytesEnd : public std::runtime_error {
public:
    CBytesEnd() : std::runtime_error("no recurrence") {}
};
void Require(bool holds) {
    if (!holds) throw CBytesEnd();
}

class CReader {
public:
    explicit CReader(std::string_view bytes) : m_bytes(bytes) {}

    std::string Take(std::size_t cb) {
        Require(cb <= m_bytes.size() - m_at);
        m_at += cb;
        return std::string(m_bytes.substr(m_at - cb, cb));
    }
    std::uint32_t Number(std::size_t cb) {
        std::uint32_t number = 0;
        const std::string bytes = Take(cb);
        for (std::size_t i = 0; i < cb; ++i)
            number |= static_cast<std::uint32_t>(static_cast<unsigned char>(bytes[i])) << (8 * i);
        return number;
    }
    std::uint16_t Word() { return static_cast<std::uint16_t>(Number(2)); }
    std::uint32_t Long() { return Number(4); }
    // As many numbers as the one in front says.
    void SkipNumbers() {
        const std::uint64_t cb = std::uint64_t{4} * Long();
        Require(cb <= m_bytes.size() - m_at);
        m_at += static_cast<std::size_t>(cb);
    }
    void SkipBlock() { Take(Long()); }
    std::string Before() const { return std::string(m_bytes.substr(0, m_at)); }
    bool AtEnd() const { return m_at == m_bytes.size(); }

private:
    std::string_view m_bytes;
    std::size_t m_at = 0;
};

void Append(std::string& bytes, std::size_t cb, std::uint32_t number) {
    for (std::size_t i = 0; i < cb; ++i)
        bytes.push_back(static_cast<char>(number >> (8 * i)));
}
void AppendText(std::string& bytes, std::size_t cbLetter, const std::string& text) {
    Append(bytes, 2, static_cast<std::uint32_t>(text.size() / cbLetter));
    bytes += text;
}

struct COccurrence {
    std::uint32_t start = 0, end = 0;
    std::uint32_t original = 0;  // the day that it was moved from, or changed on
    std::uint16_t flags = 0;
    std::string values[std::size(kInOrder)];  // numbers of four bytes, texts in a code page
    std::uint32_t highlight = 0;
    std::string wideSubject, wideLocation;  // UTF-16
};

struct CRecurrence {
    std::string pattern;  // all in front of the number of occurrences
    bool hasHighlight = false;
    std::vector<COccurrence> occurrences;
};

// ---- reading --------------------------------------------------------------------------------------

std::size_t SizeOfDays(std::uint16_t patternType) {
    switch (patternType) {
        case 0:  // each day
            return 0;
        case 3:    // the n-th such day of a month
        case 0xB:  // the same in a calendar of the moon
            return 8;
        default:
            return 4;
    }
}

std::string ReadNarrow(CReader& reader) {
    reader.Word();  // the length with its terminating zero
    return reader.Take(reader.Word());
}

COccurrence ReadOccurrence(CReader& reader) {
    COccurrence one;
    one.start = reader.Long();
    one.end = reader.Long();
    one.original = reader.Long();
    one.flags = reader.Word();
    Require((one.flags & ~KNOWN) == 0);
    for (std::size_t i = 0; i < std::size(kInOrder); ++i) {
        if (!(one.flags & kInOrder[i])) continue;
        const bool text = kInOrder[i] == SUBJECT || kInOrder[i] == LOCATION;
        one.values[i] = text ? ReadNarrow(reader) : reader.Take(4);
    }
    return one;
}

std::string ReadWide(CReader& reader) {
    return reader.Take(std::size_t{2} * reader.Word());
}

void ReadExtension(CReader& reader, bool hasHighlight, COccurrence& one) {
    if (hasHighlight) {
        const std::string block = reader.Take(reader.Long());
        if (!block.empty()) one.highlight = CReader(block).Long();
    }
    reader.SkipBlock();
    if (!(one.flags & (SUBJECT | LOCATION))) return;
    reader.Take(12);  // start, end and day once more
    if (one.flags & SUBJECT) one.wideSubject = ReadWide(reader);
    if (one.flags & LOCATION) one.wideLocation = ReadWide(reader);
    reader.SkipBlock();
}

CRecurrence Read(const std::string& bytes) {
    CReader reader(bytes);
    CRecurrence all;
    Require(reader.Word() == kVersion && reader.Word() == kVersion);
    reader.Word();  // how often
    const std::uint16_t patternType = reader.Word();
    reader.Take(2 + 4 + 4 + 4);                        // calendar, first date, period, how it slides
    reader.Take(SizeOfDays(patternType) + 4 + 4 + 4);  // days, end, count, first day of the week
    reader.SkipNumbers();                              // days without an occurrence
    reader.SkipNumbers();                              // days of changed ones
    reader.Take(4 + 4 + 4);                            // first and last day, version of the reader
    all.hasHighlight = reader.Long() >= kVersionWithHighlight;
    reader.Take(4 + 4);  // start and end within the day
    all.pattern = reader.Before();
    all.occurrences.resize(reader.Word());
    for (COccurrence& one : all.occurrences)
        one = ReadOccurrence(reader);
    if (reader.AtEnd()) return all;  // as old programs end it
    reader.SkipBlock();
    if (reader.AtEnd()) return all;
    for (COccurrence& one : all.occurrences)
        ReadExtension(reader, all.hasHighlight, one);
    return all;
}

// ---- writing --------------------------------------------------------------------------------------

void Write(std::string& bytes, const COccurrence& one) {
    for (const std::uint32_t time : {one.start, one.end, one.original})
        Append(bytes, 4, time);
    Append(bytes, 2, one.flags);
    for (std::size_t i = 0; i < std::size(kInOrder); ++i) {
        if (!(one.flags & kInOrder[i])) continue;
        if (kInOrder[i] == SUBJECT || kInOrder[i] == LOCATION) {
            Append(bytes, 2, static_cast<std::uint32_t>(one.values[i].size() + 1));
            AppendText(bytes, 1, one.values[i]);
        } else {
            bytes += one.values[i];
        }
    }
}

void WriteExtension(std::string& bytes, bool hasHighlight, const COccurrence& one) {
    if (hasHighlight) {
        Append(bytes, 4, 4);
        Append(bytes, 4, one.highlight);
    }
    Append(bytes, 4, 0);
    if (!(one.flags & (SUBJECT | LOCATION))) return;
    for (const std::uint32_t time : {one.start, one.end, one.original})
        Append(bytes, 4, time);
    if (one.flags & SUBJECT) AppendText(bytes, 2, one.wideSubject);
    if (one.flags & LOCATION) AppendText(bytes, 2, one.wideLocation);
    Append(bytes, 4, 0);
}

std::string Write(const CRecurrence& all) {
    std::string bytes = all.pattern;
    Append(bytes, 2, static_cast<std::uint32_t>(all.occurrences.size()));
    for (const COccurrence& one : all.occurrences)
        Write(bytes, one);
    Append(bytes, 4, 0);
    for (const COccurrence& one : all.occurrences)
        WriteExtension(bytes, all.hasHighlight, one);
    Append(bytes, 4, 0);
    return bytes;
}

// ---- texts ----------------------------------------------------------------------------------------

void DropTexts(CRecurrence& all) {
    for (COccurrence& one : all.occurrences) {
        one.flags &= static_cast<std::uint16_t>(~TEXTS);
        one.wideSubject.clear();
        one.wideLocation.clear();
    }
}

void TakeTexts(COccurrence& one, const COccurrence& original) {
    one.flags |= static_cast<std::uint16_t>(original.flags & TEXTS);
    for (std::size_t i = 0; i < std::size(kInOrder); ++i)
        if (original.flags & TEXTS & kInOrder[i]) one.values[i] = original.values[i];
    one.wideSubject = original.wideSubject;
    one.wideLocation = original.wideLocation;
}
}  // namespace

std::optional<std::string> RecurrenceWithoutTexts(const std::string& recurrence) {
    try {
        CRecurrence all = Read(recurrence);
        DropTexts(all);
        return Write(all);
    } catch (const CBytesEnd&) {
        return {};
    }
}

std::optional<CReturnedRecurrence> RecurrenceWithTextsOf(const std::string& original,
                                                         const std::string& copy) {
    if (const auto bare = RecurrenceWithoutTexts(original); bare && bare == RecurrenceWithoutTexts(copy))
        return CReturnedRecurrence{original};
    try {
        CRecurrence returned = Read(copy);
        DropTexts(returned);
        CReturnedRecurrence result;
        for (const COccurrence& old : Read(original).occurrences) {
            const auto at =
                std::find_if(returned.occurrences.begin(), returned.occurrences.end(),
                             [&](const COccurrence& one) { return one.original == old.original; });
            if (at != returned.occurrences.end())
                TakeTexts(*at, old);
            else if (old.flags & TEXTS)
                result.losesTexts = true;
        }
        result.bytes = Write(returned);
        return result;
    } catch (const CBytesEnd&) {
        return {};
    }
}
