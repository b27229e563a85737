// Lookups: messages of a folder by the value of one property.
//
// A lookup is made by the first question that one could answer, not by the saves: an index that every save
// keeps would make each dearer by a tenth to a third, and most folders are never asked. A save into a
// folder that has lookups only notes the message's number, once a transaction; the numbers noted are
// possible answers to every question until there are enough of them to take their keys in: those a lookup
// is made of lie in pages, later ones in rows of their own. Keys are never taken out: whoever asks looks at
// what was found, and numbers of messages are never given again. When a folder has seen more changes than it
// had rows, its lookups are dropped, and made anew when somebody asks.
#include "MessageRange.h"
#include "SqliteSchema.h"
#include "SqliteStorage.h"

#include <algorithm>
#include <set>

#include <MapiStore/Values/StoreError.h>

namespace {

constexpr std::uint64_t kFewRows = 500;   // in folders of fewer a scan is fast enough
constexpr std::size_t kMostTouched = 50;  // noted numbers that are not worth a write
constexpr unsigned kPageNumberBits = 24;  // of a page's number, below that of its lookup

std::uint64_t TicksFor(PropId property, std::uint64_t created, std::uint64_t modified) {
    return property == PROP_ID(PR_CREATION_TIME) ? created : modified;
}

bool IsTime(PropId property) {
    return property == PROP_ID(PR_CREATION_TIME) || property == PROP_ID(PR_LAST_MODIFICATION_TIME);
}

// The keys of a message for one property. A value without a key at hand gives the empty key: a large one,
// and any of a block that is damaged, so that the one who asks meets the damage.
template <class Each>
void ForEachKeyOf(PropId property, std::uint64_t created, std::uint64_t modified, std::string_view block,
                  const Each& each) {
    CStoredValue value;
    if (IsTime(property)) {
        value.OwnTime(property, TicksFor(property, created, modified));
        return ForEachLookupKey(value, each);
    }
    try {
        if (!CValueBlock(block).Find(property, value)) return;
        if (value.IsLarge())
            each({});
        else
            ForEachLookupKey(value, each);
    } catch (const CStoreError&) {
        each({});
    }
}

// Behind the empty key and before every other.
constexpr std::string_view kAfterNoKey("\0", 1);

std::uint64_t FirstPageOf(std::uint64_t lookup) {
    return lookup << kPageNumberBits;
}

}  // namespace

// --- noting what was written -------------------------------------------------------------------------

void CSqliteStorage::ReadPlaces() {
    m_places.clear();
    if (!m_hasLookups) return;
    CSqliteUse row(Slot(LookupPlaces));
    while (row.Step())
        m_places[row.NumberAt(0)];
}

void CSqliteStorage::Touch(ObjectId id, bool isThere) {
    if (m_places.empty()) return;
    const auto place = m_places.find(PlaceOf(id));
    if (place == m_places.end()) return;
    ++place->second.changes;
    if (isThere) place->second.ids.push_back(id);
}

void CSqliteStorage::WriteTouched() {
    for (auto& [place, touched] : m_places) {
        if (touched.changes == 0) continue;
        CSqliteUse(Slot(LookupTouched)).Number(touched.changes).Number(place).Run();
        const bool isKept = sqlite3_changes(m_database) > 0;
        if (isKept && CSqliteUse(Slot(LookupIsWorn)).Number(place).Step())
            DropLookups(place);
        else if (isKept)
            for (const ObjectId id : touched.ids)
                CSqliteUse(Slot(TouchedAdd)).Number(place).Number(id).Run();
        touched = {};
    }
}

// The place stays among m_places: a savepoint may bring its lookups back.
void CSqliteStorage::DropLookups(std::uint64_t place) {
    if (m_places.count(place) == 0) return;
    for (const auto& [number, property] : LookupsOf(place)) {
        CSqliteUse(Slot(KeyDrop)).Number(number).Run();
        CSqliteUse(Slot(PageDrop)).Number(FirstPageOf(number)).Number(FirstPageOf(number + 1) - 1).Run();
    }
    CSqliteUse(Slot(LookupDrop)).Number(place).Run();
    CSqliteUse(Slot(TouchedDrop)).Number(place).Run();
}

std::vector<std::pair<std::uint64_t, PropId>> CSqliteStorage::LookupsOf(std::uint64_t place) {
    std::vector<std::pair<std::uint64_t, PropId>> lookups;
    CSqliteUse row(Slot(LookupsIn));
    row.Number(place);
    while (row.Step())
        lookups.emplace_back(row.NumberAt(0), static_cast<PropId>(row.NumberAt(1)));
    return lookups;
}

// --- making and mending ------------------------------------------------------------------------------

std::optional<CSqliteStorage::Lookup> CSqliteStorage::FindLookup(std::uint64_t place, PropId property) {
    CSqliteUse row(Slot(LookupOf));
    if (!row.Number(place).Number(property).Step()) return std::nullopt;
    return Lookup{row.NumberAt(0), row.NumberAt(1)};
}

