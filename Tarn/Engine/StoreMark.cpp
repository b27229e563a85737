// Whether the target's store is the one that the memories tell of, or an older state of it: a backup that was
// brought back, or what a loss of power has left.
//
// A run leaves its time in the target's store, which is on the disk before the memories are, and the memory
// of the target names it. A count of the store's changes would not do: a store that was brought back counts
// on, and may soon have counted further than what is remembered. The memories lie in the source's store and
// go back with it, which is as if the runs since had not been remembered.
#include <MapiWrapper/HexText.h>
#include <Platform/Clock.h>
#include <Platform/Machine.h>
#include <Platform/UserInterface.h>
#include <Platform/Utf8.h>
#include <Tarn/Engine/SyncRun.h>

#include <algorithm>

namespace {
// One mark for each pair and computer, as there are memories. The name is too long for the keys themselves.
std::wstring NameOfMark(const std::string& keys) {
    std::uint64_t hash = 14695981039346656037u;
    for (const char c : keys)
        hash = (hash ^ static_cast<unsigned char>(c)) * 1099511628211u;
    return L"VellumMark." + WideFromUtf8(ComputerName()) + L"." + std::to_wstring(hash);
}

// A store that was brought back gives the entry IDs of what it has lost to what comes then.
bool IsOf(const CSyncFileEntry& entry, const CMapiRowSet& rows, ULONG row) {
    const CMapiPropValue syncId = rows.Cell(row, COL_SYNC_ID);
    if (syncId.Type() == PT_STRING8 && entry.SyncId() == syncId.Str()) return true;
    return entry.SyncId() == HexFromBinary(rows.Cell(row, COL_SEARCH_KEY).Binary());
}

// Of an older state: what the memories say of it is turned back to what is there. An item that the store has
// lost was not deleted by anybody, and one that has an older time was not changed; either is carried again
// from the other side, where it counts as changed.
void TurnBack(CSyncFileMap& own, CSyncFileMap& other, const CMapiRowSet& rows) {
    const auto carryAgain = [&](const CSyncFileEntry& entry) {
        if (CSyncFileEntry* counterpart = other.FindBySyncId(entry.SyncId())) counterpart->time = {};
    };
    own.SetSeen(0);
    for (ULONG row = 0; row < rows.Count(); ++row) {
        CSyncFileEntry* entry = own.FindByItem(KeyOfRow(rows, row));
        if (!entry || !IsOf(*entry, rows, row)) continue;
        entry->seen = 1;
        const FILETIME time = rows.Cell(row, COL_MODIFIED).Time();
        if (CompareFileTimes(time, entry->time) >= 0) continue;
        carryAgain(*entry);
        entry->time = time;
    }
    for (const CSyncFileEntry* entry : own.UnseenInKeyOrder())
        carryAgain(*entry);
    own.ForgetUnseen();
}
}  // namespace

ULONG CSyncRun::TagOfMark() {
    const std::string keys =
        CSyncFolder::PairKeyOf(m_source.folder) + '|' + CSyncFolder::PairKeyOf(m_target.folder);
    return NamedTag(m_target.store.RawProp(), NameOfMark(keys).c_str(), PT_SYSTIME, true);
}

void CSyncRun::CompareMark() {
    if (!m_target.batch.IsOpen()) return;  // a stranger's store is not written to for this
    try {
        CMapiPropValue value;
        const HRESULT hr = m_target.store.GetOneProp(TagOfMark(), value);
        if (hr < 0 && hr != MAPI_E_NOT_FOUND) return;
        const FILETIME found = hr < 0 ? FILETIME{} : value.Time();
        const int order = CompareFileTimes(found, m_engine.m_rememberedMark);
        m_engine.m_targetDiffers = order != 0;
        m_targetIsOlder = order < 0;
    } catch (const CMAPIException&) {
        return;  // nothing is known of it
    }
    if (!m_targetIsOlder) return;
    ShowMessageBox(FormatText(LoadText(TEXT_STORE_IS_OLDER).c_str(), m_target.name.c_str()), "Vellum");
    // What is older than the last run is looked at as well.
    m_engine.m_sourceSyncTime = m_engine.m_targetSyncTime = {};
}

void CSyncRun::TurnMemoriesBack() {
    if (m_targetIsOlder && HasRows()) TurnBack(m_engine.m_targetData, m_engine.m_sourceData, m_target.rows);
}

// A run with nothing to carry remembers as well, or the next ones would find the same difference. Where
// something failed the lists may be empty for another reason.
bool CSyncRun::MustAgreeOnMark() const {
    return m_engine.m_targetDiffers && HasRows() && m_engine.m_outcome.phasesFailed == 0;
}

// Later than the one that is remembered, whatever the clock says.
void CSyncRun::LeaveMark() {
    m_engine.m_thisMark = {};
    if (!m_target.batch.IsOpen()) return;
    try {
        const FILETIME mark = FileTimeOf(std::max(TicksOf(UtcNow()), TicksOf(m_engine.m_rememberedMark) + 1));
        m_target.store.SetProp(TagOfMark(), mark);
        m_engine.m_thisMark = mark;
    } catch (const CMAPIException&) {
        // Then the memories name none.
    }
}
