// Files as the system gives them. Paths are 8-bit in the system's code page. No function throws but
// for lack of memory; false means that the system refused, and LastFileError() says why.
#pragma once
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

bool FileExists(const std::string& path);
bool DirectoryExists(const std::string& path);
// Creates the directory and all above it; true if it exists afterwards.
bool MakeDirectories(const std::string& path);
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

bool ReadFileBytes(const std::string& path, std::string& bytes);
// Writes a new file beside the old one, flushes it to the disk and renames it over: a reader sees the
// old bytes or the new ones, also after a crash.
bool WriteFileDurably(const std::string& path, const std::string& bytes);

std::string LastFileError();  // text of the last failure on this thread
std::string JoinPath(const std::string& directory, const std::string& name);

// A lock on a file that the system takes back when the process dies. Movable, unlocks when destroyed.
// The holder's text (who, since when) stands in the file for others to read.
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
    void Unlock();

private:
    struct State;
    std::unique_ptr<State> m_state;
};
