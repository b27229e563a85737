// What a check of a store's file looks at. Each step stands alone: one that the damage ends does not hide
// what the others find.
#include <MapiStore/Values/PropertyCodec.h>
#include <MapiStore/Values/RecipientList.h>
#include "MessageRange.h"
#include "SqliteSchema.h"
#include "SqliteStorage.h"
#include "WellKnown.h"

#include <algorithm>
#include <map>
#include <set>

namespace {

using OnDamage = std::function<void(const StoreDamage&)>;

constexpr unsigned kDeepestOwner = 256;
constexpr unsigned kDeepestFolder = 512;
constexpr std::uint64_t kMostPageFaults = 100;

struct LargeMark {
    PropId id;
    std::size_t size;
};

class CFileCheck {
public:
    CFileCheck(sqlite3*& database, bool hasNames, const OnDamage& each, StoreCheckCounts& counts)
        : m_database(database), m_hasNames(hasNames), m_each(each), m_counts(counts) {}

    void Run() {
        Step("pages", [this] { CheckPages(); });
        Step("names of properties", [this] { ReadNames(); });
        Step("folders", [this] { CheckFolders(); });
        Step("messages", [this] { CheckMessages(); });
        Step("attachments", [this] { CheckParts(); });
        Step("large values", [this] { CheckOwners("large", "large values of"); });
        Step("recipients", [this] { CheckOwners("recipients", "recipients of"); });
        Step("facts", [this] { CheckFacts(); });
        Step("counters", [this] { CheckCounters(); });
    }

private:
    template <class Body>
    void Step(const char* what, Body&& body) {
        try {
            body();
        } catch (const CStoreError& error) {
            const std::string why = error.Text().empty() ? "" : ": " + error.Text();
            Tell("file", 0, std::string("the ") + what + " cannot be read" + why);
        }
    }
    void Tell(const char* kind, ObjectId object, const std::string& text) { m_each({kind, object, text}); }

    void CheckPages() {
        CSqliteSlot check(m_database, "PRAGMA integrity_check(100)");
        CSqliteUse row(check);
        for (std::uint64_t i = 0; i < kMostPageFaults && row.Step(); ++i)
            if (row.BytesAt(0) != "ok") Tell("file", 0, std::string(row.BytesAt(0)));
    }

    void ReadNames() {
        CSqliteSlot names(m_database, "SELECT id, length(guid) FROM name");
        CSqliteUse row(names);
        while (row.Step()) {
            m_names.insert(static_cast<PropId>(row.NumberAt(0)));
            if (row.NumberAt(1) != sizeof(GUID))
                Tell("name", 0,
                     "the name of the property " + std::to_string(row.NumberAt(0)) + " cannot be read");
        }
    }

    // Decodes every value; what it says of large ones goes into `marks`.
    void CheckBlock(ObjectId object, std::string_view bytes, std::vector<LargeMark>* marks) {
        try {
            const CValueBlock block(bytes);
            CStoredValue value;
            for (std::size_t i = 0; i < block.Count(); ++i) {
                block.At(i, value);
                if (value.IsLarge() && marks)
                    marks->push_back({value.Id(), value.Size()});
                else
                    Decode(value);
                if (value.Id() >= 0x8000 && m_names.count(value.Id()) == 0)
                    Tell("name", object, "has a property whose name is not there");
            }
        } catch (const CStoreError&) {
            Tell("block", object, "has properties that cannot be read");
        }
    }

    void Decode(const CStoredValue& value) {
        const auto type = GivenType(value.Type(), PT_UNSPECIFIED, true);
        Require(type && StoredTypeOf(*type) == value.Type() && !value.IsLarge(), MAPI_E_CORRUPT_DATA);
        m_room.assign(RoomFor(value, *type, false) + 8, 0);
        char* next = m_room.data();
        SPropValue out;
        GiveValue(value, PROP_TAG(*type, value.Id()), false, out, next);
    }

    // The block of large values against the marks in the small one.
    void CheckLarge(ObjectId object, const std::vector<LargeMark>& marks) {
        CSqliteUse row(m_large);
        const bool isThere = row.Number(object).Step();
        if (isThere) CheckBlock(object, row.BytesAt(0), nullptr);
        bool isWhole = true;
        try {
            const CValueBlock block(isThere ? row.BytesAt(0) : std::string_view());
            CStoredValue value;
            for (const LargeMark& mark : marks)
                isWhole = isWhole && block.Find(mark.id, value) && value.Size() == mark.size;
        } catch (const CStoreError&) {
            return;  // told above
        }
        if (!isWhole) Tell("block", object, "has lost a large value");
    }

