// The COM base of the published MAPI headers, for targets that have none of their own: calling
// conventions, IUnknown and the structured-storage interfaces. Method orders and GUIDs are those of
// the published objidl.h; everything is declared, nothing is invented.
#ifndef VELLUM_POSIX_OBJBASE_H
#define VELLUM_POSIX_OBJBASE_H

#include <cstdint>
#include <cstring>

// --- calling conventions and modifiers: empty on this target -------------------------------------
#define __cdecl
#define __stdcall
#define WINAPI
#define APIENTRY
#define CALLBACK
#define PASCAL
#define FAR
#define CONST const
#define __C89_NAMELESS
#define __MINGW_EXTENSION
#define __MSABI_LONG(x) x
#define STDMETHODCALLTYPE
#define STDAPICALLTYPE
#define EXTERN_C extern "C"
#define STDAPI extern "C" HRESULT
#define STDAPI_(type) extern "C" type
#define STDMETHODIMP HRESULT
#define STDMETHODIMP_(type) type
#define STDMETHOD(method) virtual HRESULT method
#define STDMETHOD_(type, method) virtual type method
#define PURE = 0
#define THIS_
#define THIS void
#define DECLARE_INTERFACE(iface) struct iface
#define DECLARE_INTERFACE_(iface, base) struct iface : public base

// --- plain types ------------------------------------------------------------------------------------
using LONG = std::int32_t;
using ULONG = std::uint32_t;
using DWORD = std::uint32_t;
using UINT = unsigned int;
using INT = int;
using WORD = std::uint16_t;
using USHORT = std::uint16_t;
using SHORT = std::int16_t;
using BYTE = std::uint8_t;
using UCHAR = std::uint8_t;
using CHAR = char;
using BOOL = int;
using WINBOOL = int;
using LONGLONG = std::int64_t;
using ULONGLONG = std::uint64_t;
using LONG_PTR = std::intptr_t;
using ULONG_PTR = std::uintptr_t;
using UINT_PTR = std::uintptr_t;
using DWORD_PTR = std::uintptr_t;
using SIZE_T = std::size_t;
using WPARAM = UINT_PTR;
using LPARAM = LONG_PTR;
using LRESULT = LONG_PTR;
using HRESULT = LONG;
using SCODE = LONG;
using WCHAR = wchar_t;
using OLECHAR = wchar_t;
#define VOID void
#define __LONG32 int
#define TRUE 1
#define FALSE 0

using PVOID = void*;
using LPVOID = void*;
using LPCVOID = const void*;
using LPBYTE = BYTE*;
using LPLONG = LONG*;
using LPULONG = ULONG*;
using LPDWORD = DWORD*;
using LPSTR = char*;
using LPCSTR = const char*;
using LPWSTR = WCHAR*;
using LPCWSTR = const WCHAR*;
using LPOLESTR = WCHAR*;
using LPCOLESTR = const WCHAR*;
using SNB = LPOLESTR*;
using HANDLE = void*;
using HWND = struct HWND__*;
using HINSTANCE = struct HINSTANCE__*;
using HMODULE = HINSTANCE;
using HGLOBAL = void*;

#define MAKE_SCODE(sev, fac, code) \
    ((SCODE)(((ULONG)(sev) << 31) | ((ULONG)(fac) << 16) | ((ULONG)(code))))
#define MAKE_HRESULT(sev, fac, code) MAKE_SCODE(sev, fac, code)

struct GUID {
    std::uint32_t Data1;
    std::uint16_t Data2;
    std::uint16_t Data3;
    std::uint8_t Data4[8];
};
using IID = GUID;
using CLSID = GUID;
using LPGUID = GUID*;
using LPCGUID = const GUID*;
using LPIID = IID*;
using LPCLSID = CLSID*;
using REFGUID = const GUID&;
using REFIID = const IID&;
using REFCLSID = const CLSID&;
inline bool operator==(const GUID& a, const GUID& b) { return std::memcmp(&a, &b, sizeof(GUID)) == 0; }
inline bool operator!=(const GUID& a, const GUID& b) { return !(a == b); }
inline bool IsEqualGUID(const GUID& a, const GUID& b) { return a == b; }
inline bool IsEqualIID(const GUID& a, const GUID& b) { return a == b; }

