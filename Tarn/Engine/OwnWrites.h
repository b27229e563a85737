// What a run itself has written so far, by the items' keys. A first run writes each item of
// both sides, so an item costs its two texts and some forty bytes.
#pragma once
#include <Tarn/Engine/FlatIndex.h>
#include <Tarn/Engine/ItemKey.h>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

// Views that it gives hold until the next note.
class COwnWrites {
public:
    struct CSaved {
        FILETIME time;  // behind the last save; zero if it could not be had
        std::string_view syncId;
    };

    void Clear();
    // A copy loop begins: what the former one wrote is nobody's target any more.
    void StartPass() { ++m_pass; }

    void NoteSaved(const CItemKeyView& item, const FILETIME& time, std::string_view syncId);
    // Written or replaced by a copy.
    void NoteTarget(const CItemKeyView& item);
    // Moved out of its folder, where it may still open under its key.
    void NoteRemoved(const CItemKeyView& item) { FindOrAdd(item).isRemoved = true; }

    std::optional<CSaved> FindSaved(const CItemKeyView& item) const;
    bool IsRemoved(const CItemKeyView& item) const;
    bool IsTarget(const CItemKeyView& item) const;
    bool IsTargetOfPass(const CItemKeyView& item) const;

private:
    struct CItem {
        FILETIME time;
        size_t key;     // in m_keys
        size_t syncId;  // in m_syncIds
        std::uint32_t cbKey;
        std::uint32_t cbSyncId;
        std::uint32_t pass;  // the last one in which it was a target; 0: none
        bool isSaved;
        bool isRemoved;
    };
    std::string_view KeyAt(std::uint32_t item) const {
        return std::string_view(m_keys).substr(m_items[item].key, m_items[item].cbKey);
    }
    const CItem* Find(const CItemKeyView& item) const;
    CItem& FindOrAdd(const CItemKeyView& item);

    std::vector<CItem> m_items;
    std::string m_keys;
    std::string m_syncIds;
    CFlatIndex m_byKey;
    std::uint32_t m_pass = 1;
};
