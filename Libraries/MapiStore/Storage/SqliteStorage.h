// A store in one SQLite file (write-ahead log, synchronous NORMAL: what is committed survives the
// death of the process; a power failure may take the last transactions, never the order of them, and none
// from before SyncToDisk).
#pragma once
#include <Platform/Files.h>

#include "LookupPages.h"
#include "SqliteStatement.h"
#include "Storage.h"

#include <map>

class CSqliteStorage : public IObjectStorage, private ISqliteReadGuard {
public:
    // MAPI_E_NOT_FOUND if there is no file, MAPI_E_CORRUPT_STORE if it is something else,
    // MAPI_E_VERSION if a later program has made it.
    explicit CSqliteStorage(const std::string& path);
    // Makes an empty store. MAPI_E_COLLISION if a file of the name exists.
    static void Create(const std::string& path);
    ~CSqliteStorage() override;

    // The file may not grow past this many pages. For tests of a full disk.
    void LimitPages(unsigned pages);

    bool IsReadOnly() const override;
    void BeginWrite(StoreCounters& counters) override;
    void Commit(const StoreCounters& counters) override;
    void Rollback() noexcept override;
    void SyncToDisk() override;
    bool InWrite() const override;
    void SetSavepoint() override;
    void ReleaseSavepoint() override;
    void RollbackToSavepoint() noexcept override;
    void HoldVersion() noexcept override { m_mayHold = true; }
    void ReleaseVersion() noexcept override;
    std::uint64_t OutsideChanges() override;

    std::optional<std::string> ReadFact(std::string_view name) override;
    void WriteFact(std::string_view name, std::string_view value) override;
    void RemoveFact(std::string_view name) override;
    void ScanFacts(std::string_view prefix,
                   const std::function<void(std::string_view, std::string_view)>& each) override;
    void ScanNames(const std::function<void(PropId, const PropertyName&)>& each) override;
    void AddName(PropId id, const PropertyName& name) override;

    bool ReadFolder(ObjectId id, FolderHead& head, std::string& block) override;
    void WriteFolder(const FolderHead& head, std::string_view block) override;
    void DeleteFolder(ObjectId id) override;
    void ScanFolders(ObjectId parent,
                     const std::function<void(const FolderHead&, std::string_view)>& each) override;
    std::uint64_t CountFolders(ObjectId parent) override;
    ObjectId FindFolder(ObjectId parent, std::string_view name) override;

    bool ReadMessage(ObjectId id, MessageHead& head, std::string& block) override;
    bool ReadMessageHead(ObjectId id, MessageHead& head) override;
    void InsertMessage(const MessageHead& head, std::string_view block) override;
    bool UpdateMessage(const MessageHead& head, std::string_view block,
                       std::optional<std::uint64_t> ifChange) override;
    bool UpdateMessageState(ObjectId id, std::uint32_t flags, std::uint32_t status) override;
    void MoveMessage(ObjectId from, const MessageHead& to) override;
    bool DeleteMessage(ObjectId id) override;
    void DeleteMessages(ObjectId folder, bool associated) override;
    void ScanMessages(ObjectId folder, bool associated,
                      const std::function<bool(const MessageHead&, std::string_view)>& each) override;
    void ScanMessageBlocks(ObjectId folder, bool associated,
                           const std::function<bool(const MessageHead&, std::string_view)>& each) override;
    void ScanMessageHeads(ObjectId folder, bool associated,
                          const std::function<bool(const MessageHead&)>& each) override;
    bool FindMessages(ObjectId folder, bool associated, const std::vector<LookupRange>& ranges,
                      std::vector<ObjectId>& ids) override;
    std::uint64_t CountMessages(ObjectId folder, bool associated) override;
    std::uint64_t CountUnread(ObjectId folder) override;

