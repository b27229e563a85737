#include <Platform/Machine.h>
#include <Tarn/Engine/Strings.h>

namespace {
struct TextRow {
    unsigned id;
    const wchar_t* english;
    const wchar_t* german;
};

const TextRow Texts[] = {
    {TEXT_PRIVATE_LABEL, L"Private appointment", L"Privater Termin"},
    {TEXT_OPENING_FOLDERS, L"Opening folders", L"Ordner werden ge\u00f6ffnet"},
    {TEXT_WRITING_SOURCE_STATE, L"Saving the state of the source folder",
     L"Zustand des Quellordners wird gespeichert"},
    {TEXT_WRITING_TARGET_STATE, L"Saving the state of the target folder",
     L"Zustand des Zielordners wird gespeichert"},
    {TEXT_OVERWRITTEN_FOLDER, L"Overwritten", L"\u00dcberschrieben"},
    {TEXT_OVERWRITTEN_TITLE, L"Overwritten elements", L"\u00dcberschriebene Elemente"},
    {TEXT_COPIED_TO_COUNTERPART, L"Copied to its counterpart", L"Auf das Gegenst\u00fcck kopiert"},
    {TEXT_DELETED, L"Deleted", L"Gel\u00f6scht"},
    {TEXT_TARGET_MISSING, L"Counterpart not found", L"Gegenst\u00fcck nicht gefunden"},
    {TEXT_TARGET_REWRITTEN, L"Updated", L"Aktualisiert"},
    {TEXT_COPIED_AS_NEW, L"Copied as a new element", L"Als neues Element kopiert"},
    {TEXT_TIMES_IDENTICAL, L"Not copied, both sides have the same time",
     L"Nicht kopiert, beide Seiten haben dieselbe Zeit"},
    {TEXT_NOT_LINKED_RETRIED, L"Changed by somebody meanwhile, tried again",
     L"Inzwischen von jemandem ge\u00e4ndert, erneut versucht"},
    {TEXT_NOT_LINKED_STAYS, L"Copied, but not linked: there may be one item too many",
     L"Kopiert, aber nicht verkn\u00fcpft: es kann ein Element zu viel sein"},
    {TEXT_SOURCE_GONE, L"Not copied, it was deleted meanwhile", L"Nicht kopiert, inzwischen gel\u00f6scht"},
    {TEXT_CONFLICT_SUFFIX, L" (conflicts)", L" (Konflikte)"},
};
}  // namespace

std::string LoadText(unsigned id) {
    for (const TextRow& row : Texts)
        if (row.id == id)
            return NarrowFromWide(
                std::wstring(UserLanguage() == Language::German ? row.german : row.english));
    return {};
}