bool CSqliteStorage::IsWorthALookup(std::uint64_t place) {
    const IdRange range = RangeOfPlace(place);
    CSqliteUse row(Slot(LookupHasRows));
    return row.Number(range.first).Number(range.last).Number(kFewRows).Step() && row.NumberAt(0) >= kFewRows;
}

// A transaction of its own for what is only there to be faster: not inside somebody's, which a full disk
// would take along, and without waiting for another process. False if nothing was written.
bool CSqliteStorage::WriteQuietly(const std::function<void()>& body) noexcept {
    if (IsReadOnly() || InWrite()) return false;
    sqlite3_busy_timeout(m_database, 0);
    bool done = false;
    try {
        CSqliteUse(Slot(Begin)).Run();
        body();
        CSqliteUse(Slot(CommitIt)).Run();
        done = true;
    } catch (...) {
        Rollback();
    }
    sqlite3_busy_timeout(m_database, kBusyTimeoutMs);
    return done;
}

void CSqliteStorage::AddKeys(std::uint64_t lookup, CLookupKeys& keys) {
    keys.ForEach([&](std::string_view key, ObjectId id) {
        CSqliteUse add(Slot(KeyAdd));
        add.Number(lookup);
        if (key.empty())
            add.Number(0);
        else
            add.Blob(key);
        add.Number(id).Run();
    });
}

void CSqliteStorage::AddPages(std::uint64_t lookup, CLookupKeys& keys) {
    std::uint64_t number = FirstPageOf(lookup);
    keys.Pack([&](std::string_view first, std::string_view page) {
        CSqliteUse(Slot(PageAdd)).Number(number++).Number(lookup).Blob(first).Blob(page).Run();
    });
}

void CSqliteStorage::BuildLookup(std::uint64_t place, PropId property) {
    if (FindLookup(place, property)) return;  // another process was faster
    CSqliteUse(Slot(LookupAdd)).Number(place).Number(property).Run();
    const auto number = static_cast<std::uint64_t>(sqlite3_last_insert_rowid(m_database));
    const IdRange range = RangeOfPlace(place);
    CLookupKeys keys;
    std::uint64_t rows = 0;
    CSqliteUse row(Slot(IsTime(property) ? LookupScanTimes : LookupScan));
    row.Number(range.first).Number(range.last);
    for (; row.Step(); ++rows) {
        const ObjectId id = row.NumberAt(0);
        ForEachKeyOf(property, row.NumberAt(1), row.NumberAt(2), row.BytesAt(3),
                     [&](std::string_view key) { keys.Add(key, id); });
    }
    AddPages(number, keys);
    CSqliteUse(Slot(LookupSetRows)).Number(rows).Number(number).Run();
}

void CSqliteStorage::AbsorbTouched(std::uint64_t place) {
    const auto lookups = LookupsOf(place);
    std::vector<CLookupKeys> keys(lookups.size());
    MessageHead head;
    std::string block;
    for (const ObjectId id : ReadTouched(place)) {
        if (!ReadMessage(id, head, block)) continue;
        for (std::size_t i = 0; i < lookups.size(); ++i)
            ForEachKeyOf(lookups[i].second, head.created, head.modified, block,
                         [&](std::string_view key) { keys[i].Add(key, id); });
    }
    for (std::size_t i = 0; i < lookups.size(); ++i)
        AddKeys(lookups[i].first, keys[i]);
    CSqliteUse(Slot(TouchedDrop)).Number(place).Run();
}

std::vector<ObjectId> CSqliteStorage::ReadTouched(std::uint64_t place) {
    std::vector<ObjectId> ids;
    CSqliteUse row(Slot(TouchedScan));
    row.Number(place);
    while (row.Step())
        ids.push_back(row.NumberAt(0));
    return ids;
}

// --- checking ----------------------------------------------------------------------------------------

void CSqliteStorage::CheckLookups(const std::function<void(const StoreDamage&)>& each,
                                  StoreCheckCounts& counts) {
    if (!m_hasLookups) return;
    struct Row {
        std::uint64_t number, place;
        PropId property;
    };
    std::vector<Row> rows;
    CSqliteSlot all(m_database, "SELECT number, place, property FROM lookup");
    for (CSqliteUse row(all); row.Step();)
        rows.push_back({row.NumberAt(0), row.NumberAt(1), static_cast<PropId>(row.NumberAt(2))});
    for (const Row& row : rows)
        CheckLookup(row.number, row.place, row.property, each);
    counts.lookups = static_cast<ULONG>(rows.size());
    const auto orphans = OneNumber(
        "SELECT (SELECT count(*) FROM lookup_key WHERE lookup NOT IN (SELECT number FROM lookup))"
        " + (SELECT count(*) FROM lookup_page WHERE lookup NOT IN (SELECT number FROM lookup))");
    if (orphans > 0) each({"lookup", 0, std::to_string(orphans) + " key(s) of a lookup that is not there"});
}

