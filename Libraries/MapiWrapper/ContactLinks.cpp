#include <MapiWrapper/ContactLinks.h>
#include <MapiWrapper/NamedTags.h>
#include <MapiWrapper/StreamTools.h>

#include <algorithm>

namespace {

// {00062008-0000-0000-C000-000000000046}
constexpr GUID kCommonSet = {0x00062008, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};
constexpr ULONG kLongestSearchKey = 128;
constexpr ULONG kEntryOverhead = 39;
constexpr ULONG kClosingOfMessage = 0x00510000;
constexpr std::array<ULONG, 8> kWordsOfMessage = {0, 178930430, 270190360, 1695253992, 9244, 3, 4, 0};

struct CLinkTags {
    ULONG names, joined, entries, keys;

    CLinkTags(const CGenMapiPropPtr& message, ULONG flags) {
        CNamedTags tags;
        const size_t n = tags.Add(0x853A, PT_MV_STRING8, kCommonSet);
        const size_t j = tags.Add(0x8586, PT_STRING8, kCommonSet);
        const size_t e = tags.Add(0x8585, PT_BINARY, kCommonSet);
        const size_t k = tags.Add(0x8584, PT_BINARY, kCommonSet);
        tags.Resolve(message, flags);
        names = tags.Tag(n);
        joined = tags.Tag(j);
        entries = tags.Tag(e);
        keys = tags.Tag(k);
    }
};

CMapiBinary ZeroKey() {
    static const BYTE zeros[16] = {};
    CMapiBinary key;
    key.Assign(zeros, sizeof zeros);
    return key;
}

CMapiBinary BinaryOf(const std::string& bytes) {
    CMapiBinary binary;
    if (!bytes.empty()) binary.Assign(bytes.data(), static_cast<ULONG>(bytes.size()));
    return binary;
}

// False for a stream that the message does not have; throws for any other failure.
bool OpenLinkStream(const CGenMapiPropPtr& message, ULONG tag, CComPtr<IStream>& stream) {
    const HRESULT hr = message.OpenStream(tag, 0, 0, stream);
    if (hr == static_cast<HRESULT>(MAPI_E_NOT_FOUND)) return false;
    THROW_ON_FAILURE_FOR(hr, message.RawProp());
    return true;
}

// False at the end of a stream that should go on; a read that fails throws. The two are not the same: links
// that were not read must not be written back as if there were no more.
bool Came(HRESULT hr) {
    if (hr == static_cast<HRESULT>(MAPI_E_CORRUPT_DATA)) return false;
    THROW_ON_FAILURE(hr);
    return true;
}

bool SkipHeader(IStream* stream) {
    ULONG word = 0;
    return Came(ReadWord(stream, word)) && Came(ReadWord(stream, word));
}

bool ReadLink(IStream* entries, IStream* keys, CContactLink& link) {
    std::string key;
    std::string entryId;
    ULONG size = 0;
    if (!Came(ReadBlobBytes(keys, key)) || !Came(ReadWord(entries, size))) return false;
    for (ULONG& word : link.words) {
        if (!Came(ReadWord(entries, word))) return false;
    }
    if (!Came(ReadBlobBytes(entries, entryId)) || !Came(ReadWord(entries, link.closing))) return false;
    link.searchKey = key.size() > kLongestSearchKey ? ZeroKey() : BinaryOf(key);
    link.entryId = BinaryOf(entryId);
    return true;
}

CMapiBinary WrittenKey(const CContactLink& link) {
    return link.searchKey.IsEmpty() || link.searchKey.Count() >= kLongestSearchKey ? ZeroKey()
                                                                                   : link.searchKey;
}

void WriteHeaders(const CContactLinks& links, IStream* entries, IStream* keys) {
    ULONG cbEntries = 0;
    ULONG cbKeys = 0;
    for (const CContactLink& link : links) {
        cbEntries += link.entryId.Count() + kEntryOverhead;
        cbKeys += WrittenKey(link).Count() + 4;
    }
    const ULONG count = static_cast<ULONG>(links.size());
    THROW_ON_FAILURE(WriteWord(entries, count));
    THROW_ON_FAILURE(WriteWord(entries, cbEntries));
    THROW_ON_FAILURE(WriteWord(keys, count));
    THROW_ON_FAILURE(WriteWord(keys, cbKeys));
}

void WriteLink(const CContactLink& link, IStream* entries, IStream* keys) {
    THROW_ON_FAILURE(WriteWord(entries, link.entryId.Count() + kEntryOverhead));
    for (const ULONG word : link.words)
        THROW_ON_FAILURE(WriteWord(entries, word));
    THROW_ON_FAILURE(WriteBlob(entries, link.entryId));
    THROW_ON_FAILURE(WriteWord(entries, link.closing));
    THROW_ON_FAILURE(WriteBlob(keys, WrittenKey(link)));
}

void WriteNames(const CContactLinks& links, CGenMapiPropPtr& message, const CLinkTags& tags,
                std::string& joined) {
    std::vector<char*> names;
    for (const CContactLink& link : links) {
        if (!names.empty()) joined += "; ";
        joined += link.name;
        names.push_back(const_cast<char*>(link.name.c_str()));
    }
    SPropValue value{};
    value.ulPropTag = tags.names;
    value.Value.MVszA.cValues = static_cast<ULONG>(names.size());
    value.Value.MVszA.lppszA = names.data();
    THROW_ON_FAILURE_FOR(message.SetPropsHr(&value, 1), message.RawProp());
}

}  // namespace

