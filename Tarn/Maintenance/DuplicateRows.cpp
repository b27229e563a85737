#include <MapiWrapper/NamedTags.h>
#include <Tarn/Engine/SyncIdentity.h>
#include <Tarn/Engine/SyncTrace.h>
#include <Tarn/Maintenance/DuplicateRows.h>

#include <vector>

namespace {
enum Column : ULONG {
    ROW_ENTRYID,
    ROW_MODIFIED,
    ROW_DISPLAY_NAME,
    ROW_SUBJECT,
    ROW_SEARCH_KEY,
    ROW_LONGTERM_ENTRYID,
    ROW_SYNC_ID,  // the last two only with links, and where the store knows their names
    ROW_STAMP,
};

// A look must not create names, so a store that no run has been in has no links.
void AddLinkColumns(const IMAPIFolderPtr& folder, std::vector<ULONG>& columns) {
    CNamedTags names;
    const size_t syncId = names.Add(SyncIdName().c_str(), PT_STRING8);
    const size_t stamp = names.Add(L"LarchEid", PT_BINARY);
    names.Resolve(folder, 0);
    if (!names.Tag(syncId) || !names.Tag(stamp)) return;
    columns.push_back(names.Tag(syncId));
    columns.push_back(names.Tag(stamp));
}
}  // namespace

void CDuplicateRows::Read(const IMAPIFolderPtr& folder, bool links) {
    m_kept.clear();
    std::vector<ULONG> columns = {PR_ENTRYID,        PR_LAST_MODIFICATION_TIME,
                                  PR_DISPLAY_NAME_A, PR_SUBJECT_A,
                                  PR_SEARCH_KEY,     PR_LONGTERM_ENTRYID_FROM_TABLE};
    if (links) AddLinkColumns(folder, columns);
    SizedSSortOrderSet(2, order) = {
        2, 0, 0, {{PR_SEARCH_KEY, TABLE_SORT_ASCEND}, {PR_LAST_MODIFICATION_TIME, TABLE_SORT_DESCEND}}};
    const IMAPITablePtr table = folder._rawContentsTable();
    THROW_ON_FAILURE_FOR(
        table.QueryAllWithRestriction(nullptr, reinterpret_cast<SSortOrderSet*>(&order), m_rows, columns),
        table.Get());
}

SBinary CDuplicateRows::KeyOf(ULONG row) const {
    return m_rows.Cell(row, ROW_SEARCH_KEY).Binary();
}

FILETIME CDuplicateRows::TimeOf(ULONG row) const {
    return m_rows.Cell(row, ROW_MODIFIED).Time();
}

ULONG CDuplicateRows::EndOfGroup(ULONG first) const {
    const SBinary key = KeyOf(first);
    ULONG end = first + 1;
    if (BytesOf(key).empty()) return end;
    while (end < Count() && EqualBinary(KeyOf(end), key))
        ++end;
    return end;
}

// Also where a store sorts by one column only.
ULONG CDuplicateRows::NewestOf(const CGroup& group) const {
    ULONG newest = group.first;
    for (ULONG row = group.first + 1; row < group.end; ++row)
        if (CompareFileTimes(TimeOf(row), TimeOf(newest)) > 0) newest = row;
    return newest;
}

ULONG CDuplicateRows::KeptOf(ULONG first, ULONG end) const {
    const auto found = m_kept.find(first);
    return found != m_kept.end() ? found->second : NewestOf({first, end});
}

CItemKeyView CDuplicateRows::ItemOf(ULONG row) const {
    return KeyOfRow(m_rows, row, ROW_ENTRYID, ROW_LONGTERM_ENTRYID);
}

std::string CDuplicateRows::NameOf(ULONG row) const {
    const CMapiPropValue subject = m_rows.Cell(row, ROW_SUBJECT);
    return (subject.IsError() ? m_rows.Cell(row, ROW_DISPLAY_NAME) : subject).Str();
}