// A key too many costs a look at the message; one too few hides it.
void CSqliteStorage::CheckLookup(std::uint64_t number, std::uint64_t place, PropId property,
                                 const std::function<void(const StoreDamage&)>& each) {
    std::set<std::pair<std::string, ObjectId>> keys;
    std::string last;
    const auto damage = [&](const std::string& text) {
        each({"lookup", FolderOf(RangeOfPlace(place).first), text});
    };
    const auto addPage = [&](std::string_view first, std::string_view page) {
        bool isFirst = true, isOrdered = true;
        ScanLookupPage(page, [&](std::string_view key, ObjectId id) {
            isOrdered = isOrdered && key >= last && (!isFirst || key == first);
            isFirst = false;
            last = key;
            keys.emplace(key, id);
            return true;
        });
        if (!isOrdered) damage("keys of a lookup lie out of order");
    };
    try {
        CSqliteSlot pages(m_database, "SELECT first, page FROM lookup_page WHERE lookup = ? ORDER BY id");
        CSqliteUse page(pages);
        page.Number(number);
        while (page.Step())
            addPage(std::string(page.BytesAt(0)), page.BytesAt(1));
    } catch (const CStoreError&) {
        damage("a page of a lookup cannot be read");
    }
    CSqliteSlot single(m_database,
                       "SELECT CASE WHEN key = 0 THEN x'' ELSE key END, id FROM lookup_key WHERE lookup = ?");
    CSqliteUse row(single);
    row.Number(number);
    while (row.Step())
        keys.emplace(row.BytesAt(0), row.NumberAt(1));
    const auto touched = ReadTouched(place);
    const std::set<ObjectId> noted(touched.begin(), touched.end());
    std::uint64_t missing = 0;
    const IdRange range = RangeOfPlace(place);
    CSqliteUse message(Slot(LookupScan));
    message.Number(range.first).Number(range.last);
    while (message.Step()) {
        const ObjectId id = message.NumberAt(0);
        if (noted.count(id) != 0) continue;
        bool isThere = true;
        ForEachKeyOf(property, message.NumberAt(1), message.NumberAt(2), message.BytesAt(3),
                     [&](std::string_view key) {
                         isThere = isThere && keys.count({std::string(key), id}) != 0;
                     });
        missing += !isThere;
    }
    if (missing > 0)
        damage(std::to_string(missing) + " message(s) are not found by a question to the folder");
}

// --- asking ------------------------------------------------------------------------------------------

// Both add what they find until there are `most`.
void CSqliteStorage::FindInRows(std::uint64_t lookup, const LookupRange& range, std::size_t most,
                                std::vector<ObjectId>& ids) {
    if (ids.size() >= most) return;
    CSqliteUse row(Slot(KeyFind));
    row.Number(lookup).Blob(range.first).Blob(range.last).Number(most - ids.size());
    while (row.Step())
        ids.push_back(row.NumberAt(0));
}

void CSqliteStorage::FindInPages(std::uint64_t lookup, std::string_view first, std::string_view last,
                                 std::size_t most, std::vector<ObjectId>& ids) {
    // The page that begins before the range may end within it.
    std::uint64_t begin = FirstPageOf(lookup);
    {
        CSqliteUse row(Slot(PageBefore));
        if (row.Number(lookup).Blob(first).Step()) begin = row.NumberAt(0);
    }
    bool isBefore = true;
    const auto take = [&](std::string_view key, ObjectId id) {
        isBefore = key < last && ids.size() < most;
        if (isBefore && key >= first) ids.push_back(id);
        return isBefore;
    };
    CSqliteUse row(Slot(PagesFrom));
    row.Number(begin).Number(FirstPageOf(lookup + 1) - 1);
    while (isBefore && row.Step())
        ScanLookupPage(row.BytesAt(0), take);
}

bool CSqliteStorage::FindMessages(ObjectId folder, bool associated, const std::vector<LookupRange>& ranges,
                                  std::vector<ObjectId>& ids) {
    if (!m_hasLookups) return false;
    const std::uint64_t place = PlaceOf(MakeMessageId(folder, associated, 0));
    // What may be written comes first: from then on everything is of one version of the file.
    for (const LookupRange& range : ranges)
        if (!FindLookup(place, range.property) && IsWorthALookup(place))
            WriteQuietly([&] { BuildLookup(place, range.property); });
    if (ReadTouched(place).size() > kMostTouched) WriteQuietly([&] { AbsorbTouched(place); });
    std::vector<Lookup> lookups;
    for (const LookupRange& range : ranges) {
        const auto lookup = FindLookup(place, range.property);
        if (!lookup) return false;
        lookups.push_back(*lookup);
    }
    ids = ReadTouched(place);
    const auto open = m_places.find(place);
    if (InWrite() && open != m_places.end())
        ids.insert(ids.end(), open->second.ids.begin(), open->second.ids.end());
    for (std::size_t i = 0; i < ranges.size(); ++i) {
        // Reading a message by its number costs more than meeting it in a scan.
        const std::uint64_t most = lookups[i].rows / 3 + 1;
        FindInRows(lookups[i].number, ranges[i], most, ids);
        FindInPages(lookups[i].number, {}, kAfterNoKey, most, ids);
        FindInPages(lookups[i].number, ranges[i].first, ranges[i].last, most, ids);
        if (ids.size() >= most) return false;
    }
    std::sort(ids.begin(), ids.end());
    ids.erase(std::unique(ids.begin(), ids.end()), ids.end());
    return true;
}
