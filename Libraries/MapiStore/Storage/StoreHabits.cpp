#include "StoreHabits.h"

#include <algorithm>
#include <cstdlib>

#include "WellKnown.h"

namespace {

constexpr char kFact[] = "habits";
constexpr char kShortTermFact[] = "long-term";  // of stores made before there were others
constexpr std::uint64_t kMillisecond = 10'000;
constexpr std::uint64_t kSecond = 1000 * kMillisecond;
constexpr std::size_t kShortAnswer = 3;
// Stands for the folder of a message in an entry ID that does not tell it.
constexpr ObjectId kAnyFolder = kMaxFolder;

ObjectId FindSerial(IObjectStorage& storage, ObjectId folder, std::uint64_t serial) {
    MessageHead head;
    for (const bool associated : {false, true})
        if (storage.ReadMessageHead(MakeMessageId(folder, associated, serial), head)) return head.id;
    return 0;
}

ObjectId FindSerialBelow(IObjectStorage& storage, ObjectId folder, std::uint64_t serial) {
    if (const ObjectId found = FindSerial(storage, folder, serial)) return found;
    std::vector<ObjectId> children;
    storage.ScanFolders(folder,
                        [&](const FolderHead& head, std::string_view) { children.push_back(head.id); });
    for (const ObjectId child : children)
        if (const ObjectId found = FindSerialBelow(storage, child, serial)) return found;
    return 0;
}

}  // namespace

CStoreHabits CStoreHabits::Read(IObjectStorage& storage) {
    const auto bits = storage.ReadFact(kFact);
    ULONG habits = bits ? static_cast<ULONG>(std::strtoul(bits->c_str(), nullptr, 10)) : 0;
    if (storage.ReadFact(kShortTermFact)) habits |= HABIT_SHORT_TERM_TABLES;
    return CStoreHabits(habits);
}

void CStoreHabits::Write(IObjectStorage& storage) const {
    storage.RemoveFact(kShortTermFact);
    storage.WriteFact(kFact, std::to_string(m_bits));
}

std::uint64_t CStoreHabits::Tick() const {
    if (Has(HABIT_CLOCK_SECONDS)) return kSecond;
    return Has(HABIT_CLOCK_MILLISECONDS) ? kMillisecond : 1;
}

bool CStoreHabits::IsComputed(PropId id) const {
    if (id == PROP_ID(PR_LAST_MODIFICATION_TIME))
        return Has(HABIT_MODIFIED_COMPUTED) || Has(HABIT_TIMES_COMPUTED);
    return id == PROP_ID(PR_CREATION_TIME) && Has(HABIT_TIMES_COMPUTED);
}

// Lines end with CR LF, without blanks before it.
bool CStoreHabits::RewriteBody(std::string_view body, std::string& rewritten) const {
    if (!Has(HABIT_BODIES_REWRITTEN)) return false;
    rewritten.clear();
    const auto endLine = [&rewritten] { rewritten.erase(rewritten.find_last_not_of(" \t") + 1); };
    for (const char c : body) {
        if (c == '\r') continue;
        if (c != '\n') {
            rewritten += c;
            continue;
        }
        endLine();
        rewritten += "\r\n";
    }
    endLine();
    return rewritten != body;
}

std::size_t CStoreHabits::RowsOf(std::size_t asked) const {
    return Has(HABIT_SHORT_ANSWERS) ? std::min(asked, kShortAnswer) : asked;
}

ObjectId CStoreHabits::Shown(ObjectId id) const {
    if (!Has(HABIT_MOVES_KEEP_IDS) || !IsMessageId(id)) return id;
    return MakeMessageId(kAnyFolder, false, id & kSerialMask);
}

std::uint64_t CStoreHabits::SerialOfMoved(ObjectId id, std::uint64_t next) const {
    return Has(HABIT_MOVES_KEEP_IDS) ? id & kSerialMask : next;
}

ObjectId CStoreHabits::Resolve(IObjectStorage& storage, ObjectId shown, ObjectId folder) const {
    if (!Has(HABIT_MOVES_KEEP_IDS) || FolderOf(shown) != kAnyFolder) return shown;
    const std::uint64_t serial = shown & kSerialMask;
    if (folder)
        if (const ObjectId found = FindSerial(storage, folder, serial)) return found;
    const ObjectId found = FindSerialBelow(storage, kRootFolder, serial);
    return found ? found : shown;
}