void CDuplicateRows::Forget(ULONG row) {
    for (const Column column : {ROW_ENTRYID, ROW_LONGTERM_ENTRYID}) {
        const CMapiPropValue cell = m_rows.Cell(row, column);
        if (cell.Type() == PT_BINARY) cell.Get()->Value.bin.cb = 0;
    }
}

// --- both sides of a pair ---------------------------------------------------------------------------

// A copy bears the stamp of its original, which links the original alone.
std::string CDuplicateRows::LinkOf(ULONG row) const {
    const SBinary stamp = m_rows.Cell(row, ROW_STAMP).Binary();
    const CItemKeyView item = ItemOf(row);
    if (item.IsEmpty() || !EqualBinary(stamp, item)) return {};
    return m_rows.Cell(row, ROW_SYNC_ID).Str();
}

ULONG CDuplicateRows::FindLink(const CGroup& group, const std::string& link) const {
    ULONG row = group.first;
    while (row < group.end && (link.empty() || LinkOf(row) != link))
        ++row;
    return row;
}

std::unordered_map<std::string_view, CDuplicateRows::CGroup> CDuplicateRows::Groups() const {
    std::unordered_map<std::string_view, CGroup> groups;
    for (ULONG first = 0, end; first < Count(); first = end) {
        end = EndOfGroup(first);
        if (const std::string_view key = BytesOf(KeyOf(first)); !key.empty()) groups[key] = {first, end};
    }
    return groups;
}

ULONG CDuplicateRows::NewestLinked(const CGroup& group, const CDuplicateRows& other,
                                   const CGroup& ofOther) const {
    ULONG newest = group.end;
    for (ULONG row = group.first; row < group.end; ++row) {
        if (other.FindLink(ofOther, LinkOf(row)) == ofOther.end) continue;
        if (newest == group.end || CompareFileTimes(TimeOf(row), TimeOf(newest)) > 0) newest = row;
    }
    return newest;
}

// An item without a link is new to the next run, which carries it whatever stays there.
void CDuplicateRows::AgreeWith(CDuplicateRows& other, const CGroup& group, const CGroup& ofOther) {
    ULONG kept = NewestOf(group);
    if (LinkOf(kept).empty()) return;
    if (other.FindLink(ofOther, LinkOf(kept)) == ofOther.end) kept = NewestLinked(group, other, ofOther);
    if (kept == group.end) return;
    m_kept[group.first] = kept;
    other.m_kept[ofOther.first] = other.FindLink(ofOther, LinkOf(kept));
}

void AgreeOnKept(CDuplicateRows& source, CDuplicateRows& target) {
    const auto targets = target.Groups();
    for (const auto& [key, ofSource] : source.Groups()) {
        const auto found = targets.find(key);
        if (found == targets.end()) continue;
        const CDuplicateRows::CGroup ofTarget = found->second;
        if (ofSource.Count() + ofTarget.Count() == 2) continue;
        const FILETIME here = source.TimeOf(source.NewestOf(ofSource));
        if (CompareFileTimes(here, target.TimeOf(target.NewestOf(ofTarget))) >= 0)
            source.AgreeWith(target, ofSource, ofTarget);
        else
            target.AgreeWith(source, ofTarget, ofSource);
    }
}

void KeepLinked(CDuplicateRows& rows, const CDuplicateRows& partner) {
    const auto partners = partner.Groups();
    for (const auto& [key, group] : rows.Groups()) {
        const auto found = partners.find(key);
        if (found == partners.end() || group.Count() == 1) continue;
        const std::string link = rows.LinkOf(rows.KeptOf(group.first, group.end));
        if (link.empty() || partner.FindLink(found->second, link) < found->second.end) continue;
        const ULONG linked = rows.NewestLinked(group, partner, found->second);
        if (linked < group.end) rows.m_kept[group.first] = linked;
    }
}