#ifdef INITGUID
#define DEFINE_GUID(name, l, w1, w2, b1, b2, b3, b4, b5, b6, b7, b8) \
    extern "C" const GUID name;                                      \
    extern "C" const GUID name = {l, w1, w2, {b1, b2, b3, b4, b5, b6, b7, b8}}
#else
#define DEFINE_GUID(name, l, w1, w2, b1, b2, b3, b4, b5, b6, b7, b8) extern "C" const GUID name
#endif
#define DEFINE_OLEGUID(name, l, w1, w2) DEFINE_GUID(name, l, w1, w2, 0xC0, 0, 0, 0, 0, 0, 0, 0x46)

#ifndef _FILETIME_
#define _FILETIME_
typedef struct _FILETIME {
    DWORD dwLowDateTime;
    DWORD dwHighDateTime;
} FILETIME, *PFILETIME, *LPFILETIME;
#endif

struct SYSTEMTIME {
    WORD wYear, wMonth, wDayOfWeek, wDay, wHour, wMinute, wSecond, wMilliseconds;
};
using LPSYSTEMTIME = SYSTEMTIME*;

union LARGE_INTEGER {
    struct {
        DWORD LowPart;
        LONG HighPart;
    };
    struct {
        DWORD LowPart;
        LONG HighPart;
    } u;
    LONGLONG QuadPart;
};
union ULARGE_INTEGER {
    struct {
        DWORD LowPart;
        DWORD HighPart;
    };
    struct {
        DWORD LowPart;
        DWORD HighPart;
    } u;
    ULONGLONG QuadPart;
};

// --- COM interfaces ---------------------------------------------------------------------------------
struct IUnknown {
    virtual HRESULT QueryInterface(REFIID riid, void** ppvObject) = 0;
    virtual ULONG AddRef() = 0;
    virtual ULONG Release() = 0;
};
using LPUNKNOWN = IUnknown*;

struct IMalloc : public IUnknown {
    virtual void* Alloc(SIZE_T cb) = 0;
    virtual void* Realloc(void* pv, SIZE_T cb) = 0;
    virtual void Free(void* pv) = 0;
    virtual SIZE_T GetSize(void* pv) = 0;
    virtual int DidAlloc(void* pv) = 0;
    virtual void HeapMinimize() = 0;
};
using LPMALLOC = IMalloc*;

struct STATSTG {
    LPOLESTR pwcsName;
    DWORD type;
    ULARGE_INTEGER cbSize;
    FILETIME mtime;
    FILETIME ctime;
    FILETIME atime;
    DWORD grfMode;
    DWORD grfLocksSupported;
    CLSID clsid;
    DWORD grfStateBits;
    DWORD reserved;
};
enum STGTY { STGTY_STORAGE = 1, STGTY_STREAM = 2, STGTY_LOCKBYTES = 3, STGTY_PROPERTY = 4 };
enum STREAM_SEEK { STREAM_SEEK_SET = 0, STREAM_SEEK_CUR = 1, STREAM_SEEK_END = 2 };
enum STATFLAG { STATFLAG_DEFAULT = 0, STATFLAG_NONAME = 1, STATFLAG_NOOPEN = 2 };
enum STGC { STGC_DEFAULT = 0, STGC_OVERWRITE = 1, STGC_ONLYIFCURRENT = 2 };
enum STGMOVE { STGMOVE_MOVE = 0, STGMOVE_COPY = 1, STGMOVE_SHALLOWCOPY = 2 };

#define STGM_DIRECT 0x00000000
#define STGM_TRANSACTED 0x00010000
#define STGM_READ 0x00000000
#define STGM_WRITE 0x00000001
#define STGM_READWRITE 0x00000002
#define STGM_SHARE_DENY_NONE 0x00000040
#define STGM_SHARE_DENY_READ 0x00000030
#define STGM_SHARE_DENY_WRITE 0x00000020
#define STGM_SHARE_EXCLUSIVE 0x00000010
#define STGM_CREATE 0x00001000
#define STGM_CONVERT 0x00020000
#define STGM_FAILIFTHERE 0x00000000
#define STGM_DELETEONRELEASE 0x04000000

