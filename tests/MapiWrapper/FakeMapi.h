// Small objects that stand for those of a store: they count references, keep properties in a map, and fail on
// request. A method that no test needs answers MAPI_E_NO_SUPPORT.
#pragma once
#include <MapiWrapper/MapiWrapper.h>
#include <MapiWrapper/MapiWrapper_std.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <map>
#include <string>
#include <vector>

#pragma GCC diagnostic ignored "-Wunused-parameter"

#define FAKE_NOT_NEEDED                                 \
    override {                                          \
        return static_cast<HRESULT>(MAPI_E_NO_SUPPORT); \
    }

namespace fakes {

// Objects alive, over all kinds. A test compares it before and after.
inline int g_liveFakes = 0;

// Counts references; created with one, which belongs to the maker.
template <class Interface>
class CFakeUnknown : public Interface {
public:
    CFakeUnknown() { ++g_liveFakes; }
    virtual ~CFakeUnknown() { --g_liveFakes; }
    CFakeUnknown(const CFakeUnknown&) = delete;
    CFakeUnknown& operator=(const CFakeUnknown&) = delete;

    ULONG STDMETHODCALLTYPE AddRef() override { return ++m_references; }
    ULONG STDMETHODCALLTYPE Release() override {
        const ULONG left = --m_references;
        if (left == 0) delete this;
        return left;
    }
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** out) override {
        ++queries;
        *out = nullptr;
        if (iid != IID_IUnknown && !Offers(iid)) return static_cast<HRESULT>(E_NOINTERFACE);
        *out = static_cast<Interface*>(this);
        AddRef();
        return S_OK;
    }
    virtual bool Offers(const IID& iid) const { return false; }
    ULONG References() const { return m_references; }
    int queries = 0;

private:
    ULONG m_references = 1;
};

// --- streams -----------------------------------------------------------------------------------------

// Bytes shared between a property and its streams.
struct CFakeBytes {
    std::string bytes;
    ULONG cbPortion = 0xFFFFFFFF;  // most that one call reads or writes
    bool endless = false;          // reads never end
    HRESULT readResult = S_OK;
    HRESULT writeResult = S_OK;
    ULONG cbStat = 0;           // what Stat claims beyond the bytes there
    std::vector<ULONG> writes;  // sizes of the Write calls
    int commits = 0;
};

