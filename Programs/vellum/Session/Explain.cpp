#include <Programs/vellum/Session/Explain.h>

namespace {
struct CWords {
    HRESULT hr;
    const char* text;
};
constexpr CWords words[] = {
    {MAPI_E_NOT_FOUND, "it does not exist"},
    {MAPI_E_NO_ACCESS, "there is no permission for it"},
    {MAPI_E_COLLISION, "the name is taken"},
    {MAPI_E_OBJECT_CHANGED, "it was changed by somebody else in the meantime"},
    {MAPI_E_OBJECT_DELETED, "it was deleted by somebody else in the meantime"},
    {MAPI_E_NOT_ENOUGH_DISK, "the disk is full"},
    {MAPI_E_NOT_ENOUGH_MEMORY, "there is not enough memory"},
    {MAPI_E_DISK_ERROR, "the disk cannot be read or written"},
    {MAPI_E_CORRUPT_DATA, "its data are damaged"},
    {MAPI_E_CORRUPT_STORE, "the store is damaged"},
    {MAPI_E_LOGON_FAILED, "the logon failed"},
    {MAPI_E_NO_SUPPORT, "the store does not support it"},
    {MAPI_E_INVALID_PARAMETER, "a value is not acceptable"},
    {MAPI_E_INVALID_ENTRYID, "it does not exist"},
    {MAPI_E_UNKNOWN_ENTRYID, "it does not exist"},
    {MAPI_E_COMPUTED, "the store computes this value itself"},
    {MAPI_E_TOO_BIG, "it is too big"},
    {MAPI_E_TIMEOUT, "the store is busy"},
    {MAPI_E_BUSY, "the store is busy"},
    {MAPI_E_VERSION, "it was made by another version"},
    {STG_E_DOCFILECORRUPT, "it is damaged"},
    {STG_E_FILEALREADYEXISTS, "the name is taken"},
    {STG_E_INVALIDHEADER, "it is not a file of this kind"},
};
}  // namespace

std::string Explain(HRESULT hr) {
    for (const CWords& row : words)
        if (row.hr == hr) return row.text;
    return ErrorName(hr);
}

std::string Explain(const CMAPIException& exception) {
    const std::string words = Explain(exception.Hr());
    return exception.Reason().empty() ? words : words + " (" + exception.Reason() + ")";
}

void CheckCall(HRESULT hr, const std::string& what, ExitCode code) {
    if (hr < 0) throw CCommandError(code, what + ": " + Explain(hr));
}
