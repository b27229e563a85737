#include <MapiWrapper/HexText.h>
#include <Tarn/Engine/WrittenRows.h>

namespace {
enum : ULONG { SHOWN_MODIFIED, SHOWN_SYNC_ID, SHOWN_SUBJECT, SHOWN_DISPLAY_NAME, SHOWN_SEARCH_KEY };

// A table cuts what is longer, and each store cuts it in its own way.
constexpr size_t cbSurelyShown = 250;

bool IsAbsent(const CMapiPropValue& value) {
    return !value.IsNull() && value.IsError() && value.Get()->Value.err == MAPI_E_NOT_FOUND;
}

// False where the table may show something else than the open item.
bool IsShown(const CMapiPropValue& value, ULONG type) {
    if (IsAbsent(value)) return true;
    if (value.Type() != type) return false;
    if (type == PT_BINARY) return value.Binary().cb <= cbSurelyShown;
    return value.Get()->Value.lpszA && std::string_view(value.Get()->Value.lpszA).size() <= cbSurelyShown;
}
}  // namespace

void CWrittenRows::Start(size_t most, ULONG sourceSyncIdTag, ULONG targetSyncIdTag) {
    Drop();
    m_isSure = true;
    m_most = most;
    m_sourceSyncIdTag = sourceSyncIdTag;
    m_targetSyncIdTag = targetSyncIdTag;
}

void CWrittenRows::Drop() {
    m_isSure = false;
    std::vector<CWrittenRow>().swap(m_rows);
    m_byKey.Clear();
}

bool CWrittenRows::Holds(const CItemKeyView& key) const {
    return m_byKey.Find(key.Bytes(), [this](std::uint32_t row) -> std::string_view {
        return m_rows[row].key;
    }) != CFlatIndex::None;
}

// Null, and no notes any more, where there are too many.
CWrittenRow* CWrittenRows::RowFor(const CItemKeyView& key) {
    const auto keyAt = [this](std::uint32_t row) -> std::string_view { return m_rows[row].key; };
    const std::uint32_t known = m_byKey.Find(key.Bytes(), keyAt);
    if (known != CFlatIndex::None) return &m_rows[known];
    if (m_rows.size() >= m_most) {
        Drop();
        return nullptr;
    }
    m_rows.emplace_back().key = key.Bytes();
    m_byKey.Insert(static_cast<std::uint32_t>(m_rows.size() - 1), keyAt);
    return &m_rows.back();
}

bool CWrittenRows::Tell(const CMapiPropValues& values, ULONG syncIdTag, CWrittenRow& row) {
    if (values[SHOWN_MODIFIED].Type() != PT_SYSTIME) return false;
    for (const ULONG text : {SHOWN_SYNC_ID, SHOWN_SUBJECT, SHOWN_DISPLAY_NAME})
        if (!IsShown(values[text], PT_STRING8)) return false;
    if (!IsShown(values[SHOWN_SEARCH_KEY], PT_BINARY)) return false;
    row.time = values[SHOWN_MODIFIED].Time();
    row.syncId = values[SHOWN_SYNC_ID].Tag() == syncIdTag ? values[SHOWN_SYNC_ID].Str()
                                                          : HexFromBinary(values[SHOWN_SEARCH_KEY].Binary());
    const CMapiPropValue name =
        IsAbsent(values[SHOWN_SUBJECT]) ? values[SHOWN_DISPLAY_NAME] : values[SHOWN_SUBJECT];
    row.name = IsAbsent(name) ? std::string() : name.Str();
    return true;
}

FILETIME CWrittenRows::NoteSaved(const IMessagePtr& message, const CItemKeyView& key, bool inSource) {
    const ULONG syncIdTag = SyncIdTag(inSource);
    CMapiPropValues values;
    const HRESULT hr = message.GetPropsHr(
        0, values, {PR_LAST_MODIFICATION_TIME, syncIdTag, PR_SUBJECT_A, PR_DISPLAY_NAME_A, PR_SEARCH_KEY});
    CWrittenRow* row = hr >= 0 ? RowFor(key) : nullptr;
    if (row) row->inSource = inSource;
    if (!row || row->isGone || !Tell(values, syncIdTag, *row)) Drop();
    return hr >= 0 && values[SHOWN_MODIFIED].Type() == PT_SYSTIME ? values[SHOWN_MODIFIED].Time()
                                                                  : FILETIME{};
}

void CWrittenRows::NoteRemoved(const CItemKeyView& key) {
    if (!m_isSure) return;
    if (CWrittenRow* row = RowFor(key)) row->isGone = true;
}
