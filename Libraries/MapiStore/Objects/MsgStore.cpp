#include "MsgStore.h"

#include <Platform/Files.h>

#include <algorithm>

#include <MapiStore/Storage/WellKnown.h>
#include <MapiStore/Tables/Tables.h>
#include <MapiStore/Values/MapiMemory.h>
#include "Folder.h"
#include "FolderTree.h"

namespace {

constexpr ULONG kValidFolders = FOLDER_IPM_SUBTREE_VALID | FOLDER_IPM_INBOX_VALID | FOLDER_IPM_OUTBOX_VALID |
                                FOLDER_IPM_WASTEBASKET_VALID | FOLDER_IPM_SENTMAIL_VALID;
constexpr char kReceivePrefix[] = "receive:";
constexpr char kPropertiesFact[] = "properties";
constexpr char kLargePropertiesFact[] = "properties-large";

constexpr PropId kComputedOfStores[] = {PROP_ID(PR_ENTRYID),
                                        PROP_ID(PR_STORE_ENTRYID),
                                        PROP_ID(PR_RECORD_KEY),
                                        PROP_ID(PR_STORE_RECORD_KEY),
                                        PROP_ID(PR_MAPPING_SIGNATURE),
                                        PROP_ID(PR_SEARCH_KEY),
                                        PROP_ID(PR_DISPLAY_NAME),
                                        PROP_ID(PR_MDB_PROVIDER),
                                        PROP_ID(PR_OBJECT_TYPE),
                                        PROP_ID(PR_RESOURCE_FLAGS),
                                        PROP_ID(PR_DEFAULT_STORE),
                                        PROP_ID(PR_STORE_SUPPORT_MASK),
                                        PROP_ID(PR_STORE_STATE),
                                        PROP_ID(PR_VALID_FOLDER_MASK),
                                        PROP_ID(PR_IPM_SUBTREE_ENTRYID),
                                        PROP_ID(PR_IPM_OUTBOX_ENTRYID),
                                        PROP_ID(PR_IPM_SENTMAIL_ENTRYID),
                                        PROP_ID(PR_IPM_WASTEBASKET_ENTRYID),
                                        PROP_ID(PR_ACCESS),
                                        PROP_ID(PR_ACCESS_LEVEL)};

// The folder behind an entry-ID property of the store; 0 for other properties.
ObjectId FolderBehind(PropId id) {
    switch (id) {
        case PROP_ID(PR_IPM_SUBTREE_ENTRYID):
            return kIpmFolder;
        case PROP_ID(PR_IPM_OUTBOX_ENTRYID):
            return kOutboxFolder;
        case PROP_ID(PR_IPM_SENTMAIL_ENTRYID):
            return kSentFolder;
        case PROP_ID(PR_IPM_WASTEBASKET_ENTRYID):
            return kDeletedFolder;
        default:
            return 0;
    }
}

std::string Upper(std::string text) {
    for (char& c : text)
        if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
    return text;
}

void CheckMessageClass(const std::string& messageClass) {
    const bool bad =
        std::any_of(messageClass.begin(), messageClass.end(), [](char c) { return c >= 0 && c < ' '; }) ||
        messageClass.find("..") != std::string::npos || messageClass.starts_with('.') ||
        messageClass.ends_with('.');
    Require(!bad && messageClass.size() <= 255, MAPI_E_INVALID_PARAMETER);
}

void* CopyBytes(const void* bytes, std::size_t cb) {
    void* block = nullptr;
    Require(AllocateRoot(cb, &block) == S_OK, MAPI_E_NOT_ENOUGH_MEMORY);
    std::memcpy(block, bytes, cb);
    return block;
}

// A text as an out parameter, in the width that the flags ask for.
LPTSTR GiveText(const std::string& utf8, ULONG flags) {
    if (flags & MAPI_UNICODE) {
        const std::wstring wide = WideFromUtf8(utf8);
        return static_cast<LPTSTR>(CopyBytes(wide.c_str(), (wide.size() + 1) * sizeof(wchar_t)));
    }
    const std::string narrow = NarrowFromUtf8(utf8);
    return static_cast<LPTSTR>(CopyBytes(narrow.c_str(), narrow.size() + 1));
}

ObjectId NumberFrom(std::string_view text) {
    ObjectId number = 0;
    if (text.size() == sizeof number) std::memcpy(&number, text.data(), sizeof number);
    return number;
}

bool FolderExists(CStoreCore& core, ObjectId id) {
    FolderHead head;
    std::string block;
    return core.Storage().ReadFolder(id, head, block);
}

}  // namespace