class CFakeStream : public CFakeUnknown<IStream> {
public:
    explicit CFakeStream(CFakeBytes& bytes) : m_data(bytes) {}
    bool Offers(const IID& iid) const override { return iid == IID_IStream || iid == IID_ISequentialStream; }
    HRESULT STDMETHODCALLTYPE Read(void* out, ULONG cb, ULONG* read) override {
        *read = 0;
        if (m_data.readResult < 0) return m_data.readResult;
        if (m_data.endless) {
            std::memset(out, 'x', cb);
            *read = cb;
            return S_OK;
        }
        const size_t left = m_data.bytes.size() - m_at;
        *read = static_cast<ULONG>(std::min<size_t>({cb, left, m_data.cbPortion}));
        std::memcpy(out, m_data.bytes.data() + m_at, *read);
        m_at += *read;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE Write(const void* in, ULONG cb, ULONG* written) override {
        m_data.writes.push_back(cb);
        *written = 0;
        if (m_data.writeResult != S_OK) return m_data.writeResult;
        *written = std::min(cb, m_data.cbPortion);
        m_data.bytes.append(static_cast<const char*>(in), *written);
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE Commit(DWORD) override {
        ++m_data.commits;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE Stat(STATSTG* stat, DWORD) override {
        std::memset(stat, 0, sizeof *stat);
        stat->cbSize.QuadPart = m_data.bytes.size() + m_data.cbStat;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE Seek(LARGE_INTEGER, DWORD,
                                   ULARGE_INTEGER*) FAKE_NOT_NEEDED HRESULT STDMETHODCALLTYPE
        SetSize(ULARGE_INTEGER) FAKE_NOT_NEEDED HRESULT STDMETHODCALLTYPE
        CopyTo(IStream*, ULARGE_INTEGER, ULARGE_INTEGER*,
               ULARGE_INTEGER*) FAKE_NOT_NEEDED HRESULT STDMETHODCALLTYPE
        Revert() FAKE_NOT_NEEDED HRESULT STDMETHODCALLTYPE
        LockRegion(ULARGE_INTEGER, ULARGE_INTEGER, DWORD) FAKE_NOT_NEEDED HRESULT STDMETHODCALLTYPE
        UnlockRegion(ULARGE_INTEGER, ULARGE_INTEGER, DWORD) FAKE_NOT_NEEDED HRESULT STDMETHODCALLTYPE
        Clone(IStream**) FAKE_NOT_NEEDED

        private : CFakeBytes& m_data;
    size_t m_at = 0;
};

// --- property objects --------------------------------------------------------------------------------

// A value that a fake keeps.
inline CMapiPropValue OwnValue(const SPropValue& value) {
    CMapiPropValue own(value.ulPropTag);
    CopyPropValue(own.Get(), &value);
    return own;
}
inline CMapiPropValue Text(ULONG tag, const char* text) {
    SPropValue value{};
    value.ulPropTag = tag;
    value.Value.lpszA = const_cast<char*>(text);
    return OwnValue(value);
}
inline CMapiPropValue Number(ULONG tag, LONG number) {
    SPropValue value{};
    value.ulPropTag = tag;
    value.Value.l = number;
    return OwnValue(value);
}
inline CMapiPropValue Bytes(ULONG tag, const std::string& bytes) {
    SPropValue value{};
    value.ulPropTag = tag;
    value.Value.bin =
        SBinary{static_cast<ULONG>(bytes.size()), reinterpret_cast<BYTE*>(const_cast<char*>(bytes.data()))};
    return OwnValue(value);
}
inline SBinary View(const std::string& bytes) {
    return SBinary{static_cast<ULONG>(bytes.size()),
                   reinterpret_cast<BYTE*>(const_cast<char*>(bytes.data()))};
}

template <class Interface>
class CFakeProp : public CFakeUnknown<Interface> {
public:
    std::map<ULONG, CMapiPropValue> values;
    std::map<ULONG, CFakeBytes> streams;      // properties that open as streams
    std::vector<ULONG> streamFlags;           // option and flags of each OpenProperty
    std::vector<std::wstring> names;          // known string names; their identifiers start at 0x8001
    std::vector<std::vector<ULONG>> setTags;  // tags of each SetProps
    HRESULT getResult = S_OK;
    HRESULT setResult = S_OK;
    HRESULT saveResult = S_OK;
    HRESULT namesResult = S_OK;
    bool namesEmpty = false;
    bool createsStreams = true;
    SPropProblem problem{};  // reported by SetProps when its code is set
    std::vector<ULONG> saves;
    int getCalls = 0;
    int nameCalls = 0;
    int lastErrorCalls = 0;

    bool Offers(const IID& iid) const override { return iid == IID_IMAPIProp; }
    HRESULT STDMETHODCALLTYPE GetLastError(HRESULT, ULONG, LPMAPIERROR* error) override {
        ++lastErrorCalls;
        void* block = nullptr;
        MAPIAllocateBuffer(sizeof(MAPIERROR), &block);
        *error = static_cast<MAPIERROR*>(block);
        **error = MAPIERROR{0, reinterpret_cast<LPTSTR>(const_cast<char*>("disk on fire")),
                            reinterpret_cast<LPTSTR>(const_cast<char*>("store")), 7, 3};
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE SaveChanges(ULONG flags) override {
        saves.push_back(flags);
        return saveResult;
    }
    HRESULT STDMETHODCALLTYPE GetProps(LPSPropTagArray tags, ULONG, ULONG* count,
                                       LPSPropValue* out) override {
        ++getCalls;
        if (getResult < 0) return getResult;
        void* block = nullptr;
        MAPIAllocateBuffer(sizeof(SPropValue) * tags->cValues, &block);
        *out = static_cast<SPropValue*>(block);
        *count = tags->cValues;
        HRESULT hr = S_OK;
        for (ULONG i = 0; i < tags->cValues; ++i) {
            const auto found = values.find(tags->aulPropTag[i]);
            if (found != values.end()) {
                CopyPropValue(*out + i, found->second.Get(), *out);
            } else {
                (*out)[i].ulPropTag = PROP_TAG(PT_ERROR, PROP_ID(tags->aulPropTag[i]));
                (*out)[i].Value.err = static_cast<SCODE>(MAPI_E_NOT_FOUND);
                hr = MAPI_W_ERRORS_RETURNED;
            }
        }
        return hr;
    }
    HRESULT STDMETHODCALLTYPE GetPropList(ULONG, LPSPropTagArray*) FAKE_NOT_NEEDED HRESULT STDMETHODCALLTYPE
        OpenProperty(ULONG tag, LPCIID, ULONG options, ULONG flags, LPUNKNOWN* out) override {
        streamFlags.insert(streamFlags.end(), {options, flags});
        if (streams.find(tag) == streams.end() && !(createsStreams && (flags & MAPI_CREATE)))
            return static_cast<HRESULT>(MAPI_E_NOT_FOUND);
        if ((flags & MAPI_CREATE) != 0) streams[tag].bytes.clear();
        *out = new CFakeStream(streams[tag]);
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE SetProps(ULONG count, LPSPropValue in, LPSPropProblemArray* problems) override {
        std::vector<ULONG> tags;
        for (ULONG i = 0; i < count; ++i)
            tags.push_back(in[i].ulPropTag);
        setTags.push_back(tags);
        if (setResult < 0) return setResult;
        for (ULONG i = 0; i < count; ++i)
            values[in[i].ulPropTag] = OwnValue(in[i]);
        if (problems && problem.scode) {
            void* block = nullptr;
            MAPIAllocateBuffer(CbNewSPropProblemArray(1), &block);
            *problems = static_cast<SPropProblemArray*>(block);
            (*problems)->cProblem = 1;
            (*problems)->aProblem[0] = problem;
        }
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE DeleteProps(LPSPropTagArray,
                                          LPSPropProblemArray*) FAKE_NOT_NEEDED HRESULT STDMETHODCALLTYPE
        CopyTo(ULONG, LPCIID, LPSPropTagArray, ULONG, LPMAPIPROGRESS, LPCIID, LPVOID, ULONG,
               LPSPropProblemArray*) FAKE_NOT_NEEDED HRESULT STDMETHODCALLTYPE
        CopyProps(LPSPropTagArray, ULONG, LPMAPIPROGRESS, LPCIID, LPVOID, ULONG,
                  LPSPropProblemArray*) FAKE_NOT_NEEDED HRESULT STDMETHODCALLTYPE
        GetNamesFromIDs(LPSPropTagArray*, LPGUID, ULONG, ULONG*,
                        LPMAPINAMEID**) FAKE_NOT_NEEDED HRESULT STDMETHODCALLTYPE
        GetIDsFromNames(ULONG count, LPMAPINAMEID* in, ULONG flags, LPSPropTagArray* out) override {
        ++nameCalls;
        if (namesResult < 0 || namesEmpty) return namesResult;
        void* block = nullptr;
        MAPIAllocateBuffer(CbNewSPropTagArray(count), &block);
        *out = static_cast<SPropTagArray*>(block);
        (*out)->cValues = count;
        for (ULONG i = 0; i < count; ++i)
            (*out)->aulPropTag[i] = TagOf(*in[i], flags);
        return S_OK;
    }

private:
    ULONG TagOf(const MAPINAMEID& name, ULONG flags) {
        if (name.ulKind == MNID_ID) return PROP_TAG(PT_UNSPECIFIED, 0x8800 + (name.Kind.lID & 0x7FF));
        for (size_t i = 0; i < names.size(); ++i) {
            if (names[i] == name.Kind.lpwstrName) return PROP_TAG(PT_UNSPECIFIED, 0x8001 + i);
        }
        if ((flags & MAPI_CREATE) == 0) return PROP_TAG(PT_ERROR, 0);
        names.push_back(name.Kind.lpwstrName);
        return PROP_TAG(PT_UNSPECIFIED, 0x8000 + names.size());
    }
};

using CFakeObject = CFakeProp<IMAPIProp>;

// --- tables ------------------------------------------------------------------------------------------

class CFakeTable : public CFakeUnknown<IMAPITable> {
public:
    using CRow = std::map<ULONG, CMapiPropValue>;
    explicit CFakeTable(std::vector<CRow> someRows) : rows(std::move(someRows)) {}

    std::vector<CRow> rows;
    HRESULT queryResult = S_OK;
    std::vector<ULONG> columns;
    std::function<bool(const CRow&)> restriction = [](const CRow&) { return true; };

    bool Offers(const IID& iid) const override { return iid == IID_IMAPITable; }
    HRESULT STDMETHODCALLTYPE SetColumns(LPSPropTagArray tags, ULONG) override {
        columns.assign(tags->aulPropTag, tags->aulPropTag + tags->cValues);
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE SeekRow(BOOKMARK, LONG count, LONG* sought) override {
        if (queryResult < 0) return queryResult;
        m_at = 0;
        if (sought) *sought = count;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE FindRow(LPSRestriction what, BOOKMARK, ULONG) override {
        for (m_at = 0; m_at < rows.size(); ++m_at) {
            if (Matches(rows[m_at], *what)) return S_OK;
        }
        return static_cast<HRESULT>(MAPI_E_NOT_FOUND);
    }
    HRESULT STDMETHODCALLTYPE Restrict(LPSRestriction what, ULONG) override {
        if (what) {
            rows.erase(std::remove_if(rows.begin(), rows.end(),
                                      [&](const CRow& row) { return !Matches(row, *what); }),
                       rows.end());
        }
        m_at = 0;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE QueryRows(LONG count, ULONG, LPSRowSet* out) override {
        if (queryResult < 0) return queryResult;
        const size_t end = std::min(rows.size(), m_at + static_cast<size_t>(count));
        void* block = nullptr;
        MAPIAllocateBuffer(CbNewSRowSet(static_cast<ULONG>(end - m_at) + 1), &block);
        *out = static_cast<SRowSet*>(block);
        (*out)->cRows = 0;
        for (; m_at < end; ++m_at)
            (*out)->aRow[(*out)->cRows++] = MakeRow(rows[m_at]);
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetRowCount(ULONG, ULONG* count) override {
        *count = static_cast<ULONG>(rows.size());
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetLastError(HRESULT, ULONG,
                                           LPMAPIERROR*) FAKE_NOT_NEEDED HRESULT STDMETHODCALLTYPE
        Advise(ULONG, LPMAPIADVISESINK, ULONG*) FAKE_NOT_NEEDED HRESULT STDMETHODCALLTYPE
        Unadvise(ULONG) FAKE_NOT_NEEDED HRESULT STDMETHODCALLTYPE
        GetStatus(ULONG*, ULONG*) FAKE_NOT_NEEDED HRESULT STDMETHODCALLTYPE
        QueryColumns(ULONG, LPSPropTagArray*) FAKE_NOT_NEEDED HRESULT STDMETHODCALLTYPE
        SeekRowApprox(ULONG, ULONG) FAKE_NOT_NEEDED HRESULT STDMETHODCALLTYPE
        QueryPosition(ULONG*, ULONG*, ULONG*) FAKE_NOT_NEEDED HRESULT STDMETHODCALLTYPE
        CreateBookmark(BOOKMARK*) FAKE_NOT_NEEDED HRESULT STDMETHODCALLTYPE
        FreeBookmark(BOOKMARK) FAKE_NOT_NEEDED HRESULT STDMETHODCALLTYPE
        SortTable(LPSSortOrderSet, ULONG) FAKE_NOT_NEEDED HRESULT STDMETHODCALLTYPE
        QuerySortOrder(LPSSortOrderSet*) FAKE_NOT_NEEDED HRESULT STDMETHODCALLTYPE
        Abort() FAKE_NOT_NEEDED HRESULT STDMETHODCALLTYPE
        ExpandRow(ULONG, LPBYTE, ULONG, ULONG, LPSRowSet*, ULONG*) FAKE_NOT_NEEDED HRESULT STDMETHODCALLTYPE
        CollapseRow(ULONG, LPBYTE, ULONG, ULONG*) FAKE_NOT_NEEDED HRESULT STDMETHODCALLTYPE
        WaitForCompletion(ULONG, ULONG, ULONG*) FAKE_NOT_NEEDED HRESULT STDMETHODCALLTYPE
        GetCollapseState(ULONG, ULONG, LPBYTE, ULONG*, LPBYTE*) FAKE_NOT_NEEDED HRESULT STDMETHODCALLTYPE
        SetCollapseState(ULONG, ULONG, LPBYTE, BOOKMARK*) FAKE_NOT_NEEDED

        private : static bool Matches(const CRow& row, const SRestriction& what) {
        if (what.rt == RES_AND) {
            for (ULONG i = 0; i < what.res.resAnd.cRes; ++i) {
                if (!Matches(row, what.res.resAnd.lpRes[i])) return false;
            }
            return true;
        }
        const auto found = row.find(what.res.resProperty.ulPropTag);
        return found != row.end() && found->second.Str() == what.res.resProperty.lpProp->Value.lpszA;
    }
    SRow MakeRow(const CRow& row) const {
        std::vector<ULONG> tags = columns;
        if (tags.empty()) {
            for (const auto& cell : row)
                tags.push_back(cell.first);
        }
        void* block = nullptr;
        MAPIAllocateBuffer(static_cast<ULONG>(sizeof(SPropValue) * (tags.size() + 1)), &block);
        SRow made{};
        made.lpProps = static_cast<SPropValue*>(block);
        for (const ULONG tag : tags) {
            SPropValue& cell = made.lpProps[made.cValues++];
            const auto found = row.find(tag);
            if (found != row.end()) {
                CopyPropValue(&cell, found->second.Get(), block);
            } else {
                cell = SPropValue{};
                cell.ulPropTag = PROP_TAG(PT_ERROR, PROP_ID(tag));
                cell.Value.err = static_cast<SCODE>(MAPI_E_NOT_FOUND);
            }
        }
        return made;
    }
    size_t m_at = 0;
};

}  // namespace fakes
