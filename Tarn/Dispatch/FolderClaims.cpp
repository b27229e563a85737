#include <Tarn/Dispatch/FolderClaims.h>

#include <Platform/Clock.h>
#include <Platform/Machine.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <set>
#include <sstream>

namespace {

// Whoever has the gate reads and writes the claims; nobody keeps it longer than that takes.
constexpr unsigned kGateMs = 20000;
constexpr unsigned kNamesTried = 1000;

// What a line of a claim tells of the folder behind it.
enum Mark : char {
    MARK_ROOT = 'R',   // a folder of the pair
    MARK_TREE = 'T',   // the same, with everything below it
    MARK_ABOVE = 'A',  // a folder in which one of them lies
    MARK_HERE = 'H',   // the run is there just now
};

// Entry IDs may be long, and a claim holds many. Two that have one hash wait for each other for nothing.
std::string HashOf(const std::string& id) {
    std::uint64_t hash = 0xcbf29ce484222325ull;
    for (const char c : id)
        hash = (hash ^ static_cast<unsigned char>(c)) * 0x100000001b3ull;
    char text[32];
    std::snprintf(text, sizeof(text), "%016llx", static_cast<unsigned long long>(hash));
    return text;
}

std::string Line(Mark mark, const std::string& id) {
    return std::string(1, mark) + " " + HashOf(id) + "\n";
}

std::string HolderText() {
    SYSTEMTIME now{};
    SplitFileTime(UtcNow(), now);
    char since[64];
    std::snprintf(since, sizeof(since), "%04d-%02d-%02d %02d:%02d:%02d", now.wYear, now.wMonth, now.wDay,
                  now.wHour, now.wMinute, now.wSecond);
    return "process " + std::to_string(static_cast<unsigned>(ProcessId())) + " on " + ComputerName() +
           ", since " + since + " UTC";
}

std::string TextOf(const CClaim& claim) {
    std::string text = HolderText() + "\n";
    for (const CClaimedFolder& folder : claim.folders) {
        if (folder.id.empty()) continue;  // a pair that has no folder on that side
        text += Line(claim.withSubfolders ? MARK_TREE : MARK_ROOT, folder.id);
        for (const std::string& above : folder.above)
            text += Line(MARK_ABOVE, above);
    }
    return text;
}

bool IsClaimFile(const std::string& name) {
    return name.compare(0, 4, "run-") == 0 && name.size() > 5 &&
           name.compare(name.size() - 5, 5, ".lock") == 0;
}

}  // namespace

struct CFolderClaims::Held {
    explicit Held(const std::string& text) {
        std::istringstream lines(text);
        std::getline(lines, holder);
        for (std::string line; std::getline(lines, line);) {
            if (line.size() < 3) continue;
            const std::string id = line.substr(2);
            if (line[0] == MARK_ROOT || line[0] == MARK_TREE) roots.insert(id);
            if (line[0] == MARK_ABOVE) above.insert(id);
            if (line[0] == MARK_HERE) here.insert(id);
            if (line[0] == MARK_TREE) withSubfolders = true;
        }
    }
    bool IsAt(const std::string& id) const { return roots.count(id) != 0 || here.count(id) != 0; }

    std::string holder;
    std::set<std::string> roots;
    std::set<std::string> above;
    std::set<std::string> here;
    bool withSubfolders = false;
};

namespace {

bool OpenGate(const std::string& directory, CProcessLock& gate, std::string& failure) {
    std::string holder;
    if (MakePrivateDirectories(directory) &&
        gate.TryLock(JoinPath(directory, "gate.lock"), "", holder, kGateMs))
        return true;
    failure = LastFileError();
    return false;
}

template <class Claims>
bool Overlaps(const CClaim& mine, const Claims& theirs) {
    for (const CClaimedFolder& folder : mine.folders) {
        if (folder.id.empty()) continue;
        const std::string id = HashOf(folder.id);
        if (theirs.IsAt(id) || (mine.withSubfolders && theirs.above.count(id) != 0)) return true;
        if (!theirs.withSubfolders) continue;
        for (const std::string& above : folder.above)
            if (theirs.roots.count(HashOf(above)) != 0) return true;
    }
    return false;
}

}  // namespace

// Under the gate. Files whose process has gone are taken away.
std::vector<CFolderClaims::Held> CFolderClaims::Others() const {
    std::vector<Held> others;
    for (const DirectoryEntry& entry : ListDirectory(m_directory)) {
        const std::string path = JoinPath(m_directory, entry.name);
        if (!IsClaimFile(entry.name) || path == m_path) continue;
        CProcessLock probe;
        std::string text;
        if (probe.TryLock(path, "", text)) {
            probe.Unlock();
            RemoveFile(path);
        } else if (!text.empty()) {
            others.emplace_back(text);
        }
    }
    return others;
}

// Process numbers come back, and another computer may use the same directory.
bool CFolderClaims::OpenFile(std::string& failure) {
    static std::atomic<unsigned> number{0};
    std::string holder;
    for (unsigned i = 0; i < kNamesTried; ++i) {
        m_path = JoinPath(m_directory, "run-" + std::to_string(static_cast<unsigned>(ProcessId())) + "-" +
                                           std::to_string(++number) + ".lock");
        if (m_file.TryLock(m_path, m_text, holder)) return true;
    }
    failure = LastFileError();
    return false;
}

ClaimAnswer CFolderClaims::Take(const CClaim& claim, std::string& holder) {
    Release();
    CProcessLock gate;
    if (!OpenGate(m_directory, gate, holder)) return ClaimAnswer::Failed;
    std::set<std::string> own;
    for (const CClaimedFolder& folder : claim.folders)
        if (!folder.id.empty()) own.insert(HashOf(folder.id));
    for (const Held& other : Others()) {
        if (!Overlaps(claim, other)) continue;
        holder = other.holder;
        return other.roots == own ? ClaimAnswer::SamePair : ClaimAnswer::Shared;
    }
    m_text = TextOf(claim);
    if (!OpenFile(holder)) return ClaimAnswer::Failed;
    if (m_file.Replace(m_text)) return ClaimAnswer::Taken;
    // A claim that the others cannot read is none.
    holder = LastFileError();
    Release();
    return ClaimAnswer::Failed;
}

ClaimAnswer CFolderClaims::GoTo(const std::array<std::string, 2>& folders, std::string& holder) {
    CProcessLock gate;
    if (!OpenGate(m_directory, gate, holder)) return ClaimAnswer::Failed;
    ClaimAnswer answer = ClaimAnswer::Taken;
    for (const Held& other : Others()) {
        if (!other.IsAt(HashOf(folders[0])) && !other.IsAt(HashOf(folders[1]))) continue;
        holder = other.holder;
        answer = ClaimAnswer::Shared;
    }
    std::string text = m_text;
    if (answer == ClaimAnswer::Taken)
        for (const std::string& folder : folders)
            text += Line(MARK_HERE, folder);
    if (m_file.Replace(text)) return answer;
    holder = LastFileError();
    return ClaimAnswer::Failed;
}