bool SameEntry(ULONG cb1, const ENTRYID* id1, ULONG cb2, const ENTRYID* id2) {
    StoreUid uid1, uid2;
    ObjectId number1 = 0, number2 = 0;
    if (ParseEntryId(cb1, id1, uid1, number1) && ParseEntryId(cb2, id2, uid2, number2))
        return uid1 == uid2 && number1 == number2;
    return cb1 == cb2 && cb1 != 0 && id1 && id2 && std::memcmp(id1, id2, cb1) == 0;
}

CMsgStore::~CMsgStore() {
    while (m_batch.begun > 0)
        EndBatch();
}

void* CMsgStore::FindInterface(REFIID riid) {
    if (riid == IID_IUnknown || riid == IID_IMAPIProp || riid == IID_IMsgStore)
        return static_cast<IMsgStore*>(this);
    if (riid == IID_IStoreBatch) return static_cast<IStoreBatch*>(this);
    if (riid == IID_IStoreCare) return static_cast<IStoreCare*>(this);
    if (riid == IID_IStoreFaults) return static_cast<IStoreFaults*>(this);
    return nullptr;
}

// --- properties ------------------------------------------------------------------------------------

void CMsgStore::LoadBag(bool again) {
    if (m_loaded && !again) return;
    m_loaded = true;
    m_large = Core().Storage().ReadFact(kLargePropertiesFact).value_or("");
    m_bag.Load(Core().Storage().ReadFact(kPropertiesFact).value_or(""));
}

bool CMsgStore::FindProp(PropId id, CStoredValue& value) {
    const ULONG writable = IsWritable() ? MAPI_ACCESS_MODIFY : 0;
    switch (id) {
        case PROP_ID(PR_ENTRYID):
        case PROP_ID(PR_STORE_ENTRYID): {
            const StoreEntryId entry = MakeEntryId(Core().Uid(), 0);
            value.Own(id, PT_BINARY, &entry, sizeof entry);
            return true;
        }
        case PROP_ID(PR_RECORD_KEY):
        case PROP_ID(PR_STORE_RECORD_KEY):
        case PROP_ID(PR_SEARCH_KEY):
        case PROP_ID(PR_MAPPING_SIGNATURE):
            value.Own(id, PT_BINARY, Core().Uid().bytes.data(), 16);
            return true;
        case PROP_ID(PR_DISPLAY_NAME):
            m_name.assign(Core().DisplayName());
            value.View(id, PT_STRING8, m_name);
            return true;
        case PROP_ID(PR_MDB_PROVIDER):
            value.Own(id, PT_BINARY, &kStoreProvider, sizeof kStoreProvider);
            return true;
        case PROP_ID(PR_OBJECT_TYPE):
            value.OwnLong(id, MAPI_STORE);
            return true;
        case PROP_ID(PR_RESOURCE_FLAGS):
            value.OwnLong(id, m_isDefault ? STATUS_DEFAULT_STORE : 0);
            return true;
        case PROP_ID(PR_DEFAULT_STORE):
            value.OwnBool(id, m_isDefault);
            return true;
        case PROP_ID(PR_STORE_SUPPORT_MASK):
            value.OwnLong(id, IsWritable() ? kStoreSupportMask : kStoreSupportMask | STORE_READONLY);
            return true;
        case PROP_ID(PR_STORE_STATE):
            value.OwnLong(id, 0);
            return true;
        case PROP_ID(PR_VALID_FOLDER_MASK):
            value.OwnLong(id, kValidFolders);
            return true;
        case PROP_ID(PR_ACCESS):
            value.OwnLong(id, writable | MAPI_ACCESS_READ);
            return true;
        case PROP_ID(PR_ACCESS_LEVEL):
            value.OwnLong(id, IsWritable() ? MAPI_MODIFY : 0);
            return true;
        default:
            break;
    }
    if (const ObjectId folder = FolderBehind(id)) {
        const StoreEntryId entry = MakeEntryId(Core().Uid(), folder);
        value.Own(id, PT_BINARY, &entry, sizeof entry);
        return true;
    }
    LoadBag(false);
    return m_bag.Find(id, value);
}

