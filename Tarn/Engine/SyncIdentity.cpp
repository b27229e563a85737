#include <Platform/Clock.h>
#include <Platform/Machine.h>
#include <Platform/Utf8.h>
#include <Tarn/Engine/MessageComparison.h>
#include <Tarn/Engine/SyncIdentity.h>
#include <Tarn/Engine/SyncTrace.h>

#include <vector>

namespace {
// For installations in which each computer keeps IDs of its own; nothing switches it on.
constexpr bool SyncIdPerComputer = false;

std::string ReadSyncId(IMessagePtr& message) {
    return message ? message.GetNamedStr(SyncIdName().c_str(), &PS_PUBLIC_STRINGS) : std::string();
}

CSyncTags AskForTags(IMAPIProp* object) {
    CNamedTags names;
    const size_t id = names.Add(SyncIdName().c_str(), PT_STRING8);
    const size_t eid = names.Add(L"LarchEid", PT_BINARY);
    const size_t parent = names.Add(L"LarchParentEid", PT_BINARY);
    const size_t mark = names.Add(L"TarnPriv", PT_LONG);
    const size_t flag = names.Add(0x8506, PT_BOOLEAN, SetCommon);
    const size_t pair = names.Add(L"VellumTarget", PT_BINARY);
    const size_t run = names.Add(L"VellumRun", PT_SYSTIME);
    names.Resolve(object, MAPI_CREATE);
    CNamedTags foreign;
    const size_t location = foreign.Add(0x8208, PT_STRING8, SetAppointment);
    const size_t links = foreign.Add(0x853A, PT_MV_STRING8, SetCommon);
    foreign.Resolve(object, 0);
    return {names.Tag(id),   names.Tag(eid), names.Tag(parent),     names.Tag(mark),   names.Tag(flag),
            names.Tag(pair), names.Tag(run), foreign.Tag(location), foreign.Tag(links)};
}

// Names are numbered alike in all objects that show the same signature; empty where an object shows none.
std::string MappingSignature(IMAPIProp* object) {
    CMapiPropValue value;
    if (HrGetOneProp(object, PR_MAPPING_SIGNATURE, value.Out()) < 0) return {};
    const SBinary signature = value.Binary();
    return std::string(reinterpret_cast<const char*>(signature.lpb), signature.lpb ? signature.cb : 0);
}
}  // namespace

const std::wstring& SyncIdName() {
    static const std::wstring plain = L"LarchID";
    static const std::wstring ofComputer = L"LarchID." + WideFromUtf8(ComputerName());
    return SyncIdPerComputer ? ofComputer : plain;
}

const CSyncTags& CSyncTagCache::TagsOf(IMAPIProp* object) {
    NotNull(object, "CSyncTagCache::TagsOf");
    std::string signature = MappingSignature(object);
    if (signature.empty()) return m_unsigned = AskForTags(object);
    for (const Known& known : m_known)
        if (known.signature == signature) return known.tags;
    const CSyncTags tags = AskForTags(object);
    m_known.push_back({std::move(signature), tags});
    return m_known.back().tags;
}

ULONG NamedTag(IMAPIProp* object, const wchar_t* name, ULONG type, bool create) {
    CNamedTags names;
    const size_t index = names.Add(name, type);
    names.Resolve(object, create ? MAPI_CREATE : 0);
    if (const ULONG tag = names.Tag(index)) return tag;
    throw CMAPIException(MAPI_E_NOT_FOUND, "NamedTag", object);
}

std::string NewSyncIdText() {
    const GUID guid = NewGuid();
    const auto* d = guid.Data4;
    return FormatText("%08x-%04x-%04x-%02d%02d%02d%02d%02d%02d%02d%02d", static_cast<unsigned>(guid.Data1),
                      guid.Data2, guid.Data3, d[0], d[1], d[2], d[3], d[4], d[5], d[6], d[7]);
}

void EnsureSyncId(std::string& syncId) {
    if (syncId.empty()) syncId = NewSyncIdText();
}

void EnsureSyncId(IMessagePtr& message, std::string& syncId) {
    syncId = ReadSyncId(message);
    EnsureSyncId(syncId);
}

// The target's text stands before the source's: a target that is linked elsewhere stays linked there.
void EnsureSyncId(IMessagePtr& target, IMessagePtr& source, std::string& syncId) {
    if (syncId.empty()) syncId = ReadSyncId(target);
    if (syncId.empty()) syncId = ReadSyncId(source);
    EnsureSyncId(syncId);
}

CItemKeyView KeyOfRow(const CMapiRowSet& rows, ULONG row) {
    return KeyOfRow(rows, row, COL_ENTRYID, COL_LONGTERM_ENTRYID);
}

std::string_view LinkOfRow(const CMapiRowSet& rows, ULONG row) {
    const CItemKeyView item = KeyOfRow(rows, row);
    const CMapiPropValue stamp = rows.Cell(row, COL_STAMP);
    const CMapiPropValue syncId = rows.Cell(row, COL_SYNC_ID);
    if (item.IsEmpty() || stamp.Type() != PT_BINARY || !EqualBinary(item, stamp.Binary())) return {};
    if (syncId.Type() != PT_STRING8 || !syncId.Get()->Value.lpszA) return {};
    return syncId.Get()->Value.lpszA;
}

int FindLink(const CMapiRowSet& rows, const std::string& syncId) {
    std::vector<ULONG> found;
    rows.FindRows(COL_SYNC_ID, syncId, found);
    for (const ULONG row : found)
        if (!LinkOfRow(rows, row).empty()) return static_cast<int>(row);
    return -1;
}

bool IsLinkedWithin(const CMapiRowSet& rows, ULONG row, const CMapiRowSet& others) {
    const std::string_view link = LinkOfRow(rows, row);
    return !link.empty() && FindLink(others, std::string(link)) >= 0;
}
