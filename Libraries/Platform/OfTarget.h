// What the common files of this room need from the target: each target's folder defines all of it.
// For this room only.
#pragma once
#include <windows.h>
#include <atomic>
#include <cstdint>
#include <filesystem>
#include <string>
#include <system_error>

SYSTEMTIME SystemLocalTime();  // the real wall clock, whatever CClockOverride says

// The clock of CClockOverride: one for all modules of the process that carry a copy of this room.
struct ClockState {
    std::atomic<bool> overridden{false};
    std::atomic<std::uint64_t> ticks{0};
};
ClockState& SharedClockState();

// For this process, its other modules and its children; empty takes the variable away.
void SetEnvironment(const char* name, const std::string& value);

// Paths, and what the standard library makes of them.
std::filesystem::path NativePath(const std::string& path);
std::string NarrowPath(const std::filesystem::path& path);

// Writes a new file and flushes it to the disk; 0 or the system's code.
int WriteAndFlush(const std::string& path, const std::string& bytes);
// Flushes what was written to an existing file to the disk; 0 or the system's code.
int FlushFile(const std::string& path);
// Makes one directory, open to its owner alone where the target's rights are not inherited; 0 or the
// system's code.
int MakePrivateDirectory(const std::string& path);
// Copies a file over another or to a new name; 0 or the system's code. The standard library of one
// target refuses an existing file, whatever it is told.
int CopyOver(const std::string& from, const std::string& to);
// Makes a rename in the directory last through a loss of power, where the target needs it.
void FlushDirectory(const std::string& directory);
// Remembers a failure of this thread for LastFileError().
void SetLastFileError(const std::error_code& error);

// The places without an override; nothing is created.
std::string SystemModuleDirectory();
std::string SystemConfigDirectory();
std::string SystemDataDirectory();
