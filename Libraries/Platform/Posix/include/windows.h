// Stand-in for the Windows master header on targets without one: what the published MAPI headers
// need, and the few constants that the code above the platform floor names.
#ifndef VELLUM_POSIX_WINDOWS_H
#define VELLUM_POSIX_WINDOWS_H
#define _WINDOWS_

#include <objbase.h>
#include <winerror.h>

#ifndef MAX_PATH
#define MAX_PATH 260
#endif

#define MB_OK 0x00000000L
#define MB_OKCANCEL 0x00000001L
#define MB_YESNO 0x00000004L
#define MB_ICONHAND 0x00000010L
#define MB_ICONQUESTION 0x00000020L
#define MB_ICONEXCLAMATION 0x00000030L
#define IDOK 1
#define IDCANCEL 2
#define IDYES 6
#define IDNO 7

#define WM_COPYDATA 0x004A
#define WM_USER 0x0400
struct COPYDATASTRUCT {
    ULONG_PTR dwData;
    DWORD cbData;
    PVOID lpData;
};
using PCOPYDATASTRUCT = COPYDATASTRUCT*;

#endif