bool CMsgStore::LoadLarge(PropId id, std::string& bytes) {
    CStoredValue value;
    if (!CValueBlock(m_large).Find(id, value)) return false;
    bytes.assign(value.Bytes());
    return true;
}

void CMsgStore::ListIds(std::vector<PropId>& ids) {
    LoadBag(false);
    m_bag.ForEach([&ids](const CStoredValue& value) { ids.push_back(value.Id()); });
    ids.insert(ids.end(), std::begin(kComputedOfStores), std::end(kComputedOfStores));
    std::sort(ids.begin(), ids.end());
    ids.erase(std::unique(ids.begin(), ids.end()), ids.end());
}

SCODE CMsgStore::MaySet(PropId id) const {
    return std::find(std::begin(kComputedOfStores), std::end(kComputedOfStores), id) !=
                   std::end(kComputedOfStores)
               ? MAPI_E_COMPUTED
               : S_OK;
}

void CMsgStore::ChangeNow(const std::function<void()>& body) {
    Core().Save([&] {
        LoadBag(true);
        body();
        const bool largeChanged = m_bag.LargeChanged();
        const auto blocks = m_bag.Build(m_large);
        Core().Storage().WriteFact(kPropertiesFact, blocks.small);
        if (largeChanged) Core().Storage().WriteFact(kLargePropertiesFact, blocks.large);
    });
}

// --- entries ---------------------------------------------------------------------------------------

HRESULT CMsgStore::OpenEntry(ULONG cb, LPENTRYID id, LPCIID iid, ULONG flags, ULONG* type,
                             LPUNKNOWN* object) {
    return Guarded([&] {
        Require(object, MAPI_E_INVALID_PARAMETER);
        *object = nullptr;
        constexpr ULONG known = MAPI_MODIFY | MAPI_BEST_ACCESS | MAPI_DEFERRED_ERRORS;
        Require((flags & ~known) == 0, MAPI_E_UNKNOWN_FLAGS);
        ObjectId number = kRootFolder;
        if (cb != 0) {
            StoreUid uid;
            Require(ParseEntryId(cb, id, uid, number), MAPI_E_INVALID_ENTRYID);
            Require(uid == Core().Uid(), MAPI_E_UNKNOWN_ENTRYID);
        }
        OpenById(SharedCore(), number, iid, flags, IsWritable(), type, object);
        return S_OK;
    });
}

HRESULT CMsgStore::CompareEntryIDs(ULONG cb1, LPENTRYID id1, ULONG cb2, LPENTRYID id2, ULONG flags,
                                   ULONG* result) {
    return Guarded([&] {
        Require(result, MAPI_E_INVALID_PARAMETER);
        Require(flags == 0, MAPI_E_UNKNOWN_FLAGS);
        *result = SameEntry(cb1, id1, cb2, id2);
        return S_OK;
    });
}

HRESULT CMsgStore::Advise(ULONG cb, LPENTRYID id, ULONG mask, LPMAPIADVISESINK sink, ULONG* connection) {
    return Guarded([&] {
        Require(sink && connection, MAPI_E_INVALID_PARAMETER);
        ObjectId number = 0;
        StoreUid uid;
        if (cb != 0) {
            Require(ParseEntryId(cb, id, uid, number), MAPI_E_INVALID_ENTRYID);
            Require(uid == Core().Uid(), MAPI_E_UNKNOWN_ENTRYID);
            number = Core().Habits().Resolve(Core().Storage(), number, 0);
        }
        *connection = AdviseObject(SharedCore(), number, mask, sink);
        return S_OK;
    });
}

HRESULT CMsgStore::Unadvise(ULONG connection) {
    // Without the lock: whoever ends a connection waits for the notification under way.
    return GuardedCall([&] {
        UnadviseObject(connection);
        return S_OK;
    });
}

// --- receive folders -------------------------------------------------------------------------------