bool ReadContactLinks(CContactLinks& links, const CGenMapiPropPtr& message) {
    IMAPIProp* raw = NotNull(message.RawProp(), "ReadContactLinks");
    const CLinkTags tags(message, 0);
    if (tags.names == 0 || tags.entries == 0 || tags.keys == 0) return true;
    CMapiPropValue names;
    const HRESULT hr = GetOneText(raw, tags.names, message.Text(), names.Out());
    if (hr == static_cast<HRESULT>(MAPI_E_NOT_FOUND)) return true;
    THROW_ON_FAILURE_FOR(hr, raw);
    if (names.Type() != PT_MV_STRING8) return false;
    const SLPSTRArray& texts = names.Get()->Value.MVszA;
    if (texts.cValues == 0) return true;
    CComPtr<IStream> entries;
    CComPtr<IStream> keys;
    if (!OpenLinkStream(message, tags.entries, entries) || !OpenLinkStream(message, tags.keys, keys))
        return false;
    if (!SkipHeader(entries.Get()) || !SkipHeader(keys.Get())) return false;
    for (ULONG i = 0; i < texts.cValues; ++i) {
        CContactLink link;
        link.name = texts.lppszA[i] ? texts.lppszA[i] : "";
        if (!ReadLink(entries.Get(), keys.Get(), link)) return false;
        links.push_back(std::move(link));
    }
    return true;
}

void WriteContactLinks(const CContactLinks& links, CGenMapiPropPtr& message) {
    IMAPIProp* raw = NotNull(message.RawProp(), "WriteContactLinks");
    const CLinkTags tags(message, MAPI_CREATE);
    constexpr ULONG flags = MAPI_MODIFY | MAPI_CREATE;
    CComPtr<IStream> entries;
    CComPtr<IStream> keys;
    THROW_ON_FAILURE_FOR(message.OpenStream(tags.entries, STGM_CREATE | STGM_WRITE, flags, entries), raw);
    THROW_ON_FAILURE_FOR(message.OpenStream(tags.keys, STGM_CREATE | STGM_WRITE, flags, keys), raw);
    WriteHeaders(links, entries.Get(), keys.Get());
    for (const CContactLink& link : links)
        WriteLink(link, entries.Get(), keys.Get());
    std::string joined;
    WriteNames(links, message, tags, joined);
    message.SetStrProp(tags.joined, joined.c_str());
    THROW_ON_FAILURE_FOR(entries->Commit(0), raw);
    THROW_ON_FAILURE_FOR(keys->Commit(0), raw);
}

void AddContactLink(CContactLinks& links, const CGenMapiPropPtr& message) {
    CContactLink link;
    link.name = message.GetStrPropOrEmpty(PR_DISPLAY_NAME_A);
    if (link.name.empty()) link.name = message.GetStrPropOrEmpty(PR_SUBJECT_A);
    link.entryId = message.GetBinProp(PR_ENTRYID);
    link.searchKey = message.GetBinProp(PR_SEARCH_KEY);
    link.words = kWordsOfMessage;
    link.closing = kClosingOfMessage;
    links.push_back(std::move(link));
}
