#include "PropObject.h"

#include <algorithm>
#include <deque>

#include <MapiStore/Values/MapiMemory.h>
#include "PropStream.h"

namespace {

constexpr ULONG kWideFlag = MAPI_UNICODE;

// One value to give: found, or the code why not.
struct Given {
    CStoredValue value;
    ULONG tag = 0;
    SCODE code = S_OK;
    bool object = false;
};

bool IsObjectTag(const std::vector<ULONG>& objects, ULONG tag) {
    for (const ULONG object : objects)
        if (PROP_ID(object) == PROP_ID(tag) &&
            (PROP_TYPE(tag) == PT_OBJECT || PROP_TYPE(tag) == PT_UNSPECIFIED))
            return true;
    return false;
}

// Finds what stands for `tag` and under which type it is given. Large values are loaded into `buffers`.
void FindGiven(CPropObject& object, const std::vector<ULONG>& objects, ULONG tag, bool unicode, Given& given,
               std::deque<std::string>& buffers) {
    given.tag = tag;
    const auto id = static_cast<PropId>(PROP_ID(tag));
    if (!object.FindProp(id, given.value)) {
        given.object = IsObjectTag(objects, tag);
        given.tag = PROP_TAG(PT_OBJECT, id);
        given.code = given.object ? S_OK : MAPI_E_NOT_FOUND;
        return;
    }
    const auto type = GivenType(given.value.Type(), PROP_TYPE(tag), unicode);
    if (!type) {
        given.code = MAPI_E_NOT_FOUND;
        return;
    }
    given.tag = PROP_TAG(*type, id);
    if (given.value.Size() > kGetPropsLimit) {
        given.code = MAPI_E_NOT_ENOUGH_MEMORY;
        return;
    }
    if (!given.value.IsLarge()) return;
    buffers.emplace_back();
    if (object.LoadLarge(id, buffers.back()))
        given.value.View(id, given.value.Type(), buffers.back());
    else
        given.code = MAPI_E_NOT_FOUND;
}

void GiveOne(const Given& given, SPropValue& out, char*& room) {
    if (given.code != S_OK) {
        GiveError(given.tag, given.code, out);
    } else if (given.object) {
        out.ulPropTag = given.tag;
        out.dwAlignPad = 0;
        out.Value.li.QuadPart = 0;
    } else {
        GiveValue(given.value, given.tag, false, out, room);
    }
}

template <class Tags>
SPropTagArray* AllocateTags(const Tags& tags) {
    void* block = nullptr;
    Require(AllocateRoot(CbNewSPropTagArray(tags.size() + 1), &block) == S_OK, MAPI_E_NOT_ENOUGH_MEMORY);
    auto* array = static_cast<SPropTagArray*>(block);
    array->cValues = static_cast<ULONG>(tags.size());
    std::copy(tags.begin(), tags.end(), array->aulPropTag);
    return array;
}

}  // namespace

bool NamesId(const SPropTagArray* tags, PropId id) {
    if (!tags) return false;
    for (ULONG i = 0; i < tags->cValues; ++i)
        if (PROP_ID(tags->aulPropTag[i]) == id) return true;
    return false;
}

// --- reading ---------------------------------------------------------------------------------------

std::vector<ULONG> CPropObject::AllTags(bool unicode) {
    std::vector<PropId> ids;
    ListIds(ids);
    std::vector<ULONG> tags;
    tags.reserve(ids.size() + 2);
    CStoredValue value;
    for (const PropId id : ids)
        if (FindProp(id, value))
            tags.push_back(PROP_TAG(*GivenType(value.Type(), PT_UNSPECIFIED, unicode), id));
    ListObjects(tags);
    return tags;
}

