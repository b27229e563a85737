// What identifies this machine and this user, and how text of the outside is encoded.
#pragma once
#include <windows.h>
#include <string>

// The computer's name, at most 127 characters; "unknown" if the system does not tell. The variable
// VELLUM_COMPUTER_NAME stands before the system's answer, so that a script can play two computers.
std::string ComputerName();
// Overrides ComputerName in this process; the empty text takes the override back. For tests.
void SetComputerNameForTest(const std::string& name);

enum class Language { English, German };
// The user's interface language: the display language on Windows, elsewhere LC_ALL, LC_MESSAGES and
// LANG in this order. Everything but German is English.
Language UserLanguage();
void SetUserLanguage(Language language);

// The 8-bit text of this system is in its ANSI code page, UTF-8 on other targets than Windows. A
// byte or character that has no counterpart becomes '?' (narrowing) or U+FFFD (widening).
std::wstring WideFromNarrow(const std::string& text);
std::string NarrowFromWide(const wchar_t* text, size_t count);
std::string NarrowFromWide(const std::wstring& text);

// The system's own message for a code, without a line end; empty if it knows none.
std::string SystemMessage(HRESULT hr);

// A new random GUID.
GUID NewGuid();

// Starts another program and does not wait. False if it could not be started.
bool LaunchProgram(const std::string& path, const std::string& arguments);

// The number of this process.
DWORD ProcessId();
