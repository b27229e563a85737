#include <Platform/Machine.h>

namespace {

struct Message {
    HRESULT hr;
    const char* text;
};

// The words of the published system for the codes that a run can meet here.
constexpr Message Messages[] = {
    {E_NOTIMPL, "Not implemented"},
    {E_NOINTERFACE, "No such interface supported"},
    {E_POINTER, "Invalid pointer"},
    {E_ABORT, "Operation aborted"},
    {E_UNEXPECTED, "Catastrophic failure"},
    {E_ACCESSDENIED, "Access is denied."},
    {E_HANDLE, "The handle is invalid."},
    {E_OUTOFMEMORY, "Not enough memory resources are available to complete this operation."},
    {E_INVALIDARG, "The parameter is incorrect."},
    {CO_E_NOTINITIALIZED, "CoInitialize has not been called."},
    {REGDB_E_CLASSNOTREG, "Class not registered"},
    {STG_E_INVALIDFUNCTION, "Unable to perform requested operation."},
    {STG_E_FILENOTFOUND, "%1 could not be found."},
    {STG_E_PATHNOTFOUND, "The path %1 could not be found."},
    {STG_E_TOOMANYOPENFILES, "There are insufficient resources to open another file."},
    {STG_E_ACCESSDENIED, "Access Denied."},
    {STG_E_INVALIDHANDLE, "Attempted an operation on an invalid object."},
    {STG_E_INSUFFICIENTMEMORY, "There is insufficient memory available to complete operation."},
    {STG_E_INVALIDPOINTER, "Invalid pointer error."},
    {STG_E_WRITEFAULT, "A disk error occurred during a write operation."},
    {STG_E_READFAULT, "A disk error occurred during a read operation."},
    {STG_E_SHAREVIOLATION, "A share violation has occurred."},
    {STG_E_LOCKVIOLATION, "A lock violation has occurred."},
    {STG_E_FILEALREADYEXISTS, "%1 already exists."},
    {STG_E_INVALIDPARAMETER, "Invalid parameter error."},
    {STG_E_MEDIUMFULL, "There is insufficient disk space to complete operation."},
    {STG_E_INVALIDHEADER, "The file %1 is not a valid compound file."},
    {STG_E_INVALIDNAME, "The name %1 is not valid."},
    {STG_E_UNKNOWN, "An unexpected error occurred."},
    {STG_E_UNIMPLEMENTEDFUNCTION, "That function is not implemented."},
    {STG_E_INVALIDFLAG, "Invalid flag error."},
    {STG_E_INUSE, "Attempted to use an object that is busy."},
    {STG_E_NOTCURRENT, "The storage has been changed since the last commit."},
    {STG_E_REVERTED, "Attempted to use an object that has ceased to exist."},
    {STG_E_CANTSAVE, "Can't save."},
    {STG_E_OLDFORMAT, "The compound file %1 was produced with an incompatible version of storage."},
    {STG_E_DOCFILECORRUPT, "The compound file %1 is corrupt."},
};

}  // namespace

std::string SystemMessage(HRESULT hr) {
    for (const auto& message : Messages) {
        if (message.hr == hr) return message.text;
    }
    return std::string();
}