HRESULT CPropObject::GetPropsBody(const SPropTagArray* tags, ULONG flags, ULONG* count, SPropValue** values) {
    Require(count && values, MAPI_E_INVALID_PARAMETER);
    *count = 0;
    *values = nullptr;
    Require((flags & ~kWideFlag) == 0, MAPI_E_UNKNOWN_FLAGS);
    Require(!tags || tags->cValues > 0, MAPI_E_INVALID_PARAMETER);
    const bool unicode = (flags & MAPI_UNICODE) != 0;
    std::vector<ULONG> all, objects;
    if (!tags) all = AllTags(unicode);
    ListObjects(objects);
    const ULONG wanted = tags ? tags->cValues : static_cast<ULONG>(all.size());
    const ULONG* list = tags ? tags->aulPropTag : all.data();

    std::vector<Given> given(wanted);
    std::deque<std::string> buffers;
    std::size_t room = wanted * sizeof(SPropValue) + sizeof(SPropValue);
    bool errors = false;
    for (ULONG i = 0; i < wanted; ++i) {
        FindGiven(*this, objects, list[i], unicode, given[i], buffers);
        errors = errors || given[i].code != S_OK;
        if (given[i].code == S_OK && !given[i].object)
            room += RoomFor(given[i].value, static_cast<PropType>(PROP_TYPE(given[i].tag)), false);
    }
    void* block = nullptr;
    Require(AllocateRoot(room, &block) == S_OK, MAPI_E_NOT_ENOUGH_MEMORY);
    auto* out = static_cast<SPropValue*>(block);
    char* next = reinterpret_cast<char*>(out + wanted);
    try {
        for (ULONG i = 0; i < wanted; ++i)
            GiveOne(given[i], out[i], next);
    } catch (...) {
        MAPIFreeBuffer(block);
        throw;
    }
    *count = wanted;
    *values = out;
    return errors ? MAPI_W_ERRORS_RETURNED : S_OK;
}

HRESULT CPropObject::GetPropListBody(ULONG flags, SPropTagArray** tags) {
    Require(tags, MAPI_E_INVALID_PARAMETER);
    *tags = nullptr;
    Require((flags & ~kWideFlag) == 0, MAPI_E_UNKNOWN_FLAGS);
    *tags = AllocateTags(AllTags((flags & MAPI_UNICODE) != 0));
    return S_OK;
}

bool CPropObject::FindWhole(PropId id, CStoredValue& value, std::string& buffer) {
    if (!FindProp(id, value)) return false;
    if (!value.IsLarge()) return true;
    if (!LoadLarge(id, buffer)) return false;
    value.View(id, value.Type(), buffer);
    return true;
}

// --- changing --------------------------------------------------------------------------------------

HRESULT CPropObject::SetPropsBody(ULONG count, const SPropValue* values, SPropProblemArray** problems) {
    if (problems) *problems = nullptr;
    Require(count > 0 && values, MAPI_E_INVALID_PARAMETER);
    RequireWritable();
    std::vector<SPropProblem> found;
    std::string bytes;
    ChangeNow([&] {
        for (ULONG i = 0; i < count; ++i) {
            const ULONG tag = values[i].ulPropTag;
            const auto id = static_cast<PropId>(PROP_ID(tag));
            if (id == PROP_ID_NULL || PROP_TYPE(tag) == PT_NULL) continue;
            SCODE code = MaySet(id);
            PropType type = 0;
            bytes.clear();
            if (code == S_OK && !AppendStored(values[i], bytes, type)) code = MAPI_E_INVALID_TYPE;
            if (code == S_OK)
                SetStored(id, type, bytes);
            else
                found.push_back({i, tag, code});
        }
    });
    GiveProblemList(found, problems);
    return S_OK;
}

HRESULT CPropObject::DeletePropsBody(const SPropTagArray* tags, SPropProblemArray** problems) {
    if (problems) *problems = nullptr;
    Require(tags && tags->cValues > 0, MAPI_E_INVALID_PARAMETER);
    RequireWritable();
    std::vector<SPropProblem> found;
    ChangeNow([&] {
        for (ULONG i = 0; i < tags->cValues; ++i) {
            const auto id = static_cast<PropId>(PROP_ID(tags->aulPropTag[i]));
            CStoredValue value;
            SCODE code = MaySet(id);
            if (code == S_OK && !FindProp(id, value)) code = MAPI_E_NOT_FOUND;
            if (code == S_OK)
                RemoveStored(id);
            else
                found.push_back({i, tags->aulPropTag[i], code});
        }
    });
    GiveProblemList(found, problems);
    return S_OK;
}

