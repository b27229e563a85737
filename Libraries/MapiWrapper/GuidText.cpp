#include <MapiWrapper/GuidText.h>
#include <MapiWrapper/HexText.h>
#include <MapiWrapper/MapiBinary.h>

#include <cstdio>
#include <cstring>

namespace {

// Reads groups of digits, each followed by one character of any kind.
class CGroupReader {
public:
    explicit CGroupReader(const char* text) : m_at(text) {}

    unsigned Group(int digits) {
        unsigned value = 0;
        for (int i = 0; i < digits; ++i) {
            if (!*m_at) {
                m_complete = false;
                return value << (4 * (digits - i));
            }
            const int digit = HexDigitValue(*m_at++);
            value = value * 16 + static_cast<unsigned>(digit < 0 ? 0 : digit);
        }
        return value;
    }
    void Separator() {
        if (*m_at) ++m_at;
    }
    bool Complete() const { return m_complete; }

private:
    const char* m_at;
    bool m_complete = true;
};

}  // namespace

std::string GuidToText(const GUID& guid) {
    char text[40];
    const BYTE* d = guid.Data4;
    std::snprintf(text, sizeof text, "%08X-%04X-%04X-%02X%02X-%02X%02X%02X%02X%02X%02X",
                  static_cast<unsigned>(guid.Data1), guid.Data2, guid.Data3, d[0], d[1], d[2], d[3], d[4],
                  d[5], d[6], d[7]);
    return text;
}

bool GuidFromText(const std::string& text, GUID& guid) {
    CGroupReader reader(text.c_str() + (text.c_str()[0] == '{' ? 1 : 0));
    guid.Data1 = reader.Group(8);
    reader.Separator();
    guid.Data2 = static_cast<USHORT>(reader.Group(4));
    reader.Separator();
    guid.Data3 = static_cast<USHORT>(reader.Group(4));
    reader.Separator();
    for (int i = 0; i < 8; ++i) {
        if (i == 2) reader.Separator();
        guid.Data4[i] = static_cast<BYTE>(reader.Group(2));
    }
    return reader.Complete();
}

bool GuidFromHex(const std::string& text, GUID& guid) {
    const CMapiBinary bytes = BinaryFromHex(text);
    BYTE b[16] = {};
    if (bytes.Count() != 0) std::memcpy(b, bytes.Data(), bytes.Count() < 16 ? bytes.Count() : 16);
    std::memcpy(&guid.Data1, b, 4);
    guid.Data2 = static_cast<USHORT>((b[4] << 8) | b[5]);
    guid.Data3 = static_cast<USHORT>((b[6] << 8) | b[7]);
    std::memcpy(guid.Data4, b + 8, 8);
    return bytes.Count() >= 16;
}
