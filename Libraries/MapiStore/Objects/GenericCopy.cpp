#include "GenericCopy.h"

#include <algorithm>
#include <string>

#include <MapiStore/Storage/WellKnown.h>
#include <MapiStore/Values/MapiMemory.h>
#include <MapiStore/Values/StoreError.h>
#include <MapiStore/Values/UnknownImpl.h>

namespace {

constexpr unsigned kDeepest = 32;

struct FreeBuffer {
    void operator()(void* block) const { MAPIFreeBuffer(block); }
};
template <class T>
using MapiPtr = std::unique_ptr<T, FreeBuffer>;

struct Choice {
    const SPropTagArray* exclude;
    const SPropTagArray* include;
    bool keep;  // MAPI_NOREPLACE

    static bool Names(const SPropTagArray* tags, ULONG id) {
        for (ULONG i = 0; tags && i < tags->cValues; ++i)
            if (PROP_ID(tags->aulPropTag[i]) == id) return true;
        return false;
    }
    bool Wants(ULONG id) const { return include ? Names(include, id) : !Names(exclude, id); }
};

// What describes the object's place or is given by its store never travels.
bool StaysBehind(ULONG tag, bool named) {
    constexpr ULONG kStaying[] = {PR_ENTRYID,
                                  PR_RECORD_KEY,
                                  PR_INSTANCE_KEY,
                                  PR_PARENT_ENTRYID,
                                  PR_STORE_ENTRYID,
                                  PR_STORE_RECORD_KEY,
                                  PR_MAPPING_SIGNATURE,
                                  PR_OBJECT_TYPE,
                                  PR_HASATTACH,
                                  PR_MESSAGE_SIZE,
                                  PR_MSG_STATUS,
                                  PR_DISPLAY_TO,
                                  PR_DISPLAY_CC,
                                  PR_DISPLAY_BCC,
                                  PR_ACCESS,
                                  PR_ACCESS_LEVEL,
                                  PR_STORE_SUPPORT_MASK,
                                  PR_MDB_PROVIDER,
                                  PR_ROW_TYPE,
                                  PR_NORMALIZED_SUBJECT,
                                  PR_ATTACH_NUM,
                                  PR_ATTACH_SIZE,
                                  PR_LONGTERM_ENTRYID_FROM_TABLE};
    if (PROP_TYPE(tag) == PT_OBJECT || PROP_TYPE(tag) == PT_ERROR) return true;
    if (!named &&
        (PROP_ID(tag) == PROP_ID(PR_CREATION_TIME) || PROP_ID(tag) == PROP_ID(PR_LAST_MODIFICATION_TIME)))
        return true;
    return std::any_of(std::begin(kStaying), std::end(kStaying),
                       [tag](ULONG other) { return PROP_ID(other) == PROP_ID(tag); });
}

// The tags of the source that a copy takes, and what they are called in the target (0: no name).
struct TagPair {
    ULONG from, to;
};

void MapNamed(IMAPIProp* source, IMAPIProp* target, std::vector<TagPair>& tags) {
    std::vector<ULONG> asked(1, 0);
    for (const TagPair& pair : tags)
        if (PROP_ID(pair.from) >= 0x8000) asked.push_back(pair.from);
    asked[0] = static_cast<ULONG>(asked.size() - 1);
    if (asked[0] == 0) return;
    auto* list = reinterpret_cast<SPropTagArray*>(asked.data());
    ULONG count = 0;
    MAPINAMEID** rawNames = nullptr;
    if (FAILED(source->GetNamesFromIDs(&list, nullptr, 0, &count, &rawNames)) || count != asked[0]) return;
    const MapiPtr<MAPINAMEID*> names(rawNames);
    std::size_t i = 0;
    for (TagPair& pair : tags) {
        if (PROP_ID(pair.from) < 0x8000) continue;
        MAPINAMEID* name = rawNames[i++];
        pair.to = 0;
        SPropTagArray* rawIds = nullptr;
        if (!name || FAILED(target->GetIDsFromNames(1, &name, MAPI_CREATE, &rawIds)) || !rawIds) continue;
        const MapiPtr<SPropTagArray> ids(rawIds);
        if (PROP_TYPE(ids->aulPropTag[0]) != PT_ERROR)
            pair.to = PROP_TAG(PROP_TYPE(pair.from), PROP_ID(ids->aulPropTag[0]));
    }
}

std::vector<TagPair> TagsToCopy(IMAPIProp* source, IMAPIProp* target, const Choice& choice,
                                std::vector<CopyProblem>& problems) {
    SPropTagArray* raw = nullptr;
    const HRESULT hr = source->GetPropList(0, &raw);
    if (FAILED(hr)) throw CStoreError(hr);
    const MapiPtr<SPropTagArray> all(raw);
    std::vector<TagPair> tags;
    for (ULONG i = 0; i < all->cValues; ++i) {
        ULONG tag = all->aulPropTag[i];
        // Text goes wide: nothing is lost to the code page.
        if (PROP_TYPE(tag) == PT_STRING8) tag = CHANGE_PROP_TYPE(tag, PT_UNICODE);
        if (PROP_TYPE(tag) == PT_MV_STRING8) tag = CHANGE_PROP_TYPE(tag, PT_MV_UNICODE);
        if (!choice.Wants(PROP_ID(tag))) continue;
        if (!StaysBehind(tag, choice.include != nullptr))
            tags.push_back({tag, tag});
        else if (choice.include && PROP_TYPE(tag) != PT_OBJECT)
            problems.push_back({tag, MAPI_E_COMPUTED});  // asked for by name
    }
    MapNamed(source, target, tags);
    return tags;
}

HRESULT CopyByStream(IMAPIProp* source, IMAPIProp* target, const TagPair& pair) {
    CRef<IStream> from, to;
    HRESULT hr =
        source->OpenProperty(pair.from, &IID_IStream, 0, 0, reinterpret_cast<IUnknown**>(from.Out()));
    if (FAILED(hr)) return hr;
    hr = target->OpenProperty(pair.to, &IID_IStream, STGM_READWRITE, MAPI_CREATE | MAPI_MODIFY,
                              reinterpret_cast<IUnknown**>(to.Out()));
    if (FAILED(hr)) return hr;
    std::string buffer(64 * 1024, 0);
    for (;;) {
        ULONG read = 0, written = 0;
        hr = from->Read(buffer.data(), static_cast<ULONG>(buffer.size()), &read);
        if (FAILED(hr)) return hr;
        if (read == 0) return to->Commit(0);
        hr = to->Write(buffer.data(), read, &written);
        if (FAILED(hr)) return hr;
    }
}

bool AlreadyThere(IMAPIProp* target, ULONG tag) {
    SPropTagArray one = {1, {CHANGE_PROP_TYPE(tag, PT_UNSPECIFIED)}};
    ULONG count = 0;
    SPropValue* raw = nullptr;
    if (FAILED(target->GetProps(&one, 0, &count, &raw))) return false;
    const MapiPtr<SPropValue> value(raw);
    return PROP_TYPE(raw->ulPropTag) != PT_ERROR || raw->Value.err == MAPI_E_NOT_ENOUGH_MEMORY;
}

// Reads all the tags in one call, writes what came in another, and the large ones by stream.
void CopyProperties(IMAPIProp* source, IMAPIProp* target, const Choice& choice,
                    std::vector<CopyProblem>& problems) {
    const auto tags = TagsToCopy(source, target, choice, problems);
    if (tags.empty()) return;
    std::vector<ULONG> asked(1, static_cast<ULONG>(tags.size()));
    for (const TagPair& pair : tags)
        asked.push_back(pair.from);
    ULONG count = 0;
    SPropValue* raw = nullptr;
    HRESULT hr = source->GetProps(reinterpret_cast<SPropTagArray*>(asked.data()), 0, &count, &raw);
    if (FAILED(hr)) throw CStoreError(hr);
    const MapiPtr<SPropValue> held(raw);
    std::vector<SPropValue> values;
    for (ULONG i = 0; i < count; ++i) {
        SPropValue value = raw[i];
        if (tags[i].to == 0) {
            problems.push_back({tags[i].from, MAPI_E_NOT_FOUND});
        } else if (choice.keep && AlreadyThere(target, tags[i].to)) {
            continue;
        } else if (PROP_TYPE(value.ulPropTag) != PT_ERROR) {
            value.ulPropTag = PROP_TAG(PROP_TYPE(value.ulPropTag), PROP_ID(tags[i].to));
            values.push_back(value);
        } else if (value.Value.err == MAPI_E_NOT_ENOUGH_MEMORY) {
            hr = CopyByStream(source, target, tags[i]);
            if (FAILED(hr)) problems.push_back({tags[i].from, hr});
        } else {
            problems.push_back({tags[i].from, value.Value.err});
        }
    }
    if (values.empty()) return;
    SPropProblemArray* found = nullptr;
    hr = target->SetProps(static_cast<ULONG>(values.size()), values.data(), &found);
    if (FAILED(hr)) throw CStoreError(hr);
    const MapiPtr<SPropProblemArray> freed(found);
    for (ULONG i = 0; found && i < found->cProblem; ++i)
        problems.push_back({found->aProblem[i].ulPropTag, found->aProblem[i].scode});
}

// --- recipients ------------------------------------------------------------------------------------

void CopyRecipients(IMessage* source, IMessage* target) {
    CRef<IMAPITable> table;
    HRESULT hr = source->GetRecipientTable(MAPI_UNICODE, table.Out());
    if (FAILED(hr)) throw CStoreError(hr);
    CRef<IMAPITable> present;
    ULONG had = 0;
    if (SUCCEEDED(target->GetRecipientTable(0, present.Out()))) present->GetRowCount(0, &had);
    SPropTagArray* columns = nullptr;
    if (SUCCEEDED(table->QueryColumns(TBL_ALL_COLUMNS, &columns)) && columns) {
        const MapiPtr<SPropTagArray> held(columns);
        table->SetColumns(columns, 0);
    }
    SRowSet* rows = nullptr;
    hr = HrQueryAllRows(table.Get(), nullptr, nullptr, nullptr, 0, &rows);
    if (FAILED(hr)) throw CStoreError(hr);
    // A row set and an address list have the same layout.
    if (rows->cRows > 0 || had > 0) hr = target->ModifyRecipients(0, reinterpret_cast<ADRLIST*>(rows));
    FreeProws(rows);
    if (FAILED(hr)) throw CStoreError(hr);
}

// --- attachments -----------------------------------------------------------------------------------

void CopyMessageParts(IMessage* source, IMessage* target, const Choice& choice,
                      std::vector<CopyProblem>& problems, unsigned depth);

void CopyEmbedded(IAttach* source, IAttach* target, std::vector<CopyProblem>& problems, unsigned depth) {
    CRef<IMessage> from, to;
    HRESULT hr = source->OpenProperty(PR_ATTACH_DATA_OBJ, &IID_IMessage, 0, 0,
                                      reinterpret_cast<IUnknown**>(from.Out()));
    if (FAILED(hr)) return;
    hr = depth < kDeepest
             ? target->OpenProperty(PR_ATTACH_DATA_OBJ, &IID_IMessage, 0, MAPI_CREATE | MAPI_MODIFY,
                                    reinterpret_cast<IUnknown**>(to.Out()))
             : MAPI_E_TOO_COMPLEX;
    if (FAILED(hr)) {
        problems.push_back({PR_ATTACH_DATA_OBJ, hr});
        return;
    }
    CopyMessageParts(from.Get(), to.Get(), {nullptr, nullptr, false}, problems, depth + 1);
    hr = to->SaveChanges(KEEP_OPEN_READWRITE);
    if (FAILED(hr)) problems.push_back({PR_ATTACH_DATA_OBJ, hr});
}

void CopyAttachmentParts(IAttach* source, IAttach* target, const Choice& choice,
                         std::vector<CopyProblem>& problems, unsigned depth) {
    CopyProperties(source, target, choice, problems);
    if (choice.Wants(PROP_ID(PR_ATTACH_DATA_OBJ))) CopyEmbedded(source, target, problems, depth);
}

void CopyOneAttachment(IMessage* source, IMessage* target, ULONG number, std::vector<CopyProblem>& problems,
                       unsigned depth) {
    CRef<IAttach> from, to;
    HRESULT hr = source->OpenAttach(number, nullptr, 0, from.Out());
    ULONG created = 0;
    if (SUCCEEDED(hr)) hr = target->CreateAttach(nullptr, 0, &created, to.Out());
    if (SUCCEEDED(hr)) {
        CopyAttachmentParts(from.Get(), to.Get(), {nullptr, nullptr, false}, problems, depth);
        hr = to->SaveChanges(0);
    }
    if (FAILED(hr)) problems.push_back({PR_MESSAGE_ATTACHMENTS, hr});
}

void CopyAttachments(IMessage* source, IMessage* target, std::vector<CopyProblem>& problems, unsigned depth) {
    CRef<IMAPITable> table;
    HRESULT hr = source->GetAttachmentTable(0, table.Out());
    if (FAILED(hr)) throw CStoreError(hr);
    SPropTagArray columns = {1, {PR_ATTACH_NUM}};
    SRowSet* rows = nullptr;
    hr = HrQueryAllRows(table.Get(), &columns, nullptr, nullptr, 0, &rows);
    if (FAILED(hr)) throw CStoreError(hr);
    std::vector<ULONG> numbers;
    for (ULONG i = 0; i < rows->cRows; ++i)
        if (rows->aRow[i].lpProps[0].ulPropTag == PR_ATTACH_NUM)
            numbers.push_back(static_cast<ULONG>(rows->aRow[i].lpProps[0].Value.l));
    FreeProws(rows);
    for (const ULONG number : numbers)
        CopyOneAttachment(source, target, number, problems, depth);
}

void CopyMessageParts(IMessage* source, IMessage* target, const Choice& choice,
                      std::vector<CopyProblem>& problems, unsigned depth) {
    CopyProperties(source, target, choice, problems);
    if (choice.Wants(PROP_ID(PR_MESSAGE_RECIPIENTS))) CopyRecipients(source, target);
    if (choice.Wants(PROP_ID(PR_MESSAGE_ATTACHMENTS))) CopyAttachments(source, target, problems, depth);
}

}  // namespace

