#include "MsgReader.h"

#include <Platform/CodePage.h>

#include <algorithm>
#include <map>

#include <MapiStore/Values/PropCompare.h>
#include <MapiStore/Values/PropertyCodec.h>
#include <MapiStore/Values/RecipientList.h>
#include <MapiStore/Values/StoreError.h>
#include <MapiStore/Values/UnknownImpl.h>
#include "MsgFormat.h"
#include "MsgNames.h"
#include "StorageBytes.h"

namespace {

using namespace msg;

constexpr std::size_t kMostBytes = 0x3FFFFFFF;
constexpr unsigned kDefaultCodePage = 1252;
constexpr ULONG kMessageCodePage = PROP_TAG(PT_LONG, 0x3FFD);
constexpr ULONG kInternetCodePage = PROP_TAG(PT_LONG, 0x3FDE);

// The entries of a property stream: fixed values by their tags.
struct FixedEntry {
    ULONG tag;
    std::string_view value;  // eight bytes
};
std::vector<FixedEntry> EntriesOf(std::string_view stream, std::size_t header) {
    std::vector<FixedEntry> entries;
    for (std::size_t at = header; at + kEntrySize <= stream.size(); at += kEntrySize)
        entries.push_back({NumberAt<std::uint32_t>(stream, at), stream.substr(at + 8, 8)});
    return entries;
}

unsigned CodePageIn(const std::vector<FixedEntry>& entries, unsigned otherwise) {
    for (const ULONG tag : {kMessageCodePage, kInternetCodePage})
        for (const FixedEntry& entry : entries)
            if (entry.tag == tag) return NumberAt<std::uint32_t>(entry.value, 0);
    return otherwise;
}

void DropTerminator(std::string& text) {
    while (!text.empty() && text.back() == '\0')
        text.pop_back();
}

class CMsgReader {
public:
    CMsgReader(IStorage& top, CStoreCore& core) : m_names(ReadMsgNames(top, core)) {}

    std::shared_ptr<const MessageSnapshot> ReadMessage(IStorage& storage, std::size_t header,
                                                       unsigned codePage, unsigned depth) {
        CPropertyBag bag;
        codePage = ReadProperties(storage, header, codePage, bag);
        auto message = std::make_shared<MessageSnapshot>();
        Take(bag, message->small, message->large);
        std::map<ULONG, std::wstring> recipients, attachments;
        for (const Element& element : ListElements(storage)) {
            ULONG number = 0;
            if (!element.isStorage) continue;
            if (ParseName(element.name, kRecipient, number)) recipients.emplace(number, element.name);
            if (ParseName(element.name, kAttachment, number)) attachments.emplace(number, element.name);
        }
        std::vector<std::string> blocks;
        for (const auto& [number, name] : recipients)
            ReadRecipient(storage, name, codePage, blocks);
        message->recipients = JoinRecipients(blocks);
        for (const auto& [number, name] : attachments)
            ReadAttachment(storage, name, codePage, depth, message->attachments);
        return message;
    }

private:
    static CRef<IStorage> Open(IStorage& parent, const std::wstring& name) {
        CRef<IStorage> storage;
        parent.OpenStorage(name.c_str(), nullptr, STGM_READ | STGM_SHARE_EXCLUSIVE, nullptr, 0,
                           storage.Out());
        return storage;
    }

    std::string Stream(IStorage& storage, const std::wstring& name, bool& there) {
        std::string bytes;
        there = ReadStream(storage, name, m_left + 1, bytes);
        Require(bytes.size() <= m_left, MAPI_E_TOO_BIG);
        m_left -= bytes.size();
        return bytes;
    }

    // The ID in the core; 0 for a named property without a name.
    PropId IdOf(ULONG tag) const {
        const auto id = static_cast<PropId>(PROP_ID(tag));
        if (id < kFirstNamedId) return id;
        const auto found = m_names.find(id);
        return found == m_names.end() ? 0 : found->second;
    }

    unsigned ReadProperties(IStorage& storage, std::size_t header, unsigned codePage, CPropertyBag& bag) {
        bool there = false;
        const std::string stream = Stream(storage, kProperties, there);
        const auto entries = EntriesOf(stream, header);
        codePage = CodePageIn(entries, codePage);
        std::map<ULONG, PropId> variable;
        for (const FixedEntry& entry : entries) {
            const PropId id = IdOf(entry.tag);
            const ULONG type = PROP_TYPE(entry.tag);
            const std::size_t cb =
                (type & MV_FLAG) || type == PT_CLSID ? 0 : FixedSizeOf(static_cast<PropType>(type));
            if (id != 0 && cb != 0)
                bag.Set(id, static_cast<PropType>(type), entry.value.substr(0, cb));
            else if (id != 0 && StoredTypeOf(type) != 0)
                variable.emplace(entry.tag, id);
        }
        // A value whose entry was lost is still there as a stream.
        for (const Element& element : ListElements(storage)) {
            ULONG tag = 0;
            if (element.isStorage || !ParseName(element.name, kValue, tag)) continue;
            if (const PropId id = IdOf(tag); id != 0 && StoredTypeOf(PROP_TYPE(tag)) != 0)
                variable.emplace(tag, id);
        }
        for (const auto& [tag, id] : variable)
            ReadValue(storage, tag, id, codePage, bag);
        return codePage;
    }

