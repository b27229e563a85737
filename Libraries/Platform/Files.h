// Files as the system gives them. Paths are UTF-8. No function throws but
// for lack of memory; false means that the system refused, and LastFileError() says why.
#pragma once
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

bool FileExists(const std::string& path);
// True only if the system says that nothing has that name; false also where it does not say.
bool FileIsAbsent(const std::string& path);
bool DirectoryExists(const std::string& path);
// Creates the directory and all above it; true if it exists afterwards.
bool MakeDirectories(const std::string& path);
// The same, and what it creates is open to its owner alone (on Windows to whom the profile's own rights
// name). What is there already keeps its rights.
bool MakePrivateDirectories(const std::string& path);
// Creates an empty file that is open to its owner alone. False if anything of the name exists.
bool CreatePrivateFile(const std::string& path);
bool RemoveFile(const std::string& path);
// The directory with all it holds. A path that does not exist counts as removed.
bool RemoveTree(const std::string& path);
bool RenameFile(const std::string& from, const std::string& to);  // replaces `to`
bool CopyFileTo(const std::string& from, const std::string& to);

struct DirectoryEntry {
    std::string name;  // without path
    bool isDirectory;
    std::uint64_t cbSize;
    std::uint64_t written;  // time of the last change, FILETIME ticks
};
// Entries without "." and "..", sorted by name in byte order; empty if the directory does not open.
std::vector<DirectoryEntry> ListDirectory(const std::string& path);

// What a file looks like from outside. Two that are equal: nobody has written between the two looks, but for
// a change within one tick of the file system's clock that keeps the size.
struct FileStamp {
    bool exists = false;
    std::uint64_t cbSize = 0;
    std::uint64_t written = 0;  // FILETIME ticks
    bool operator==(const FileStamp&) const = default;
};
FileStamp StampOfFile(const std::string& path);

// What tells a file from another one that takes its name while the first is open; empty where there is none.
std::string FileIdentity(const std::string& path);

// fopen for a path as all of this program has them.
std::FILE* OpenFile(const std::string& path, const char* mode);
bool ReadFileBytes(const std::string& path, std::string& bytes);
// Writes a new file beside the old one, flushes it to the disk and renames it over: a reader sees the
// old bytes or the new ones, also after a crash.
bool WriteFileDurably(const std::string& path, const std::string& bytes);
// Flushes a finished file to the disk and renames it over `to`: whole or not at all, also after a crash.
bool PublishFile(const std::string& from, const std::string& to);
// Copies a file to a new one that is open to its owner alone, flushed. False if anything of the name exists.
bool CopyPrivateFile(const std::string& from, const std::string& to);

std::string LastFileError();  // text of the last failure on this thread
std::string JoinPath(const std::string& directory, const std::string& name);

// A lock on a file that the system takes back when the process dies. Movable, unlocks when destroyed.
// The holder's text (who, since when) stands in the file for others to read, up to 64 KB of it.
class CProcessLock {
public:
    CProcessLock();
    ~CProcessLock();
    CProcessLock(CProcessLock&&) noexcept;
    CProcessLock& operator=(CProcessLock&&) noexcept;
    // Takes the lock if it is free, within `timeoutMs` (0: one try). False if somebody else, also
    // another object of this process, holds it; `holder` then receives the holder's text.
    bool TryLock(const std::string& path, const std::string& text, std::string& holder,
                 unsigned timeoutMs = 0);
    // Puts `text` in the place of the holder's. False without the lock, or if it cannot be written.
    bool Replace(const std::string& text);
    void Unlock();

private:
    struct State;
    std::unique_ptr<State> m_state;
};
