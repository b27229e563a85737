// Which folders the runs of a person hold just now, of all processes, in files that all of them read.
//
// A lock on a folder of its own could not tell that another folder lies in it, and folders move. So each run
// writes down what it holds, the folders above included, and looks at what the others wrote before it begins.
// Nothing in here knows MAPI: a folder is the bytes of its entry ID.
#pragma once
#include <Platform/Files.h>

#include <array>
#include <cstdint>
#include <string>
#include <vector>

struct CClaimedFolder {
    std::string id;
    std::vector<std::string> above;  // the folders that it lies in

    bool operator==(const CClaimedFolder&) const = default;
};

struct CClaim {
    std::array<CClaimedFolder, 2> folders;  // source and target
    bool withSubfolders = false;            // everything below them is held too

    bool operator==(const CClaim&) const = default;
};

enum class ClaimAnswer {
    Taken,
    SamePair,  // another run holds the same two folders
    Shared,    // another run holds one of them, or a folder above or below
    Failed,    // the files cannot be used
};

// One run's claim, held until Release, the end of the object or that of its process, however it ends. Any
// number in a process. Not shared between threads.
class CFolderClaims {
public:
    // `directory` is made if it is not there. All runs that are to see each other name the same.
    explicit CFolderClaims(std::string directory) : m_directory(std::move(directory)) {}

    // One try. `holder` receives who holds the folders ("process 17 on desk, since ..."), for Failed the
    // system's reason. Releases a former claim first.
    ClaimAnswer Take(const CClaim& claim, std::string& holder);
    // The run goes on to two folders below its own, and the two before are free. Shared: another run holds
    // one of them or is just there, which happens where a folder has moved since the claims were made.
    // `holder` as for Take.
    ClaimAnswer GoTo(const std::array<std::string, 2>& folders, std::string& holder);
    void Release() { m_file.Unlock(); }

private:
    struct Held;  // a claim as another run reads it
    std::vector<Held> Others() const;
    bool OpenFile(std::string& failure);

    const std::string m_directory;
    std::string m_path;
    std::string m_text;  // what the claim itself says, without where the run is
    CProcessLock m_file;
};