HRESULT CMsgStore::SetReceiveFolder(LPTSTR messageClass, ULONG flags, ULONG cb, LPENTRYID id) {
    return Guarded([&] {
        Require((flags & ~static_cast<ULONG>(MAPI_UNICODE)) == 0, MAPI_E_UNKNOWN_FLAGS);
        RequireWritable();
        const std::string given = Utf8FromArgument(messageClass, flags);
        CheckMessageClass(given);
        const std::string fact = kReceivePrefix + Upper(given);
        if (cb == 0) {
            Require(!given.empty(), MAPI_E_INVALID_PARAMETER);  // mail must arrive somewhere
            Core().Save([&] { Core().Storage().RemoveFact(fact); });
            return S_OK;
        }
        StoreUid uid;
        ObjectId number = 0;
        Require(ParseEntryId(cb, id, uid, number) && uid == Core().Uid(), MAPI_E_INVALID_ENTRYID);
        Require(FolderExists(Core(), number), MAPI_E_NOT_FOUND);
        // The class is kept as it was written, behind the number.
        std::string value(reinterpret_cast<const char*>(&number), sizeof number);
        Core().Save([&] { Core().Storage().WriteFact(fact, value + given); });
        return S_OK;
    });
}

HRESULT CMsgStore::GetReceiveFolder(LPTSTR messageClass, ULONG flags, ULONG* cb, LPENTRYID* id,
                                    LPTSTR* explicitClass) {
    return Guarded([&] {
        Require(cb && id, MAPI_E_INVALID_PARAMETER);
        *cb = 0;
        *id = nullptr;
        if (explicitClass) *explicitClass = nullptr;
        Require((flags & ~static_cast<ULONG>(MAPI_UNICODE)) == 0, MAPI_E_UNKNOWN_FLAGS);
        std::string wanted = Upper(Utf8FromArgument(messageClass, flags));
        CheckMessageClass(wanted);
        ObjectId folder = kInboxFolder;
        std::string found;
        // The longest class that is set and begins the wanted one at a dot.
        for (;;) {
            const auto value = Core().Storage().ReadFact(kReceivePrefix + wanted);
            if (value &&
                FolderExists(Core(), NumberFrom(std::string_view(*value).substr(0, sizeof folder)))) {
                folder = NumberFrom(std::string_view(*value).substr(0, sizeof folder));
                found = value->substr(sizeof folder);
                break;
            }
            if (wanted.empty()) break;
            const std::size_t dot = wanted.rfind('.');
            wanted.resize(dot == std::string::npos ? 0 : dot);
        }
        const StoreEntryId entry = MakeEntryId(Core().Uid(), folder);
        *id = static_cast<LPENTRYID>(CopyBytes(&entry, sizeof entry));
        *cb = sizeof entry;
        if (explicitClass) *explicitClass = GiveText(found, flags);
        return S_OK;
    });
}

HRESULT CMsgStore::GetReceiveFolderTable(ULONG flags, LPMAPITABLE* table) {
    return Guarded([&] {
        Require(table, MAPI_E_INVALID_PARAMETER);
        *table = nullptr;
        Require((flags & ~static_cast<ULONG>(MAPI_UNICODE | MAPI_DEFERRED_ERRORS)) == 0,
                MAPI_E_UNKNOWN_FLAGS);
        std::vector<std::string> rows;
        const auto addRow = [&](ObjectId folder, std::string_view messageClass) {
            const auto number = static_cast<std::uint32_t>(rows.size());
            const StoreEntryId entry = MakeEntryId(Core().Uid(), folder);
            CPropertyBag bag;
            bag.SetText(PROP_ID(PR_MESSAGE_CLASS), messageClass);
            bag.Set(PROP_ID(PR_ENTRYID), PT_BINARY, {reinterpret_cast<const char*>(&entry), sizeof entry});
            bag.Set(PROP_ID(PR_INSTANCE_KEY), PT_BINARY,
                    {reinterpret_cast<const char*>(&number), sizeof number});
            rows.push_back(bag.Build({}).small);
        };
        bool general = false;
        Core().Storage().ScanFacts(kReceivePrefix, [&](std::string_view name, std::string_view value) {
            general = general || name == kReceivePrefix;
            if (value.size() >= sizeof(ObjectId))
                addRow(NumberFrom(value.substr(0, sizeof(ObjectId))), value.substr(sizeof(ObjectId)));
        });
        if (!general) addRow(kInboxFolder, "");
        OpenRowsTable(SharedCore(), std::move(rows), {PR_ENTRYID, PR_MESSAGE_CLASS, PR_INSTANCE_KEY}, flags,
                      table);
        return S_OK;
    });
}

