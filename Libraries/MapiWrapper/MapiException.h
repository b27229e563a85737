// How a failed call of MAPI travels, is named and is shown.
//
// Only a negative HRESULT is a failure; warnings pass everywhere.
#pragma once
#include <Platform/MapiHeaders.h>

#include <stdexcept>
#include <string>

// A failed call. Thrown by value, caught by reference; has no base class, so a handler for
// std::exception does not see it.
class CMAPIException {
public:
    // `context` names the operation ("CGenMapiPropPtr::GetProps"), null for none. `object` is what the
    // call was made on, null for none; no reference is taken. With MAPI_E_EXTENDED_ERROR and the codes of a
    // disk that does not take or give what it should the object is asked for its own words here, while it
    // is surely alive.
    CMAPIException(HRESULT hr, const char* context, IUnknown* object);

    HRESULT Hr() const { return m_hr; }
    const std::string& Context() const { return m_context; }
    // May dangle once the wrapper that raised the exception has gone: for comparing, not for calling.
    IUnknown* Object() const { return m_object; }

    // The plain name of the code, as ErrorName gives it, also for an extended error.
    std::string GetErrorText() const;
    // "%s\nErr=%s\nComponent=%s\nContext=%d,LowLevel=%d" where the object had told more, otherwise
    // empty. Diagnosis only; no report shows it.
    const std::string& ExtendedText() const { return m_extended; }
    // What the store's database says of a disk that is full or broken, otherwise empty.
    const std::string& Reason() const { return m_reason; }

private:
    IUnknown* m_object;
    HRESULT m_hr;
    std::string m_context;
    std::string m_extended;
    std::string m_reason;
};

// Use of something that is not there: an operation on an empty wrapper, an open that succeeds without
// an object, the count of no row set. Deliberately no CMAPIException, because it belongs to the
// handlers that catch everything and not to those that name a failed call.
class CNullAccess : public std::runtime_error {
public:
    explicit CNullAccess(const char* where) : std::runtime_error(where) {}
};

// `pointer`, or throws CNullAccess(where) for null.
template <class T>
T* NotNull(T* pointer, const char* where) {
    if (!pointer) throw CNullAccess(where);
    return pointer;
}

// Throws CMAPIException(hr, null, null) if hr is negative, otherwise returns hr. File and line go to
// TraceFailure alone.
HRESULT ThrowOnFailure(HRESULT hr, const char* file, int line);
// The same with the object stored and an empty context.
HRESULT ThrowOnFailureFor(HRESULT hr, const char* file, int line, IUnknown* object);
// 0 if hr is not negative; otherwise calls TraceFailure and returns hr. Never throws.
HRESULT FailedHr(HRESULT hr, const char* name, const char* file, int line);
// 1 if hr is not negative; otherwise calls TraceFailure and returns 0. Never throws.
int SucceededHr(HRESULT hr, const char* name, const char* file, int line);
// The place to look at every failure from; does nothing.
void TraceFailure(HRESULT hr, const char* name, const char* file, int line);

// The same with the place filled in.
#define THROW_ON_FAILURE(hr) ThrowOnFailure((hr), __FILE__, __LINE__)
#define THROW_ON_FAILURE_FOR(hr, object) ThrowOnFailureFor((hr), __FILE__, __LINE__, (object))
#define FAILED_HR(hr, name) FailedHr((hr), (name), __FILE__, __LINE__)
#define SUCCEEDED_HR(hr, name) SucceededHr((hr), (name), __FILE__, __LINE__)

// The symbol of a code ("MAPI_E_NOT_FOUND"); the empty text for 0; for a code without symbol the
// system's message, and failing that "Unknown Error 80041234". The rows come from the published
// headers; of several symbols of a code the first in header order is given. Any thread.
std::string ErrorName(HRESULT hr);
// The same, but empty where neither a symbol nor a message is known.
std::string ErrorNameOrSystemText(HRESULT hr);

// A message box with ErrorName(hr) as text and "Error" as caption.
void ShowError(HRESULT hr);

// Called instead of the message box of ReportException. `text` may be null.
using ReportHook = void (*)(const char* text, const CMAPIException& exception);
// Installs a hook (null: none, as at the start) and returns the former one.
ReportHook SetReportHook(ReportHook hook);

// Shows `text` (null counts as empty), followed by "\r\nin " and the context if there is one and by the
// reason on a line of its own, in a message box whose caption is the error's name. With a hook installed only
// the hook is called.
void ReportException(const CMAPIException& exception, const char* text = nullptr);

// Where the engine notes a failure that it has already traced; does nothing.
void NoteException(const CMAPIException& exception, const char* stage);
