#include <Platform/Machine.h>
#include <Platform/Utf8.h>
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
    {TEXT_NOT_COPIED, L"Could not be copied", L"Konnte nicht kopiert werden"},
    {TEXT_NOT_DELETED, L"Could not be deleted", L"Konnte nicht gel\u00f6scht werden"},
    {TEXT_DELETION_OUTDATED, L"Not deleted, it was written anew in this run",
     L"Nicht gel\u00f6scht, in diesem Lauf neu geschrieben"},
    {TEXT_COPIED_NOT_WHOLE, L"Copied, but a step of it failed",
     L"Kopiert, aber ein Schritt davon ist fehlgeschlagen"},
    {TEXT_CONFLICT_EARLIER, L"Changed on both sides, here first: stays, a copy is kept",
     L"Auf beiden Seiten ge\u00e4ndert, hier zuerst: bleibt, eine Kopie ist aufbewahrt"},
    {TEXT_CONFLICT_UNKEPT, L"Changed on both sides, here first: stays, a copy could not be made",
     L"Auf beiden Seiten ge\u00e4ndert, hier zuerst: bleibt, eine Kopie war nicht m\u00f6glich"},
    {TEXT_CONFLICT_LATER, L"Changed on both sides, here later: stays",
     L"Auf beiden Seiten ge\u00e4ndert, hier sp\u00e4ter: bleibt"},
    {TEXT_SAME_CHANGE, L"Changed on both sides, and the same there",
     L"Auf beiden Seiten gleich ge\u00e4ndert"},
    {TEXT_CHANGE_STAYS, L"Changed here, deleted on the other side: stays here",
     L"Hier ge\u00e4ndert, auf der anderen Seite gel\u00f6scht: bleibt hier"},
    {TEXT_DELETION_LOST, L"Deleted here, changed on the other side: stays there",
     L"Hier gel\u00f6scht, auf der anderen Seite ge\u00e4ndert: bleibt dort"},
    {TEXT_CHANGE_DELETED, L"Changed here, deleted on the other side: deleted here as well",
     L"Hier ge\u00e4ndert, auf der anderen Seite gel\u00f6scht: auch hier gel\u00f6scht"},
    {TEXT_STORE_IS_OLDER,
     L"The store of the folder \"%s\" is older than it was at the last run: a backup was brought back, or "
     L"its "
     L"last work was lost.\nWhat it lacks is carried to it again, nothing is deleted because of it, and what "
     L"is "
     L"replaced is kept in the folder of overwritten items.",
     L"Der Speicher des Ordners \"%s\" ist \u00e4lter als beim letzten Lauf: eine Sicherung wurde "
     L"zur\u00fcckgespielt, oder das Letzte ging verloren.\nWas ihm fehlt, wird erneut \u00fcbertragen, "
     L"nichts wird "
     L"deswegen gel\u00f6scht, und was ersetzt wird, bleibt im Ordner der \u00fcberschriebenen Elemente."},
    {TEXT_SAVES_LOST,
     L"What was written to the folder \"%s\" did not stay on the disk: %s.\n"
     L"This run is not remembered. See to the disk and run the pair again; it then does what is still "
     L"missing.",
     L"Was in den Ordner \"%s\" geschrieben wurde, ist nicht auf der Platte geblieben: %s.\n"
     L"Dieser Lauf wird nicht vermerkt. Nach Abhilfe holt der n\u00e4chste Lauf des Paars alles nach."},
    {TEXT_CONFLICT_SUFFIX, L" (conflicts)", L" (Konflikte)"},
};
}  // namespace

std::string LoadText(unsigned id) {
    for (const TextRow& row : Texts)
        if (row.id == id)
            return Utf8FromWide(std::wstring(UserLanguage() == Language::German ? row.german : row.english));
    return {};
}