void CPropObject::OpenObject(ULONG, REFIID, ULONG, ULONG, IUnknown**) {
    throw CStoreError(MAPI_E_NO_SUPPORT);
}

HRESULT CPropObject::OpenPropertyBody(ULONG tag, const IID* iid, ULONG options, ULONG flags,
                                      IUnknown** object) {
    Require(iid && object, MAPI_E_INVALID_PARAMETER);
    *object = nullptr;
    constexpr ULONG known = MAPI_CREATE | MAPI_MODIFY | MAPI_DEFERRED_ERRORS | STREAM_APPEND | MAPI_UNICODE;
    Require((flags & ~known) == 0, MAPI_E_UNKNOWN_FLAGS);
    if (flags & (MAPI_CREATE | MAPI_MODIFY)) RequireWritable();
    if (*iid == IID_IStream && PROP_TYPE(tag) != PT_OBJECT)
        *object = OpenPropStream(*this, tag, options, flags);
    else
        OpenObject(tag, *iid, options, flags, object);
    return S_OK;
}

// --- named properties ------------------------------------------------------------------------------

namespace {

PropertyName NameFrom(const MAPINAMEID& name) {
    Require(name.lpguid && (name.ulKind == MNID_ID || name.Kind.lpwstrName), MAPI_E_INVALID_PARAMETER);
    PropertyName result;
    result.guid = *name.lpguid;
    result.kind = name.ulKind == MNID_ID ? MNID_ID : MNID_STRING;
    if (result.kind == MNID_ID)
        result.id = name.Kind.lID;
    else
        result.name = Utf8FromWide(name.Kind.lpwstrName);
    return result;
}

// One block with the array of pointers, the structures, the sets and the texts.
MAPINAMEID** AllocateNames(const std::vector<const PropertyName*>& names) {
    std::vector<std::wstring> texts;
    std::size_t cb = sizeof(MAPINAMEID*);
    for (const auto* name : names) {
        texts.push_back(name && name->kind == MNID_STRING ? WideFromUtf8(name->name) : std::wstring());
        cb += sizeof(MAPINAMEID*) + sizeof(MAPINAMEID) + sizeof(GUID) +
              (texts.back().size() + 2) * sizeof(WCHAR);
    }
    void* block = nullptr;
    Require(AllocateRoot(cb, &block) == S_OK, MAPI_E_NOT_ENOUGH_MEMORY);
    auto** pointers = static_cast<MAPINAMEID**>(block);
    auto* structures = reinterpret_cast<MAPINAMEID*>(pointers + names.size());
    auto* sets = reinterpret_cast<GUID*>(structures + names.size());
    auto* text = reinterpret_cast<WCHAR*>(sets + names.size());
    for (std::size_t i = 0; i < names.size(); ++i) {
        pointers[i] = names[i] ? &structures[i] : nullptr;
        if (!names[i]) continue;
        sets[i] = names[i]->guid;
        structures[i].lpguid = &sets[i];
        structures[i].ulKind = names[i]->kind;
        if (names[i]->kind == MNID_ID) {
            structures[i].Kind.lID = names[i]->id;
            continue;
        }
        structures[i].Kind.lpwstrName = text;
        std::copy_n(texts[i].c_str(), texts[i].size() + 1, text);
        text += texts[i].size() + 1;
    }
    return pointers;
}

bool IsWanted(const PropertyName& name, const GUID* set, ULONG flags) {
    if (set && !(name.guid == *set)) return false;
    return name.kind == MNID_ID ? (flags & MAPI_NO_IDS) == 0 : (flags & MAPI_NO_STRINGS) == 0;
}

const PropertyName* NameOrRefresh(CStoreCore& core, PropId id) {
    if (const auto* name = core.Names().NameOf(core.Storage(), id)) return name;
    core.RefreshNames();
    return core.Names().NameOf(core.Storage(), id);
}

}  // namespace

