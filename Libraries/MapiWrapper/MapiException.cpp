#include <MapiWrapper/ComPtr.h>
#include <MapiWrapper/MapiException.h>
#include <MapiWrapper/StoreText.h>
#include <Platform/CodePage.h>
#include <Platform/Machine.h>
#include <Platform/UserInterface.h>
#include <Platform/Utf8.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstring>
#include <vector>

namespace {

// What FormatMessage was given as room for its text and line end; a longer message counts as none.
constexpr size_t kMessageRoom = 128 - 3;

struct CErrorRow {
    unsigned code;
    const char* name;
};

const CErrorRow kErrorRows[] = {
#define ROW(symbol) {static_cast<unsigned>(symbol), #symbol},
#include "ErrorRows.inc"
#undef ROW
};

// Rows by code; a stable order keeps the first of several symbols in front.
std::vector<CErrorRow> SortedRows() {
    std::vector<CErrorRow> rows(std::begin(kErrorRows), std::end(kErrorRows));
    std::stable_sort(rows.begin(), rows.end(),
                     [](const CErrorRow& a, const CErrorRow& b) { return a.code < b.code; });
    return rows;
}

const char* SymbolOf(HRESULT hr) {
    static const std::vector<CErrorRow> rows = SortedRows();
    const unsigned code = static_cast<unsigned>(hr);
    const auto found = std::lower_bound(rows.begin(), rows.end(), code,
                                        [](const CErrorRow& row, unsigned c) { return row.code < c; });
    return found != rows.end() && found->code == code ? found->name : nullptr;
}

std::string NameOr(HRESULT hr, const std::string& unknown) {
    if (hr == 0) return {};
    if (const char* symbol = SymbolOf(hr)) return symbol;
    const std::string message = SystemMessage(hr);
    return message.empty() || message.size() > kMessageRoom ? unknown : message;
}

std::string TextOf(LPTSTR text, bool wide) {
    if (!text) return {};
    if (wide) return Utf8FromWide(reinterpret_cast<const wchar_t*>(text));
    return Utf8FromCodePage(reinterpret_cast<const char*>(text), AnsiCodePage());
}

std::string Describe(HRESULT hr, const MAPIERROR& error, bool wide) {
    return ErrorName(hr) + "\nErr=" + TextOf(error.lpszError, wide) +
           "\nComponent=" + TextOf(error.lpszComponent, wide) +
           "\nContext=" + std::to_string(static_cast<int>(error.ulContext)) +
           ",LowLevel=" + std::to_string(static_cast<int>(error.ulLowLevelError));
}

std::string WordsOf(HRESULT, const MAPIERROR& error, bool wide) {
    return TextOf(error.lpszError, wide);
}

bool TellsOfTheDisk(HRESULT hr) {
    return hr == MAPI_E_NOT_ENOUGH_DISK || hr == MAPI_E_DISK_ERROR || hr == MAPI_E_CORRUPT_STORE;
}

using Teller = std::string(HRESULT hr, const MAPIERROR& error, bool wide);

template <class Interface>
void AskForError(IUnknown* object, const IID& iid, HRESULT hr, Teller* tell, std::string& text) {
    CComPtr<Interface> asked;
    if (object->QueryInterface(iid, reinterpret_cast<void**>(asked.Out())) < 0 || !asked) return;
    MAPIERROR* error = nullptr;
    const bool wide =
        TextFormOfSystem() == TextForm::Wide && asked->GetLastError(hr, MAPI_UNICODE, &error) >= 0 && error;
    if (!wide && (asked->GetLastError(hr, 0, &error) < 0 || !error)) return;
    text = tell(hr, *error, wide);
    MAPIFreeBuffer(error);
}

std::string AskForErrors(IUnknown* object, HRESULT hr, Teller* tell) {
    std::string text;
    try {
        AskForError<IMAPITable>(object, IID_IMAPITable, hr, tell, text);
        AskForError<IMAPIProp>(object, IID_IMAPIProp, hr, tell, text);
        if (tell == WordsOf) AskForError<IMAPISession>(object, IID_IMAPISession, hr, tell, text);
    } catch (...) {
        text.clear();
    }
    return text;
}

std::atomic<ReportHook> s_hook{nullptr};

}  // namespace

CMAPIException::CMAPIException(HRESULT hr, const char* context, IUnknown* object)
    : m_object(object), m_hr(hr), m_context(context ? context : "") {
    if (!object) return;
    if (hr == static_cast<HRESULT>(MAPI_E_EXTENDED_ERROR)) m_extended = AskForErrors(object, hr, Describe);
    if (TellsOfTheDisk(hr)) m_reason = AskForErrors(object, hr, WordsOf);
}

std::string CMAPIException::GetErrorText() const {
    return ErrorName(m_hr);
}

HRESULT ThrowOnFailure(HRESULT hr, const char* file, int line) {
    if (hr >= 0) return hr;
    TraceFailure(hr, nullptr, file, line);
    throw CMAPIException(hr, nullptr, nullptr);
}

HRESULT ThrowOnFailureFor(HRESULT hr, const char* file, int line, IUnknown* object) {
    if (hr >= 0) return hr;
    TraceFailure(hr, nullptr, file, line);
    throw CMAPIException(hr, nullptr, object);
}

HRESULT FailedHr(HRESULT hr, const char* name, const char* file, int line) {
    if (hr >= 0) return 0;
    TraceFailure(hr, name, file, line);
    return hr;
}

int SucceededHr(HRESULT hr, const char* name, const char* file, int line) {
    return FailedHr(hr, name, file, line) == 0 ? 1 : 0;
}

void TraceFailure(HRESULT, const char*, const char*, int) {}

std::string ErrorName(HRESULT hr) {
    char unknown[40];
    std::snprintf(unknown, sizeof unknown, "Unknown Error %x", static_cast<unsigned>(hr));
    return NameOr(hr, unknown);
}

std::string ErrorNameOrSystemText(HRESULT hr) {
    return NameOr(hr, {});
}

void ShowError(HRESULT hr) {
    ShowMessageBox(ErrorName(hr), "Error", 0);
}

ReportHook SetReportHook(ReportHook hook) {
    return s_hook.exchange(hook);
}

void ReportException(const CMAPIException& exception, const char* text) {
    if (const ReportHook hook = s_hook) {
        hook(text, exception);
        return;
    }
    std::string body = text ? text : "";
    if (!exception.Context().empty()) body += "\r\nin " + exception.Context();
    if (!exception.Reason().empty()) body += "\r\n" + exception.Reason();
    ShowMessageBox(body, exception.GetErrorText(), 0);
}

void NoteException(const CMAPIException&, const char*) {}
