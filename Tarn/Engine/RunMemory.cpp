// What a run keeps in mind for its end, where it writes the memories of both sides, and what it lets go.
#include <Platform/Clock.h>
#include <Platform/Memory.h>
#include <Tarn/Engine/SyncRun.h>

#include <algorithm>

namespace {
constexpr ULONG ManyRows = 50000;  // tens of megabytes
// Of what the run writes: so much is always noted, and so great a part of large folders.
constexpr ULONG FewRows = 1000;
constexpr ULONG NotedPart = 8;

// Zero where it cannot be had: what the table says at the end of the run stands for it.
FILETIME TimeOfSaved(const IMessagePtr& message) {
    try {
        CMapiPropValue time;
        if (message.GetOneProp(PR_LAST_MODIFICATION_TIME, time) >= 0) return time.Time();
    } catch (const CMAPIException&) {
    }
    return {};
}
}  // namespace

// --- before the copying ----------------------------------------------------------------------------

// While the lists are whole: the copy loops free what is done.
void CSyncRun::MarkRowsOfSides() {
    if (!HasRows()) return;
    m_source.marks = MarkRows(m_source.rows, m_target.changes);
    m_target.marks = MarkRows(m_target.rows, m_source.changes);
}

// A folder that holds what is put aside in the other, or the other itself, changes with it.
bool CSyncRun::LiesInOneStore() const {
    const CMapiBinary source = m_source.folder.GetBinProp(PR_STORE_RECORD_KEY);
    return source.IsEmpty() || source == m_target.folder.GetBinProp(PR_STORE_RECORD_KEY);
}

// What the memories are made of without reading the folders again. Whether an item that was written still
// belongs to the rows of a query, only the store can tell.
void CSyncRun::StartNotes() {
    m_engine.NoteUnsure();
    m_phasesFailedBefore = m_engine.m_outcome.phasesFailed;
    if (!HasRows() || !HasChanges() || m_engine.IsFiltered()) return;
    try {
        if (LiesInOneStore()) return;
        const ULONG most = std::max(FewRows, (m_source.rows.Count() + m_target.rows.Count()) / NotedPart);
        m_engine.m_writtenRows.Start(most, m_engine.TagsOf(m_source.folder.RawProp()).larchId,
                                     m_engine.TagsOf(m_target.folder.RawProp()).larchId);
    } catch (const CMAPIException&) {
        // They are read, then.
    }
}

// --- while copying ---------------------------------------------------------------------------------

void CSyncFolder::NoteWritten(const CItemKeyView& item) {
    m_ownWrites.NoteTarget(item);
}

void CSyncFolder::NoteSaved(const IMessagePtr& message, const CItemKeyView& item, const std::string& syncId,
                            bool inFrom) {
    const FILETIME time = m_writtenRows.IsSure()
                              ? m_writtenRows.NoteSaved(message, item, m_copyToSource != inFrom)
                              : TimeOfSaved(message);
    m_ownWrites.NoteSaved(item, time, syncId);
    if (!inFrom) ForgetUncarried(syncId);
}

bool CSyncFolder::WasWritten(const CItemKeyView& item) const {
    return m_ownWrites.IsTargetOfPass(item);
}

bool CSyncFolder::IsTaken(const CItemKeyView& item) const {
    if (m_ownWrites.IsTarget(item)) return true;
    const auto saved = m_ownWrites.FindSaved(item);
    return (saved && !saved->syncId.empty()) || m_inConflict.count(std::string(item.Bytes())) != 0;
}

// The same second counts as later, whatever the clock of the store.
bool CSyncFolder::MayHideAChange(const FILETIME& time) const {
    constexpr std::uint64_t second = 10'000'000;
    const FILETIME& lastRun = m_copyToSource ? m_sourceRun : m_targetRun;
    const std::uint64_t ticks = TicksOf(time);
    return ticks != 0 && ticks % second == 0 && TicksOf(lastRun) != 0 && ticks + second > TicksOf(lastRun);
}

// --- letting go ------------------------------------------------------------------------------------

// What is behind a run is let go before the next phase makes up its own: together they would take twice
// the room.
void CSyncRun::ForgetTables() {
    m_source.table = IMAPITablePtr();
    m_target.table = IMAPITablePtr();
}

void CSyncRun::ForgetMemories() {
    m_engine.m_sourceData.Clear();
    m_engine.m_targetData.Clear();
}

void CSyncRun::ForgetRows() {
    DropChanges();
    const bool many = HasRows() && m_source.rows.Count() + m_target.rows.Count() > ManyRows;
    if (m_engine.m_outcome.phasesFailed != m_phasesFailedBefore) m_engine.NoteUnsure();
    RememberRows(m_source, true);
    RememberRows(m_target, false);
    m_engine.m_sourceMemory = &m_source.memory;
    m_engine.m_targetMemory = &m_target.memory;
    if (many) ReturnFreeMemory();
}

void CSyncRun::RememberRows(Side& side, bool isSource) {
    if (side.rows.IsValid()) {
        side.memory.image = ImageOfRun(side.rows, m_engine.m_writtenRows, isSource);
        if (side.memory.image)
            ++m_engine.m_notReadAgain;
        else
            side.memory.seen.emplace(side.rows, side.marks, m_engine.m_ownWrites);
    }
    CRowMarks().swap(side.marks);
    side.rows.Free();
}