    bool ReadLarge(ObjectId owner, std::string& block) override;
    void WriteLarge(ObjectId owner, std::string_view block) override;
    bool ReadRecipients(ObjectId owner, std::string& list) override;
    void WriteRecipients(ObjectId owner, std::string_view list) override;
    void ScanParts(ObjectId owner,
                   const std::function<void(const PartHead&, std::string_view)>& each) override;
    bool ReadPart(ObjectId id, PartHead& head, std::string& block) override;
    void WritePart(const PartHead& head, std::string_view block) override;
    void DeletePart(ObjectId id) override;

    void Check(const std::function<void(const StoreDamage&)>& each, StoreCheckCounts& counts) override;
    void Compact() override;
    void BackUp(const std::string& file) override;

private:
    enum StatementId : unsigned;
    // What another process changes before it changes anything that can be read.
    struct Surroundings {
        FileStamp file, log, index;
        bool operator==(const Surroundings&) const = default;
    };
    Surroundings Look() const;
    void OpenAny();
    void OpenUnguarded();
    void ReopenIfChanged();
    void CheckRead() override;
    void Open(const char* name, int flags);
    void Execute(const char* sql);
    void Close() noexcept;
    void CheckIdentity();
    unsigned Version();
    void BringUp();
    void AddLookups();
    void AddColumns();
    void WriteNames();
    std::string TimesOfOlderFile();
    std::uint64_t OneNumber(const char* sql);
    void CheckLookups(const std::function<void(const StoreDamage&)>& each, StoreCheckCounts& counts);
    void CheckLookup(std::uint64_t number, std::uint64_t place, PropId property,
                     const std::function<void(const StoreDamage&)>& each);
    void DeletePartAt(ObjectId id, unsigned depth);
    void DeletePartsOf(ObjectId owner, unsigned depth);
    CSqliteSlot& Slot(StatementId id);

    static constexpr int kBusyTimeoutMs = 10000;

    // Lookups (SqliteLookup.cpp).
    struct Lookup {
        std::uint64_t number = 0, rows = 0;
    };
    struct Touched {
        std::vector<ObjectId> ids;  // written in this transaction
        std::uint64_t changes = 0;  // writes and deletions
    };
    void ReadPlaces();
    void Touch(ObjectId id, bool isThere = true);
    void WriteTouched();
    void DropLookups(std::uint64_t place);
    std::optional<Lookup> FindLookup(std::uint64_t place, PropId property);
    bool IsWorthALookup(std::uint64_t place);
    bool WriteQuietly(const std::function<void()>& body) noexcept;
    void BuildLookup(std::uint64_t place, PropId property);
    void AddKeys(std::uint64_t lookup, CLookupKeys& keys);
    void AddPages(std::uint64_t lookup, CLookupKeys& keys);
    void FindInRows(std::uint64_t lookup, const LookupRange& range, std::size_t most,
                    std::vector<ObjectId>& ids);
    void FindInPages(std::uint64_t lookup, std::string_view first, std::string_view last, std::size_t most,
                     std::vector<ObjectId>& ids);
    std::vector<ObjectId> ReadTouched(std::uint64_t place);
    std::vector<std::pair<std::uint64_t, PropId>> LookupsOf(std::uint64_t place);
    void AbsorbTouched(std::uint64_t place);

    const std::string m_path;
    bool m_hasLookups = false;   // the file's tables are there
    bool m_hasNames = false;     // the column of folders' names is there
    bool m_mayHold = false;      // between HoldVersion and ReleaseVersion
    bool m_isUnguarded = false;  // opened as a file that nobody changes, which is watched then
    Surroundings m_seen;         // when that was done
    std::uint64_t m_openings = 0;
    std::map<std::uint64_t, Touched> m_places;  // those with lookups, while a transaction lasts
    sqlite3* m_database = nullptr;
    std::vector<std::unique_ptr<CSqliteSlot>> m_slots;
    std::optional<CSqliteUse> m_held;  // a statement that stands on its row keeps the version
};
