// A value in the form in which the query language and the dialogs handle it, without its property tag.
#pragma once
#include <Platform/MapiHeaders.h>

#include <cstdint>
#include <string>
#include <variant>

// Currency in ten-thousandths; a date in days since 30 December 1899, UTC.
struct CVariantCurrency {
    std::int64_t value;
};
struct CVariantDate {
    double value;
};

class CVariant {
public:
    enum class Kind { Empty, I2, I4, R4, R8, Currency, Bool, Date, Text };

    CVariant() = default;
    explicit CVariant(std::int16_t value) : m_value(value) {}
    explicit CVariant(std::int32_t value) : m_value(value) {}
    explicit CVariant(float value) : m_value(value) {}
    explicit CVariant(double value) : m_value(value) {}
    explicit CVariant(CVariantCurrency value) : m_value(value) {}
    explicit CVariant(bool value) : m_value(value) {}
    explicit CVariant(CVariantDate value) : m_value(value) {}
    explicit CVariant(std::string value) : m_value(std::move(value)) {}
    explicit CVariant(const char* value) : m_value(std::string(value)) {}

    Kind GetKind() const { return static_cast<Kind>(m_value.index()); }
    bool IsEmpty() const { return GetKind() == Kind::Empty; }
    // The value of that kind; std::bad_variant_access for another kind.
    template <class T>
    const T& As() const {
        return std::get<T>(m_value);
    }

    // Empty: "". Integers in decimal. Reals in the shortest form that reads back (7 or 15 digits).
    // Currency in decimal with up to four digits behind the point. Bool "-1" or "0". Dates
    // "YYYY-MM-DD hh:mm:ss", without the time at midnight.
    std::string Text() const;

    // Change of type, as the text of a dialog needs it; false leaves `out` untouched.
    // Text: surrounding blanks allowed, decimal, rounded half to even.
    bool ToLong(std::int32_t& out) const;
    // Text: the form of Text(), also with "T" between and without seconds, and "DD.MM.YYYY[ hh:mm[:ss]]".
    bool ToDate(double& out) const;

private:
    std::variant<std::monostate, std::int16_t, std::int32_t, float, double, CVariantCurrency, bool,
                 CVariantDate, std::string>
        m_value;
};

// Dates and file times, in whole seconds. False for a date outside 1601 to 9999.
bool FileTimeFromDate(double date, FILETIME& ft);
double DateFromFileTime(const FILETIME& ft);
