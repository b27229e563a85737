// Small objects that stand for those of a store: they count references, keep properties in a map, and fail on
// request. The bare classes answer MAPI_E_NO_SUPPORT to everything; a fake does what tests need.
#pragma once
#include <MapiWrapper/MapiWrapper.h>
#include <MapiWrapper/MapiWrapper_std.h>
#include <gtest/gtest.h>
#include <support/Letters.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#pragma GCC diagnostic ignored "-Wunused-parameter"

#define FAKE_NOT_NEEDED                                 \
    override {                                          \
        return static_cast<HRESULT>(MAPI_E_NO_SUPPORT); \
    }

namespace fakes {

// Objects alive, over all kinds.
inline int g_liveFakes = 0;

// Demands at the end that all fakes of the test are gone, those that its members held among them.
class NoFakeOutlives : public testing::Test {
protected:
    ~NoFakeOutlives() override { EXPECT_EQ(g_liveFakes, m_before); }

private:
    const CCodePageChoice m_sameText{Utf8CodePage};  // fakes keep 8-bit text, as it is given
    const int m_before = g_liveFakes;
};

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

// Memory as a store gives it out: for MAPIFreeBuffer.
template <class T>
T* NewBlock(size_t cb) {
    void* block = nullptr;
    MAPIAllocateBuffer(static_cast<ULONG>(cb), &block);
    return static_cast<T*>(block);
}

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

class CBareStream : public CFakeUnknown<IStream> {
public:
    // clang-format off
    HRESULT STDMETHODCALLTYPE Seek(LARGE_INTEGER, DWORD, ULARGE_INTEGER*) FAKE_NOT_NEEDED
    HRESULT STDMETHODCALLTYPE SetSize(ULARGE_INTEGER) FAKE_NOT_NEEDED
    HRESULT STDMETHODCALLTYPE CopyTo(IStream*, ULARGE_INTEGER, ULARGE_INTEGER*, ULARGE_INTEGER*) FAKE_NOT_NEEDED
    HRESULT STDMETHODCALLTYPE Revert() FAKE_NOT_NEEDED
    HRESULT STDMETHODCALLTYPE LockRegion(ULARGE_INTEGER, ULARGE_INTEGER, DWORD) FAKE_NOT_NEEDED
    HRESULT STDMETHODCALLTYPE UnlockRegion(ULARGE_INTEGER, ULARGE_INTEGER, DWORD) FAKE_NOT_NEEDED
    HRESULT STDMETHODCALLTYPE Clone(IStream**) FAKE_NOT_NEEDED
    // clang-format on
};

class CFakeStream : public CBareStream {
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

private:
    CFakeBytes& m_data;
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
inline SBinary View(const std::string& bytes) {
    return SBinary{static_cast<ULONG>(bytes.size()),
                   reinterpret_cast<BYTE*>(const_cast<char*>(bytes.data()))};
}
inline CMapiPropValue Bytes(ULONG tag, const std::string& bytes) {
    SPropValue value{};
    value.ulPropTag = tag;
    value.Value.bin = View(bytes);
    return OwnValue(value);
}

template <class Interface>
class CBareProp : public CFakeUnknown<Interface> {
public:
    MAPI_IMAPIPROP_METHODS(FAKE_NOT_NEEDED)
};

template <class Interface>
class CFakeProp : public CBareProp<Interface> {
public:
    std::map<ULONG, CMapiPropValue> values;
    std::map<ULONG, CFakeBytes> streams;      // properties that open as streams
    std::vector<std::wstring> names;          // known string names; their identifiers start at 0x8001
    std::vector<std::vector<ULONG>> setTags;  // tags of each SetProps
    HRESULT getResult = S_OK;
    HRESULT setResult = S_OK;
    HRESULT saveResult = S_OK;
    bool namesEmpty = false;
    bool namesFull = false;  // no name is made any more
    bool createsStreams = true;
    std::vector<ULONG> saves;
    int getCalls = 0;
    int nameCalls = 0;
    int lastErrorCalls = 0;

