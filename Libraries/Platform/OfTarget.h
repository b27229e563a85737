// What the common files of this room need from the target: each target's folder defines all of it.
// For this room only.
#pragma once
#include <windows.h>
#include <filesystem>
#include <string>
#include <system_error>

SYSTEMTIME SystemLocalTime();  // the real wall clock, whatever CClockOverride says

// Paths in the system's code page and what the standard library makes of them.
std::filesystem::path NativePath(const std::string& path);
std::string NarrowPath(const std::filesystem::path& path);

// Writes a new file and flushes it to the disk; 0 or the system's code.
int WriteAndFlush(const std::string& path, const std::string& bytes);
// Makes a rename in the directory last through a loss of power, where the target needs it.
void FlushDirectory(const std::string& directory);
// Remembers a failure of this thread for LastFileError().
void SetLastFileError(const std::error_code& error);

// The places without an override; nothing is created.
std::string SystemModuleDirectory();
std::string SystemConfigDirectory();
std::string SystemDataDirectory();
