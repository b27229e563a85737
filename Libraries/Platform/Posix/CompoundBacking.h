// Where the bytes of a compound file lie. For this room only.
#pragma once
#include <windows.h>
#include <memory>
#include <string>

namespace compound {

class IBacking {
public:
    virtual ~IBacking() = default;
    virtual HRESULT Load(std::string& bytes) = 0;
    // Replaces all bytes; a file holds the old bytes or the new ones, also after a crash.
    virtual HRESULT Store(const std::string& bytes) = 0;
    virtual std::wstring Name() const = 0;
};

// Opens, and with `create` makes at need, a file and holds it against others as the STGM_SHARE_ and
// access bits of `mode` say, until destroyed. With STGM_DELETEONRELEASE the file goes with it.
//
// S_OK, STG_E_FILENOTFOUND, STG_E_PATHNOTFOUND, STG_E_ACCESSDENIED, STG_E_SHAREVIOLATION (somebody
// else has it open in a mode that does not agree), STG_E_TOOMANYOPENFILES, STG_E_INVALIDNAME
HRESULT OpenFileBacking(const std::string& path, DWORD mode, bool create, std::unique_ptr<IBacking>& backing);

std::unique_ptr<IBacking> NewLockBytesBacking(ILockBytes* bytes);

}  // namespace compound