    void CheckObject(ObjectId object, std::string_view block) {
        std::vector<LargeMark> marks;
        CheckBlock(object, block, &marks);
        CheckLarge(object, marks);
    }

    void CheckRecipients(ObjectId object, std::optional<std::uint64_t> expected) {
        CSqliteUse row(m_recipients);
        std::uint64_t count = 0;
        try {
            if (row.Number(object).Step())
                for (const auto& block : SplitRecipients(row.BytesAt(0))) {
                    ++count;
                    CheckBlock(object, block, nullptr);
                }
        } catch (const CStoreError&) {
            return Tell("block", object, "has recipients that cannot be read");
        }
        if (expected && count != *expected)
            Tell("count", object,
                 "has " + std::to_string(count) + " recipient(s), and " + std::to_string(*expected) +
                     " by its row");
    }

    void CheckFolders() {
        struct Folder {
            ObjectId parent;
            bool isNamed;
        };
        std::map<ObjectId, Folder> folders;
        {
            CSqliteSlot all(m_database, m_hasNames ? "SELECT id, parent, block, name FROM folder"
                                                   : "SELECT id, parent, block, NULL FROM folder");
            CSqliteUse row(all);
            while (row.Step()) {
                const ObjectId id = row.NumberAt(0);
                CheckObject(id, row.BytesAt(2));
                folders[id] = {row.NumberAt(1), !m_hasNames || IsNameOf(row.BytesAt(2), row.BytesAt(3))};
                m_lastFolder = std::max(m_lastFolder, id);
            }
        }
        for (ObjectId id = kRootFolder; id <= kLastWellKnownFolder; ++id)
            if (folders.count(id) == 0)
                Tell("parent", 0, "a standard folder is not there (number " + std::to_string(id) + ")");
        for (const auto& [id, folder] : folders) {
            m_folders.insert(id);
            if (!folder.isNamed) Tell("name", id, "is listed under another name");
            ObjectId above = id;
            unsigned depth = 0;
            while (above != kRootFolder && folders.count(above) != 0 && depth++ < kDeepestFolder)
                above = folders[above].parent;
            if (above != kRootFolder) Tell("parent", id, "lies in a folder that is not there, or in itself");
        }
        m_counts.folders = static_cast<ULONG>(folders.size());
    }

    static bool IsNameOf(std::string_view block, std::string_view name) {
        try {
            CStoredValue value;
            const bool isThere = CValueBlock(block).Find(PROP_ID(PR_DISPLAY_NAME), value);
            return (isThere ? value.Bytes() : std::string_view()) == name;
        } catch (const CStoreError&) {
            return true;  // told as damage of the block
        }
    }

    void CheckMessages() {
        CSqliteSlot all(m_database, "SELECT id, recipients, attachments, large, change, block FROM message");
        CSqliteUse row(all);
        for (; row.Step(); ++m_counts.messages) {
            const ObjectId id = row.NumberAt(0);
            CheckObject(id, row.BytesAt(5));
            CheckRecipients(id, row.NumberAt(1));
            CSqliteUse count(m_attachments);
            const std::uint64_t attachments = count.Number(id).Step() ? count.NumberAt(0) : 0;
            if (attachments != row.NumberAt(2))
                Tell("count", id,
                     "has " + std::to_string(attachments) + " attachment(s), and " +
                         std::to_string(row.NumberAt(2)) + " by its row");
            CSqliteUse large(m_large);
            if (large.Number(id).Step() != (row.NumberAt(3) != 0))
                Tell("count", id, "has other large values than its row says");
            if (m_folders.count(FolderOf(id)) == 0) Tell("parent", id, "lies in a folder that is not there");
            m_lastSerial = std::max(m_lastSerial, id & kSerialMask);
        }
    }

    // Up to the message; a chain that does not end there belongs to nobody.
    void CheckParts() {
        std::map<ObjectId, ObjectId> owners;
        {
            CSqliteSlot all(m_database, "SELECT id, owner, block FROM part");
            CSqliteUse row(all);
            for (; row.Step(); ++m_counts.parts) {
                const ObjectId id = row.NumberAt(0);
                owners[id] = row.NumberAt(1);
                CheckObject(id, row.BytesAt(2));
                CheckRecipients(id, std::nullopt);
                m_lastSerial = std::max(m_lastSerial, id & kSerialMask);
            }
        }
        CSqliteSlot message(m_database, "SELECT 1 FROM message WHERE id = ?");
        for (const auto& [id, owner] : owners) {
            ObjectId above = owner;
            for (unsigned depth = 0; owners.count(above) != 0 && depth < kDeepestOwner; ++depth)
                above = owners[above];
            if (owners.count(above) != 0 || !CSqliteUse(message).Number(above).Step())
                Tell("owner", 0, "an attachment belongs to no message (number " + std::to_string(id) + ")");
        }
    }

