// The developer's trace: lines to the window "ServerTrace", if one is there, and to a file.
#pragma once
#include <Platform/MapiHeaders.h>
#include <cstdio>
#include <string>

#if defined(__GNUC__)
#define VELLUM_PRINTF(index, first) __attribute__((format(printf, index, first)))
#else
#define VELLUM_PRINTF(index, first)
#endif

// Writes "Vellum: hh:mm:ss.mmm text" to `file` (may be null) and to the trace window. A text of more
// than 511 characters is not written at all. The window is looked for once in a process.
void ServerTraceWrite(FILE* file, const char* format, ...) VELLUM_PRINTF(2, 3);

// True if a line would reach anybody. Texts that cost a store call or a conversion are made only then.
bool IsTraceActive(FILE* file);
bool IsTraceWindowThere();

// Forgets the window, so that the next line looks for it again. For tests.
void ForgetTraceWindow();

// Like ServerTraceWrite for text that holds a person's data: each "%" becomes "_".
void TraceText(FILE* file, const std::string& text);
// Formats at most 511 characters, then TraceText.
void TraceFormat(FILE* file, const char* format, ...) VELLUM_PRINTF(2, 3);

// "dd.mm.yyyy hh:mm:ss.ms", UTC.
std::string FormatFileTime(const FILETIME& time);

// -1 if the first is earlier, 1 if later, 0 if equal, as signed 64-bit numbers and without tolerance.
int CompareFileTimes(const FILETIME& first, const FILETIME& second);

// --- the last position reached -------------------------------------------------------------------
// The long routines keep it as they go, and the handlers around them print it: where a fault leaves no
// stack this is what a person can send us. Two runs at once would mix it up, which costs a diagnostic
// and no more.
struct CSourcePosition {
    const char* file;
    int line;
};
CSourcePosition CurrentPosition();
CSourcePosition InnerPosition();
void SetCurrentPosition(const char* file, int line);
void SetInnerPosition(const char* file, int line);

#define MARK_POSITION() SetCurrentPosition(SyncFolderSource, __LINE__)
#define MARK_INNER_POSITION() SetInnerPosition(SyncFolderSource, __LINE__)

// The name under which messages and traces show the engine's source.
inline constexpr char SyncFolderSource[] = "..\\..\\Tarn\\syncfolder.cpp";

// "printf" into a string.
std::string FormatText(const char* format, ...) VELLUM_PRINTF(1, 2);