HRESULT CPropObject::GetNamesBody(SPropTagArray** tags, const GUID* set, ULONG flags, ULONG* count,
                                  MAPINAMEID*** names) {
    Require(m_core != nullptr, MAPI_E_NO_SUPPORT);
    Require(tags && count && names, MAPI_E_INVALID_PARAMETER);
    *count = 0;
    *names = nullptr;
    std::vector<const PropertyName*> found;
    std::deque<PropertyName> published;
    bool unknown = false;
    if (*tags) {
        for (ULONG i = 0; i < (*tags)->cValues; ++i) {
            const auto id = static_cast<PropId>(PROP_ID((*tags)->aulPropTag[i]));
            if (id < kFirstNamedId) {
                published.push_back({PS_MAPI, MNID_ID, static_cast<LONG>(id), {}});
                found.push_back(&published.back());
                continue;
            }
            const PropertyName* name = NameOrRefresh(Core(), id);
            if (name && !IsWanted(*name, set, flags)) name = nullptr;
            unknown = unknown || !name;
            found.push_back(name);
        }
        *names = AllocateNames(found);
    } else {
        std::vector<ULONG> ids;
        Core().RefreshNames();
        for (const auto& [id, name] : Core().Names().All(Core().Storage())) {
            if (!IsWanted(name, set, flags)) continue;
            found.push_back(&name);
            ids.push_back(PROP_TAG(PT_UNSPECIFIED, id));
        }
        *names = AllocateNames(found);
        *tags = AllocateTags(ids);
    }
    *count = static_cast<ULONG>(found.size());
    return unknown ? MAPI_W_ERRORS_RETURNED : S_OK;
}

PropId CPropObject::IdForName(const MAPINAMEID& given, bool create) {
    const PropertyName name = NameFrom(given);
    if (name.guid == PS_MAPI && name.kind == MNID_ID)
        return name.id > 0 && name.id < kFirstNamedId ? static_cast<PropId>(name.id) : 0;
    CNameMap& map = Core().Names();
    PropId id = map.IdOf(Core().Storage(), name);
    if (id != 0) return id;
    Core().RefreshNames();
    id = map.IdOf(Core().Storage(), name);
    if (id != 0 || !create) return id;
    return AddName(Core(), name);
}

HRESULT CPropObject::GetIdsBody(ULONG count, MAPINAMEID** names, ULONG flags, SPropTagArray** tags) {
    Require(m_core != nullptr, MAPI_E_NO_SUPPORT);
    Require(tags, MAPI_E_INVALID_PARAMETER);
    *tags = nullptr;
    Require((flags & ~static_cast<ULONG>(MAPI_CREATE)) == 0, MAPI_E_UNKNOWN_FLAGS);
    std::vector<ULONG> ids;
    bool unknown = false;
    if (count == 0 || !names) {
        Core().RefreshNames();
        for (const auto& entry : Core().Names().All(Core().Storage()))
            ids.push_back(PROP_TAG(PT_UNSPECIFIED, entry.first));
    }
    for (ULONG i = 0; names && i < count; ++i) {
        Require(names[i], MAPI_E_INVALID_PARAMETER);
        const PropId id = IdForName(*names[i], (flags & MAPI_CREATE) != 0);
        ids.push_back(PROP_TAG(id ? PT_UNSPECIFIED : PT_ERROR, id));
        unknown = unknown || id == 0;
    }
    *tags = AllocateTags(ids);
    return unknown ? MAPI_W_ERRORS_RETURNED : S_OK;
}

// --- copying ---------------------------------------------------------------------------------------

void CPropObject::CopyAll(const SPropTagArray*, const SPropTagArray*, IUnknown*, ULONG,
                          std::vector<CopyProblem>&) {
    throw CStoreError(MAPI_E_NO_SUPPORT);
}

HRESULT CPropObject::CopyBody(const SPropTagArray* exclude, const SPropTagArray* include, void* target,
                              ULONG flags, SPropProblemArray** problems) {
    return GuardedCall([&] {
        if (problems) *problems = nullptr;
        Require(target, MAPI_E_INVALID_PARAMETER);
        constexpr ULONG known = MAPI_MOVE | MAPI_NOREPLACE | MAPI_DECLINE_OK | MAPI_DIALOG;
        Require((flags & ~known) == 0, MAPI_E_UNKNOWN_FLAGS);
        std::vector<CopyProblem> found;
        CopyAll(exclude, include, static_cast<IUnknown*>(target), flags, found);
        GiveProblems(found, include, problems);
        return S_OK;
    });
}