struct ISequentialStream : public IUnknown {
    virtual HRESULT Read(void* pv, ULONG cb, ULONG* pcbRead) = 0;
    virtual HRESULT Write(const void* pv, ULONG cb, ULONG* pcbWritten) = 0;
};
struct IStream : public ISequentialStream {
    virtual HRESULT Seek(LARGE_INTEGER dlibMove, DWORD dwOrigin, ULARGE_INTEGER* plibNewPosition) = 0;
    virtual HRESULT SetSize(ULARGE_INTEGER libNewSize) = 0;
    virtual HRESULT CopyTo(IStream* pstm, ULARGE_INTEGER cb, ULARGE_INTEGER* pcbRead,
                           ULARGE_INTEGER* pcbWritten) = 0;
    virtual HRESULT Commit(DWORD grfCommitFlags) = 0;
    virtual HRESULT Revert() = 0;
    virtual HRESULT LockRegion(ULARGE_INTEGER libOffset, ULARGE_INTEGER cb, DWORD dwLockType) = 0;
    virtual HRESULT UnlockRegion(ULARGE_INTEGER libOffset, ULARGE_INTEGER cb, DWORD dwLockType) = 0;
    virtual HRESULT Stat(STATSTG* pstatstg, DWORD grfStatFlag) = 0;
    virtual HRESULT Clone(IStream** ppstm) = 0;
};
using LPSTREAM = IStream*;

struct IEnumSTATSTG : public IUnknown {
    virtual HRESULT Next(ULONG celt, STATSTG* rgelt, ULONG* pceltFetched) = 0;
    virtual HRESULT Skip(ULONG celt) = 0;
    virtual HRESULT Reset() = 0;
    virtual HRESULT Clone(IEnumSTATSTG** ppenum) = 0;
};

struct IStorage : public IUnknown {
    virtual HRESULT CreateStream(const OLECHAR* pwcsName, DWORD grfMode, DWORD reserved1,
                                 DWORD reserved2, IStream** ppstm) = 0;
    virtual HRESULT OpenStream(const OLECHAR* pwcsName, void* reserved1, DWORD grfMode,
                               DWORD reserved2, IStream** ppstm) = 0;
    virtual HRESULT CreateStorage(const OLECHAR* pwcsName, DWORD grfMode, DWORD reserved1,
                                  DWORD reserved2, IStorage** ppstg) = 0;
    virtual HRESULT OpenStorage(const OLECHAR* pwcsName, IStorage* pstgPriority, DWORD grfMode,
                                SNB snbExclude, DWORD reserved, IStorage** ppstg) = 0;
    virtual HRESULT CopyTo(DWORD ciidExclude, const IID* rgiidExclude, SNB snbExclude,
                           IStorage* pstgDest) = 0;
    virtual HRESULT MoveElementTo(const OLECHAR* pwcsName, IStorage* pstgDest,
                                  const OLECHAR* pwcsNewName, DWORD grfFlags) = 0;
    virtual HRESULT Commit(DWORD grfCommitFlags) = 0;
    virtual HRESULT Revert() = 0;
    virtual HRESULT EnumElements(DWORD reserved1, void* reserved2, DWORD reserved3,
                                 IEnumSTATSTG** ppenum) = 0;
    virtual HRESULT DestroyElement(const OLECHAR* pwcsName) = 0;
    virtual HRESULT RenameElement(const OLECHAR* pwcsOldName, const OLECHAR* pwcsNewName) = 0;
    virtual HRESULT SetElementTimes(const OLECHAR* pwcsName, const FILETIME* pctime,
                                    const FILETIME* patime, const FILETIME* pmtime) = 0;
    virtual HRESULT SetClass(REFCLSID clsid) = 0;
    virtual HRESULT SetStateBits(DWORD grfStateBits, DWORD grfMask) = 0;
    virtual HRESULT Stat(STATSTG* pstatstg, DWORD grfStatFlag) = 0;
};
using LPSTORAGE = IStorage*;