    void CheckOwners(const char* table, const char* what) {
        const std::string sql =
            std::string("SELECT owner FROM ") + table +
            " WHERE owner NOT IN (SELECT id FROM message) AND owner NOT IN (SELECT id FROM part)"
            " AND owner NOT IN (SELECT id FROM folder)";
        CSqliteSlot all(m_database, sql.c_str());
        CSqliteUse row(all);
        while (row.Step())
            Tell("owner", 0,
                 std::string(what) + " an object that is not there (number " +
                     std::to_string(row.NumberAt(0)) + ")");
    }

    void CheckFacts() {
        CSqliteSlot all(m_database, "SELECT name, value FROM fact");
        CSqliteUse row(all);
        bool hasUid = false;
        while (row.Step()) {
            const std::string name(row.BytesAt(0));
            const std::string_view value = row.BytesAt(1);
            if (name == "uid") hasUid = value.size() == sizeof(GUID);
            if (name == "properties" || name == "properties-large") CheckFactBlock(value);
            if (!name.starts_with("receive:")) continue;
            ObjectId folder = 0;
            if (value.size() >= sizeof folder) std::memcpy(&folder, value.data(), sizeof folder);
            if (m_folders.count(folder) == 0)
                Tell("fact", 0, "the folder that receives \"" + name.substr(8) + "\" is not there");
        }
        if (!hasUid) Tell("fact", 0, "the store has no identity");
    }

    void CheckFactBlock(std::string_view bytes) {
        try {
            const CValueBlock block(bytes);
            CStoredValue value;
            for (std::size_t i = 0; i < block.Count(); ++i)
                block.At(i, value);
        } catch (const CStoreError&) {
            Tell("fact", 0, "the properties of the store cannot be read");
        }
    }

    void CheckCounters() {
        const auto lastChange = std::max(Number("SELECT coalesce(max(change), 0) FROM message"),
                                         Number("SELECT coalesce(max(change), 0) FROM folder"));
        CSqliteSlot all(m_database, m_hasNames ? "SELECT serial, folder, change, times FROM counter"
                                               : "SELECT serial, folder, change, x'' FROM counter");
        CSqliteUse row(all);
        if (!row.Step()) return Tell("counter", 0, "the counters are not there");
        const auto demand = [this](std::uint64_t next, std::uint64_t last, const char* what) {
            if (next <= last)
                Tell("counter", 0,
                     std::string("the next number of ") + what + " is " + std::to_string(next) + ", and " +
                         std::to_string(last) + " is in use");
        };
        demand(row.NumberAt(0), m_lastSerial, "a message or attachment");
        demand(row.NumberAt(1), m_lastFolder, "a folder");
        demand(row.NumberAt(2), lastChange, "a change");
        try {
            CGivenTimes::FromBytes(row.BytesAt(3));
        } catch (const CStoreError&) {
            Tell("counter", 0, "the times given cannot be read");
        }
    }

    std::uint64_t Number(const char* sql) {
        CSqliteSlot slot(m_database, sql);
        CSqliteUse row(slot);
        return row.Step() ? row.NumberAt(0) : 0;
    }

    sqlite3*& m_database;
    const bool m_hasNames;
    const OnDamage& m_each;
    StoreCheckCounts& m_counts;
    CSqliteSlot m_large{m_database, "SELECT block FROM large WHERE owner = ?"};
    CSqliteSlot m_recipients{m_database, "SELECT list FROM recipients WHERE owner = ?"};
    CSqliteSlot m_attachments{m_database,
                              "SELECT count(*) FROM part WHERE owner = ? AND number <> 4294967295"};
    std::set<PropId> m_names;
    std::set<ObjectId> m_folders;
    ObjectId m_lastFolder = 0, m_lastSerial = 0;
    std::string m_room;
};

}  // namespace

void CSqliteStorage::Check(const OnDamage& each, StoreCheckCounts& counts) {
    counts = {};
    CSqliteUse(Slot(DataVersion)).Run();  // from here on in one version
    CFileCheck(m_database, m_hasNames, each, counts).Run();
    try {
        CheckLookups(each, counts);
    } catch (const CStoreError&) {
        each({"lookup", 0, "the lookups cannot be read"});
    }
}