    void ReadValue(IStorage& storage, ULONG tag, PropId id, unsigned codePage, CPropertyBag& bag) {
        const ULONG type = PROP_TYPE(tag);
        bool there = false;
        std::string bytes = Stream(storage, Name(kValue, tag), there);
        // An empty value may have no stream; a value of another kind without one is damaged.
        if (!there && type != PT_STRING8 && type != PT_UNICODE && type != PT_BINARY) return;
        if ((type & MV_FLAG) && FixedSizeOf(static_cast<PropType>(type)) == 0)
            bytes = ReadElements(storage, tag, bytes, codePage);
        else if (const std::size_t cb = FixedSizeOf(static_cast<PropType>(type)))
            bytes.resize(type & MV_FLAG ? bytes.size() / cb * cb : cb);
        else
            bytes = Decoded(type, std::move(bytes), codePage);
        bag.Set(id, StoredTypeOf(type), bytes);
    }

    static std::string Decoded(ULONG type, std::string bytes, unsigned codePage) {
        const ULONG single = type & ~static_cast<ULONG>(MV_FLAG);
        if (single == PT_BINARY) return bytes;
        if (single == PT_UNICODE) {
            bytes.resize(bytes.size() & ~std::size_t{1});
            bytes = Utf8FromUtf16Bytes(bytes);
        } else {
            DropTerminator(bytes);
            bytes = Utf8FromCodePage(bytes, codePage);
        }
        DropTerminator(bytes);
        return bytes;
    }

    // A stream with the lengths, and one stream each for the elements.
    std::string ReadElements(IStorage& storage, ULONG tag, const std::string& lengths, unsigned codePage) {
        const std::size_t step = PROP_TYPE(tag) == PT_MV_BINARY ? 8 : 4;
        std::vector<std::string> elements;
        for (std::size_t i = 0; i < lengths.size() / step; ++i) {
            bool there = false;
            std::wstring name = Name(kValue, tag);
            std::string bytes = Stream(storage, Name((name + L"-").c_str(), static_cast<ULONG>(i)), there);
            if (!there && NumberAt<std::uint32_t>(lengths, i * step) > 2) break;
            elements.push_back(Decoded(PROP_TYPE(tag), std::move(bytes), codePage));
        }
        return JoinElements({elements.begin(), elements.end()});
    }

    static void Take(const CPropertyBag& bag, std::string& small, std::string& large) {
        auto blocks = bag.Build({});
        small = std::move(blocks.small);
        if (blocks.hasLarge) large = std::move(blocks.large);
    }

    static void SetNumber(CPropertyBag& bag, ULONG numberTag, std::uint32_t number) {
        const std::string_view key(reinterpret_cast<const char*>(&number), sizeof number);
        bag.SetLong(static_cast<PropId>(PROP_ID(numberTag)), number);
        bag.Set(PROP_ID(PR_INSTANCE_KEY), PT_BINARY, key);
        if (numberTag == PR_ATTACH_NUM) bag.Set(PROP_ID(PR_RECORD_KEY), PT_BINARY, key);
    }

    void ReadRecipient(IStorage& parent, const std::wstring& name, unsigned codePage,
                       std::vector<std::string>& blocks) {
        const CRef<IStorage> storage = Open(parent, name);
        if (!storage) return;
        CPropertyBag bag;
        ReadProperties(*storage, kPartHeader, codePage, bag);
        SetNumber(bag, PR_ROWID, static_cast<std::uint32_t>(blocks.size()));
        // Recipients lie together in one list: no value of theirs is kept elsewhere.
        CValueBlockWriter writer;
        bag.ForEach(
            [&writer](const CStoredValue& value) { writer.Add(value.Id(), value.Type(), value.Bytes()); });
        blocks.push_back(writer.Finish());
    }

    void ReadAttachment(IStorage& parent, const std::wstring& name, unsigned codePage, unsigned depth,
                        std::vector<std::shared_ptr<const AttachmentSnapshot>>& attachments) {
        const CRef<IStorage> storage = Open(parent, name);
        if (!storage) return;
        CPropertyBag bag;
        ReadProperties(*storage, kPartHeader, codePage, bag);
        auto attachment = std::make_shared<AttachmentSnapshot>();
        attachment->number = static_cast<std::uint32_t>(attachments.size());
        SetNumber(bag, PR_ATTACH_NUM, attachment->number);
        if (const CRef<IStorage> object = Open(*storage, Name(kValue, kObjectTag)))
            ReadObject(*object, codePage, depth, bag, *attachment);
        if (!bag.Has(PROP_ID(PR_ATTACH_SIZE))) {
            CStoredValue data;
            bag.SetLong(PROP_ID(PR_ATTACH_SIZE), bag.Find(PROP_ID(PR_ATTACH_DATA_BIN), data)
                                                     ? static_cast<std::uint32_t>(data.Size())
                                                     : 0);
        }
        Take(bag, attachment->small, attachment->large);
        attachments.push_back(std::move(attachment));
    }

    // A message, or the storage of another program, which travels as the bytes of a compound file.
    void ReadObject(IStorage& object, unsigned codePage, unsigned depth, CPropertyBag& bag,
                    AttachmentSnapshot& attachment) {
        CStoredValue method;
        const bool foreign =
            bag.Find(PROP_ID(PR_ATTACH_METHOD), method) && method.As<std::uint32_t>() == ATTACH_OLE;
        if (foreign) {
            std::string bytes;
            if (!BytesOfStorage(object, m_left, bytes)) return;
            m_left -= std::min(m_left, bytes.size());
            bag.Set(PROP_ID(PR_ATTACH_DATA_BIN), PT_BINARY, bytes);
        } else if (depth < kDeepestEmbedding) {
            attachment.embedded = ReadMessage(object, kEmbeddedHeader, codePage, depth + 1);
        }
    }

    const MsgNameMap m_names;
    std::size_t m_left = kMostBytes;
};

}  // namespace

std::shared_ptr<const MessageSnapshot> ReadMsg(IStorage& storage, CStoreCore& core) {
    return CMsgReader(storage, core).ReadMessage(storage, kTopHeader, kDefaultCodePage, 0);
}