struct ILockBytes : public IUnknown {
    virtual HRESULT ReadAt(ULARGE_INTEGER ulOffset, void* pv, ULONG cb, ULONG* pcbRead) = 0;
    virtual HRESULT WriteAt(ULARGE_INTEGER ulOffset, const void* pv, ULONG cb,
                            ULONG* pcbWritten) = 0;
    virtual HRESULT Flush() = 0;
    virtual HRESULT SetSize(ULARGE_INTEGER cb) = 0;
    virtual HRESULT LockRegion(ULARGE_INTEGER libOffset, ULARGE_INTEGER cb, DWORD dwLockType) = 0;
    virtual HRESULT UnlockRegion(ULARGE_INTEGER libOffset, ULARGE_INTEGER cb, DWORD dwLockType) = 0;
    virtual HRESULT Stat(STATSTG* pstatstg, DWORD grfStatFlag) = 0;
};
using LPLOCKBYTES = ILockBytes*;

DEFINE_OLEGUID(IID_IUnknown, 0x00000000, 0, 0);
DEFINE_OLEGUID(IID_IMalloc, 0x00000002, 0, 0);
DEFINE_OLEGUID(IID_ILockBytes, 0x0000000A, 0, 0);
DEFINE_OLEGUID(IID_IStorage, 0x0000000B, 0, 0);
DEFINE_OLEGUID(IID_IStream, 0x0000000C, 0, 0);
DEFINE_OLEGUID(IID_IEnumSTATSTG, 0x0000000D, 0, 0);
DEFINE_GUID(IID_ISequentialStream, 0x0C733A30, 0x2A1C, 0x11CE, 0xAD, 0xE5, 0x00, 0xAA, 0x00, 0x44,
            0x77, 0x3D);
DEFINE_GUID(GUID_NULL, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0);

// --- compound files (Posix/CompoundFile*.cpp) ---------------------------------------------------
STDAPI StgCreateDocfile(const WCHAR* pwcsName, DWORD grfMode, DWORD reserved, IStorage** ppstgOpen);
STDAPI StgOpenStorage(const WCHAR* pwcsName, IStorage* pstgPriority, DWORD grfMode, SNB snbExclude,
                      DWORD reserved, IStorage** ppstgOpen);
STDAPI StgCreateDocfileOnILockBytes(ILockBytes* plkbyt, DWORD grfMode, DWORD reserved,
                                    IStorage** ppstgOpen);
STDAPI StgOpenStorageOnILockBytes(ILockBytes* plkbyt, IStorage* pstgPriority, DWORD grfMode,
                                  SNB snbExclude, DWORD reserved, IStorage** ppstgOpen);
STDAPI CreateILockBytesOnHGlobal(HGLOBAL hGlobal, BOOL fDeleteOnRelease, ILockBytes** pplkbyt);
STDAPI GetHGlobalFromILockBytes(ILockBytes* plkbyt, HGLOBAL* phglobal);
STDAPI WriteClassStg(IStorage* pStg, REFCLSID rclsid);
STDAPI ReadClassStg(IStorage* pStg, CLSID* pclsid);

// --- moveable global memory, as the lock-bytes forms hand it out --------------------------------
#define GMEM_FIXED 0x0000
#define GMEM_MOVEABLE 0x0002
#define GMEM_ZEROINIT 0x0040
extern "C" HGLOBAL GlobalAlloc(UINT flags, SIZE_T cb);
extern "C" HGLOBAL GlobalReAlloc(HGLOBAL mem, SIZE_T cb, UINT flags);
extern "C" void* GlobalLock(HGLOBAL mem);
extern "C" BOOL GlobalUnlock(HGLOBAL mem);
extern "C" SIZE_T GlobalSize(HGLOBAL mem);
extern "C" HGLOBAL GlobalFree(HGLOBAL mem);
extern "C" void* CoTaskMemAlloc(SIZE_T cb);
extern "C" void CoTaskMemFree(void* pv);
STDAPI CoCreateGuid(GUID* pguid);

#endif