    bool Offers(const IID& iid) const override { return iid == IID_IMAPIProp; }
    HRESULT STDMETHODCALLTYPE GetLastError(HRESULT, ULONG flags, LPMAPIERROR* error) override {
        ++lastErrorCalls;
        const auto words = [flags](const char* narrow, const wchar_t* wide) {
            return flags & MAPI_UNICODE ? reinterpret_cast<LPTSTR>(const_cast<wchar_t*>(wide))
                                        : reinterpret_cast<LPTSTR>(const_cast<char*>(narrow));
        };
        *error = NewBlock<MAPIERROR>(sizeof(MAPIERROR));
        **error = MAPIERROR{0, words("disk on fire", L"disk on fire"), words("store", L"store"), 7, 3};
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
        *out = NewBlock<SPropValue>(sizeof(SPropValue) * tags->cValues);
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
    HRESULT STDMETHODCALLTYPE OpenProperty(ULONG tag, LPCIID, ULONG options, ULONG flags,
                                           LPUNKNOWN* out) override {
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
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetIDsFromNames(ULONG count, LPMAPINAMEID* in, ULONG flags,
                                              LPSPropTagArray* out) override {
        ++nameCalls;
        if (namesEmpty) return S_OK;
        *out = NewBlock<SPropTagArray>(CbNewSPropTagArray(count));
        (*out)->cValues = count;
        for (ULONG i = 0; i < count; ++i)
            (*out)->aulPropTag[i] = TagOf(*in[i], flags);
        return namesFull ? MAPI_W_ERRORS_RETURNED : S_OK;
    }

private:
    ULONG TagOf(const MAPINAMEID& name, ULONG flags) {
        if (name.ulKind == MNID_ID) return PROP_TAG(PT_UNSPECIFIED, 0x8800 + (name.Kind.lID & 0x7FF));
        for (size_t i = 0; i < names.size(); ++i) {
            if (names[i] == name.Kind.lpwstrName) return PROP_TAG(PT_UNSPECIFIED, 0x8001 + i);
        }
        if ((flags & MAPI_CREATE) == 0 || namesFull) return PROP_TAG(PT_ERROR, 0);
        names.push_back(name.Kind.lpwstrName);
        return PROP_TAG(PT_UNSPECIFIED, 0x8000 + names.size());
    }
};

using CFakeObject = CFakeProp<IMAPIProp>;

// --- tables ------------------------------------------------------------------------------------------

class CBareTable : public CFakeUnknown<IMAPITable> {
public:
    MAPI_IMAPITABLE_METHODS(FAKE_NOT_NEEDED)
};

class CFakeTable : public CBareTable {
public:
    using CRow = std::map<ULONG, CMapiPropValue>;
    explicit CFakeTable(std::vector<CRow> someRows) : rows(std::move(someRows)) {}

    std::vector<CRow> rows;
    HRESULT queryResult = S_OK;
    std::vector<ULONG> columns;

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
        *out = NewBlock<SRowSet>(CbNewSRowSet(end - m_at + 1));
        (*out)->cRows = 0;
        for (; m_at < end; ++m_at)
            (*out)->aRow[(*out)->cRows++] = MakeRow(rows[m_at]);
        return S_OK;
    }

private:
    static bool Matches(const CRow& row, const SRestriction& what) {
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
        SRow made{};
        made.lpProps = NewBlock<SPropValue>(sizeof(SPropValue) * (tags.size() + 1));
        for (const ULONG tag : tags) {
            SPropValue& cell = made.lpProps[made.cValues++];
            const auto found = row.find(tag);
            if (found != row.end()) {
                CopyPropValue(&cell, found->second.Get(), made.lpProps);
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

// Calls and demands an exception of that context, and of that code where one is given. Answers the object
// that the exception names.
template <class Call>
const void* ExpectThrows(const std::string& context, Call call, HRESULT code = S_OK) {
    try {
        call();
        ADD_FAILURE() << "nothing thrown for " << context;
    } catch (const CMAPIException& e) {
        EXPECT_EQ(e.Context(), context);
        if (code != S_OK) {
            EXPECT_EQ(e.Hr(), code) << context;
        }
        return e.Object();
    }
    return nullptr;
}

}  // namespace fakes
