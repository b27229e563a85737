#include <Tarn/Settings/ProtocolText.h>

#include <Platform/Machine.h>
#include <Platform/Utf8.h>
#include <Tarn/Engine/SyncMessages.h>

#include <iterator>

namespace {

struct Words {
    const wchar_t* english;
    const wchar_t* german;
};

constexpr Words kStates[] = {
    {L"Kept", L"Behalten"},
    {L"New", L"Neu"},
    {L"Changed", L"Ge\u00e4ndert"},
    {L"Counterpart newer", L"Gegenst\u00fcck neuer"},
    {L"Counterpart older", L"Gegenst\u00fcck \u00e4lter"},
    {L"Conflict", L"Konflikt"},
    {L"Deleted", L"Gel\u00f6scht"},
};

constexpr Words kCaptions[kProtocolColumns] = {
    {L"To folder", L"Nach Ordner"}, {L"From folder", L"Von Ordner"},        {L"Item", L"Element"},
    {L"State", L"Zustand"},         {L"What was done", L"Was getan wurde"}, {L"ID", L"Kennung"},
};

std::string Text(const Words& words) {
    return Utf8FromWide(std::wstring(UserLanguage() == Language::German ? words.german : words.english));
}

}  // namespace

bool IsShown(const CSyncProtocolEntry& entry, ProtocolFilter filter) {
    switch (filter) {
        case ProtocolFilter::Conflicts:
            return entry.m_state == STATE_CONFLICT;
        case ProtocolFilter::Changed:
            return entry.m_state == STATE_MODIFIED;
        case ProtocolFilter::New:
            return entry.m_state == STATE_NEW;
        case ProtocolFilter::Deleted:
            return entry.m_state == STATE_DELETED;
        default:
            return true;
    }
}

std::string ProtocolStateName(int state) {
    if (state < 0 || state >= static_cast<int>(std::size(kStates))) return "unknown";
    return Text(kStates[state]);
}

std::array<std::string, kProtocolColumns> ProtocolCaptions() {
    std::array<std::string, kProtocolColumns> captions;
    for (size_t i = 0; i < kProtocolColumns; ++i)
        captions[i] = Text(kCaptions[i]);
    return captions;
}

std::array<std::string, kProtocolColumns> ProtocolValues(const CSyncProtocolEntry& entry) {
    return {entry.m_destination, entry.m_origin, entry.m_subject, ProtocolStateName(entry.m_state),
            entry.m_detail,      entry.m_syncId};
}

std::string ProtocolCsvLine(const std::array<std::string, kProtocolColumns>& values) {
    std::string line;
    for (const std::string& value : values)
        line += (line.empty() && &value == values.data() ? "" : ";") + value;
    return line + "\n";
}
