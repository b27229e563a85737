#include <MapiWrapper/ComPtr.h>
#include <MapiWrapper/MapiException.h>
#include <Platform/Machine.h>
#include <Platform/UserInterface.h>

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

std::string Describe(HRESULT hr, const MAPIERROR& error) {
    const auto text = [](LPTSTR t) { return t ? reinterpret_cast<const char*>(t) : ""; };
    return ErrorName(hr) + "\nErr=" + text(error.lpszError) + "\nComponent=" + text(error.lpszComponent) +
           "\nContext=" + std::to_string(static_cast<int>(error.ulContext)) +
           ",LowLevel=" + std::to_string(static_cast<int>(error.ulLowLevelError));
}

template <class Interface>
void AskForError(IUnknown* object, const IID& iid, HRESULT hr, std::string& text) {
    CComPtr<Interface> asked;
    if (object->QueryInterface(iid, reinterpret_cast<void**>(asked.Out())) < 0 || !asked) return;
    MAPIERROR* error = nullptr;
    if (asked->GetLastError(hr, 0, &error) < 0 || !error) return;
    text = Describe(hr, *error);
    MAPIFreeBuffer(error);
}

std::string AskForErrors(IUnknown* object, HRESULT hr) {
    std::string text;
    try {
        AskForError<IMAPITable>(object, IID_IMAPITable, hr, text);
        AskForError<IMAPIProp>(object, IID_IMAPIProp, hr, text);
    } catch (...) {
        text.clear();
    }
    return text;
}

std::atomic<ReportHook> s_hook{nullptr};

}  // namespace

CMAPIException::CMAPIException(HRESULT hr, const char* context, IUnknown* object)
    : m_object(object), m_hr(hr), m_context(context ? context : "") {
    if (hr == static_cast<HRESULT>(MAPI_E_EXTENDED_ERROR) && object) m_extended = AskForErrors(object, hr);
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
    ShowMessageBox(body, exception.GetErrorText(), 0);
}

void NoteException(const CMAPIException&, const char*) {}
