// What identifies this machine and this user.
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

// The system's own message for a code, without a line end; empty if it knows none.
std::string SystemMessage(HRESULT hr);

// A new random GUID.
GUID NewGuid();

// Starts another program and does not wait. False if it could not be started.
bool LaunchProgram(const std::string& path, const std::string& arguments);

// What the environment holds under the name; empty where it holds nothing.
std::string EnvironmentVariable(const char* name);

// The number of this process.
DWORD ProcessId();