void CopyAnyMessage(IMessage* source, IMessage* target, const SPropTagArray* exclude,
                    const SPropTagArray* include, ULONG flags, std::vector<CopyProblem>& problems) {
    CopyMessageParts(source, target, {exclude, include, (flags & MAPI_NOREPLACE) != 0}, problems, 0);
}

void CopyAnyAttachment(IAttach* source, IAttach* target, const SPropTagArray* exclude,
                       const SPropTagArray* include, ULONG flags, std::vector<CopyProblem>& problems) {
    CopyAttachmentParts(source, target, {exclude, include, (flags & MAPI_NOREPLACE) != 0}, problems, 0);
}

void CopyAnyProperties(IMAPIProp* source, IMAPIProp* target, const SPropTagArray* exclude,
                       const SPropTagArray* include, ULONG flags, std::vector<CopyProblem>& problems) {
    CopyProperties(source, target, {exclude, include, (flags & MAPI_NOREPLACE) != 0}, problems);
}

void GiveProblemList(const std::vector<SPropProblem>& problems, SPropProblemArray** out) {
    if (!out || problems.empty()) return;
    void* block = nullptr;
    Require(AllocateRoot(CbNewSPropProblemArray(problems.size()), &block) == S_OK, MAPI_E_NOT_ENOUGH_MEMORY);
    *out = static_cast<SPropProblemArray*>(block);
    (*out)->cProblem = static_cast<ULONG>(problems.size());
    std::copy(problems.begin(), problems.end(), (*out)->aProblem);
}

void GiveProblems(const std::vector<CopyProblem>& problems, const SPropTagArray* asked,
                  SPropProblemArray** out) {
    std::vector<SPropProblem> list;
    for (const CopyProblem& problem : problems) {
        ULONG index = static_cast<ULONG>(list.size());
        for (ULONG i = 0; asked && i < asked->cValues; ++i)
            if (PROP_ID(asked->aulPropTag[i]) == PROP_ID(problem.tag)) index = i;
        list.push_back({index, problem.tag, problem.code});
    }
    GiveProblemList(list, out);
}