// --- the rest --------------------------------------------------------------------------------------

HRESULT CMsgStore::StoreLogoff(ULONG* flags) {
    return Guarded([&] {
        if (flags) *flags = LOGOFF_COMPLETE;
        Core().CommitGathered();
        return S_OK;
    });
}

// Batches are no calls of the published interfaces, so nobody's faults count them.
template <class Body>
static HRESULT OnBatch(CStoreCore& core, const Body& body) {
    const CStoreLock lock(core);
    return GuardedCall([&] {
        body();
        return S_OK;
    });
}

HRESULT CMsgStore::BeginBatch() {
    return OnBatch(Core(), [&] { Core().BeginBatch(m_batch); });
}

HRESULT CMsgStore::FlushBatch() {
    return OnBatch(Core(), [&] { Core().FlushBatch(m_batch); });
}

HRESULT CMsgStore::FlushToDisk() {
    return OnBatch(Core(), [&] { Core().FlushToDisk(m_batch); });
}

HRESULT CMsgStore::EndBatch() {
    return OnBatch(Core(), [&] { Core().EndBatch(m_batch); });
}

HRESULT CMsgStore::BatchState() {
    const CStoreLock lock(Core());
    return Core().BatchState(m_batch);
}

// --- the file --------------------------------------------------------------------------------------

namespace {

// How a person knows an object; with its number where nothing else can be read of it.
std::string NameOfObject(CStoreCore& core, ObjectId id) {
    try {
        if (IsFolderId(id)) {
            std::string path;
            FolderHead head;
            std::string block;
            ObjectId folder = id;
            for (unsigned depth = 0; folder > kIpmFolder && depth < 100; ++depth, folder = head.parent) {
                if (!core.Storage().ReadFolder(folder, head, block)) break;
                path = "\\" + NameOfFolder(core, folder) + path;
            }
            return "the folder \"" + (path.empty() ? std::string("\\") : path) + "\"";
        }
        MessageHead head;
        std::string block;
        CStoredValue subject;
        if (IsMessageId(id) && core.Storage().ReadMessage(id, head, block) &&
            CValueBlock(block).Find(PROP_ID(PR_SUBJECT), subject))
            return "the message \"" + std::string(subject.Bytes()) + "\" in " +
                   NameOfObject(core, FolderOf(id));
    } catch (const CStoreError&) {
        // It is damaged, which is why it is named.
    }
    return "the object " + std::to_string(id);
}

}  // namespace

HRESULT CMsgStore::Check(Damage* damage, void* context, StoreCheckCounts* counts) {
    return Guarded([&] {
        Require(damage && counts, MAPI_E_INVALID_PARAMETER);
        Core().CommitGathered();
        // Told when the check is over: naming an object reads the store.
        std::vector<StoreDamage> found;
        Core().Storage().Check([&found](const StoreDamage& one) { found.push_back(one); }, *counts);
        for (const StoreDamage& one : found) {
            const std::string text =
                one.object ? NameOfObject(Core(), one.object) + " " + one.text : one.text;
            damage(context, one.kind, text.c_str());
        }
        return S_OK;
    });
}

HRESULT CMsgStore::Compact(ULONGLONG* before, ULONGLONG* after) {
    return Guarded([&] {
        Require(before && after, MAPI_E_INVALID_PARAMETER);
        const auto size = [this] {
            return StampOfFile(Core().Path()).cbSize + StampOfFile(Core().Path() + "-wal").cbSize;
        };
        Core().CommitGathered();
        *before = size();
        Core().Storage().Compact();
        *after = size();
        return S_OK;
    });
}

HRESULT CMsgStore::IsInPlace() {
    return Core().IsInPlace() ? S_OK : MAPI_E_OBJECT_DELETED;
}

HRESULT CMsgStore::BackUp(const char* file) {
    return Guarded([&] {
        Require(file && *file, MAPI_E_INVALID_PARAMETER);
        Core().CommitGathered();
        Core().Storage().BackUp(file);
        return S_OK;
    });
}

void CMsgStore::SetFault(ULONG n, HRESULT hr, BOOL forGood) {
    Core().SetFault(n, hr, forGood != FALSE);
}
