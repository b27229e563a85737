#include <MapiWrapper/Variant.h>
#include <Platform/Clock.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>

namespace {

constexpr std::uint64_t kTicksPerSecond = 10000000;
constexpr std::int64_t kSecondsPerDay = 86400;
constexpr std::int64_t kDaysFrom1601To1899 = 109205;
constexpr double kLastDate = 2958466.0;  // 1 January 10000

std::string Format(const char* format, double value, int digits) {
    char text[64];
    std::snprintf(text, sizeof text, format, digits, value);
    return text;
}

std::string CurrencyText(std::int64_t value) {
    const std::uint64_t whole =
        value < 0 ? 0 - static_cast<std::uint64_t>(value) : static_cast<std::uint64_t>(value);
    std::string text = (value < 0 ? "-" : "") + std::to_string(whole / 10000);
    std::string digits = std::to_string(10000 + whole % 10000).substr(1);
    while (!digits.empty() && digits.back() == '0')
        digits.pop_back();
    return digits.empty() ? text : text + "." + digits;
}

std::string DateText(double date) {
    FILETIME ft;
    SYSTEMTIME st;
    if (!FileTimeFromDate(date, ft) || !SplitFileTime(ft, st)) return {};
    char text[40];
    int n = std::snprintf(text, sizeof text, "%04u-%02u-%02u", st.wYear, st.wMonth, st.wDay);
    if (st.wHour || st.wMinute || st.wSecond)
        std::snprintf(text + n, sizeof text - static_cast<size_t>(n), " %02u:%02u:%02u", st.wHour, st.wMinute,
                      st.wSecond);
    return text;
}

std::string Trimmed(const std::string& text) {
    const size_t first = text.find_first_not_of(" \t\r\n");
    if (first == std::string::npos) return {};
    return text.substr(first, text.find_last_not_of(" \t\r\n") - first + 1);
}

bool LongFromDouble(double value, std::int32_t& out) {
    const double rounded = std::nearbyint(value);
    if (!(rounded >= -2147483648.0 && rounded <= 2147483647.0)) return false;
    out = static_cast<std::int32_t>(rounded);
    return true;
}

bool LongFromText(const std::string& text, std::int32_t& out) {
    const std::string trimmed = Trimmed(text);
    if (trimmed.empty() || trimmed.find_first_not_of("0123456789+-.eE") != std::string::npos) return false;
    char* end = nullptr;
    const double value = std::strtod(trimmed.c_str(), &end);
    return *end == 0 && LongFromDouble(value, out);
}

// The three forms of a date; the time behind it is optional.
bool SplitDateText(const std::string& text, SYSTEMTIME& st, std::string& rest) {
    unsigned a = 0, b = 0, c = 0;
    int read = 0;
    if (std::sscanf(text.c_str(), "%4u-%2u-%2u%n", &a, &b, &c, &read) == 3) {
        st.wYear = static_cast<WORD>(a);
        st.wDay = static_cast<WORD>(c);
    } else if (std::sscanf(text.c_str(), "%2u.%2u.%4u%n", &a, &b, &c, &read) == 3) {
        st.wDay = static_cast<WORD>(a);
        st.wYear = static_cast<WORD>(c);
    } else {
        return false;
    }
    st.wMonth = static_cast<WORD>(b);
    rest = text.substr(static_cast<size_t>(read));
    return true;
}

bool SplitTimeText(const std::string& text, SYSTEMTIME& st) {
    if (text.empty()) return true;
    if (text[0] != ' ' && text[0] != 'T') return false;
    unsigned h = 0, m = 0, s = 0;
    int read = 0;
    if (std::sscanf(text.c_str() + 1, "%2u:%2u%n", &h, &m, &read) != 2) return false;
    std::string rest = text.substr(static_cast<size_t>(read) + 1);
    if (!rest.empty()) {
        if (std::sscanf(rest.c_str(), ":%2u%n", &s, &read) != 1 || rest.size() != static_cast<size_t>(read))
            return false;
    }
    st.wHour = static_cast<WORD>(h);
    st.wMinute = static_cast<WORD>(m);
    st.wSecond = static_cast<WORD>(s);
    return true;
}

bool DateFromText(const std::string& text, double& out) {
    SYSTEMTIME st{};
    std::string rest;
    FILETIME ft;
    if (!SplitDateText(Trimmed(text), st, rest) || !SplitTimeText(rest, st) || !JoinFileTime(st, ft))
        return false;
    out = DateFromFileTime(ft);
    return true;
}

}  // namespace

std::string CVariant::Text() const {
    switch (GetKind()) {
        case Kind::Empty:
            return {};
        case Kind::I2:
            return std::to_string(As<std::int16_t>());
        case Kind::I4:
            return std::to_string(As<std::int32_t>());
        case Kind::R4:
            return Format("%.*g", As<float>(), 7);
        case Kind::R8:
            return Format("%.*g", As<double>(), 15);
        case Kind::Currency:
            return CurrencyText(As<CVariantCurrency>().value);
        case Kind::Bool:
            return As<bool>() ? "-1" : "0";
        case Kind::Date:
            return DateText(As<CVariantDate>().value);
        case Kind::Text:
            return As<std::string>();
    }
    return {};
}

bool CVariant::ToLong(std::int32_t& out) const {
    switch (GetKind()) {
        case Kind::Empty:
            out = 0;
            return true;
        case Kind::I2:
            out = As<std::int16_t>();
            return true;
        case Kind::I4:
            out = As<std::int32_t>();
            return true;
        case Kind::R4:
            return LongFromDouble(As<float>(), out);
        case Kind::R8:
            return LongFromDouble(As<double>(), out);
        case Kind::Currency:
            return LongFromDouble(static_cast<double>(As<CVariantCurrency>().value) / 10000.0, out);
        case Kind::Bool:
            out = As<bool>() ? -1 : 0;
            return true;
        case Kind::Date:
            return LongFromDouble(As<CVariantDate>().value, out);
        case Kind::Text:
            return LongFromText(As<std::string>(), out);
    }
    return false;
}

bool CVariant::ToDate(double& out) const {
    if (GetKind() == Kind::Date) {
        out = As<CVariantDate>().value;
        return true;
    }
    return GetKind() == Kind::Text && DateFromText(As<std::string>(), out);
}

bool FileTimeFromDate(double date, FILETIME& ft) {
    if (!(date > -static_cast<double>(kDaysFrom1601To1899) - 1 && date < kLastDate)) return false;
    // The fraction of a day counts forwards, also for days before the epoch.
    const double day = std::trunc(date);
    const std::int64_t seconds = std::llround(std::fabs(date - day) * static_cast<double>(kSecondsPerDay));
    const std::int64_t total =
        (static_cast<std::int64_t>(day) + kDaysFrom1601To1899) * kSecondsPerDay + seconds;
    if (total < 0) return false;
    ft = FileTimeOf(static_cast<std::uint64_t>(total) * kTicksPerSecond);
    return true;
}

double DateFromFileTime(const FILETIME& ft) {
    const std::int64_t seconds = static_cast<std::int64_t>(TicksOf(ft) / kTicksPerSecond);
    const std::int64_t day = seconds / kSecondsPerDay - kDaysFrom1601To1899;
    const double part = static_cast<double>(seconds % kSecondsPerDay) / static_cast<double>(kSecondsPerDay);
    return day < 0 ? static_cast<double>(day) - part : static_cast<double>(day) + part;
}
