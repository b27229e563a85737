// The messages that comparisons opened last, with the values that a comparison needs.
#pragma once
#include <MapiWrapper/MapiWrapper.h>
#include <Tarn/Engine/MessageComparison.h>

#include <array>
#include <memory>
#include <string>

struct CMessageCacheEntry {
    // Reads the message's values in one call. Where the store refuses, the entry stays as it was. A
    // value that is not there leaves its field empty, but for the name and the body, which have other
    // places to come from. The sync ID always stays empty.
    void Fill();
    // The values of a tag list, in its order, read at the first use and kept until another list is
    // asked for; null where the store refuses. The entry stays the owner. Throws where a name cannot
    // be resolved.
    const SPropValue* GetNamedValues(const PropCompareEntry* list);
    ULONG ValueCount() const { return m_values.Count(); }

    const PropCompareEntry* m_tagList = nullptr;  // what m_values belongs to
    ULONG m_syncIdTag = 0;
    std::string m_name;  // PR_DISPLAY_NAME_A, else PR_SUBJECT_A, else the title
    std::string m_body;
    std::string m_syncId;
    std::string m_class;
    std::string m_bcc;
    std::string m_cc;
    std::string m_to;
    std::string m_senderName;
    std::string m_senderAddrType;
    std::string m_senderAddress;
    LONG m_importance = 0;
    LONG m_hasAttach = 0;
    std::string m_key;  // PR_ENTRYID in hexadecimal
    IMessagePtr m_message;
    CMapiPropValues m_values;
};

// A ring of twenty entries of which a search sees nineteen: the newest one in the last slot is opened
// again when it is asked for. Entries of a folder bound before stay until the ring comes round. Used by
// the thread of its CSyncFolder alone.
class CMessageCache {
public:
    static constexpr int Capacity = 20;

    CMessageCache() = default;
    virtual ~CMessageCache() = default;
    CMessageCache(const CMessageCache&) = delete;
    CMessageCache& operator=(const CMessageCache&) = delete;

    // The folder in which entries are opened from now on. Throws where the name of the sync ID cannot
    // be had.
    void Bind(const IMAPIFolderPtr& folder);
    // The entry of that message, opened at need; null where it does not open. Owned by the cache and
    // good until the next Lookup, Add, Remove or Clear. Throws where filling a new entry does.
    CMessageCacheEntry* Lookup(const SBinary& entryId);
    CMessageCacheEntry* Find(const std::string& key) const;  // null if there is none
    void Add(std::unique_ptr<CMessageCacheEntry> entry);
    void Remove(const std::string& key) noexcept;
    void Clear();

private:
    std::array<std::unique_ptr<CMessageCacheEntry>, Capacity> m_slots;
    int m_next = 0;  // the slot that the next entry takes
    int m_used = 0;  // the slots that a search looks at
    ULONG m_syncIdTag = 0;
    IMAPIFolderPtr m_folder;
};

// 1 if class, recipients, attachment flag, importance and sender are all equal, else 0.
int CompareScalarFields(const CMessageCacheEntry& a, const CMessageCacheEntry& b);
// Always 0, at a difference and at the end alike: appointments take part in no match over the cache.
int CompareCachedNamed(CMessageCacheEntry& a, const PropCompareEntry* list, CMessageCacheEntry& b);
