#include "MsgWriter.h"

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

constexpr std::uint32_t kReadWrite = PROPATTR_READABLE | PROPATTR_WRITEABLE;
// What readers look at to know that text is wide; the other bits say what a message can do.
constexpr ULONG kSupportMask = 0x00040E79;
constexpr std::uint32_t kHoldsMessage = 1;
constexpr std::uint32_t kHoldsStorage = 4;

CRef<IStorage> MakeStorage(IStorage& parent, const std::wstring& name) {
    CRef<IStorage> storage;
    const HRESULT hr = parent.CreateStorage(name.c_str(), STGM_CREATE | STGM_READWRITE | STGM_SHARE_EXCLUSIVE,
                                            0, 0, storage.Out());
    Require(SUCCEEDED(hr), MapiCodeOf(hr));
    return storage;
}

// One property stream with the value streams beside it.
class CPropertyWriter {
public:
    CPropertyWriter(IStorage& storage, std::string header)
        : m_storage(storage), m_stream(std::move(header)) {}

    // `large`: the block that holds the values which `small` only marks.
    void AddBlock(std::string_view small, std::string_view large) {
        const CValueBlock block(small), more(large);
        CStoredValue value, kept;
        for (std::size_t i = 0; i < block.Count(); ++i) {
            block.At(i, value);
            if (!value.IsLarge())
                Add(value);
            else if (more.Find(value.Id(), kept))
                Add(kept);
        }
    }

    void AddObject(std::uint32_t kind) { Entry(kObjectTag, 0xFFFFFFFF, kind); }
    void AddLong(ULONG tag, ULONG value) { Entry(tag, value, 0); }
    void Finish() { WriteStream(m_storage, kProperties, m_stream); }

private:
    void Entry(ULONG tag, std::uint32_t low, std::uint32_t high) {
        Append(static_cast<std::uint32_t>(tag), m_stream);
        Append(kReadWrite, m_stream);
        Append(low, m_stream);
        Append(high, m_stream);
    }

    void Add(const CStoredValue& value) {
        if (value.Id() == PROP_ID(PR_STORE_SUPPORT_MASK)) return;
        if ((value.Type() & ~MV_FLAG) == PT_STRING8) return AddText(value);
        const ULONG tag = PROP_TAG(value.Type(), value.Id());
        const std::size_t cb = FixedSizeOf(value.Type());
        if (value.Type() == PT_MV_BINARY) return AddElements(tag, value);
        if (cb == 0 || (value.Type() & MV_FLAG) || value.Type() == PT_CLSID) {
            WriteStream(m_storage, Name(kValue, tag), value.Bytes());
            return Entry(tag, static_cast<std::uint32_t>(value.Bytes().size()), 0);
        }
        std::string fixed(value.Bytes().substr(0, cb));
        fixed.resize(8);
        Entry(tag, NumberAt<std::uint32_t>(fixed, 0), NumberAt<std::uint32_t>(fixed, 4));
    }

    // The size in the entry counts the terminator, which the stream does not have.
    void AddText(const CStoredValue& value) {
        if (value.Type() & MV_FLAG) return AddElements(PROP_TAG(PT_MV_UNICODE, value.Id()), value);
        const ULONG tag = PROP_TAG(PT_UNICODE, value.Id());
        const std::string wide = Utf16BytesFromUtf8(value.Bytes());
        WriteStream(m_storage, Name(kValue, tag), wide);
        Entry(tag, static_cast<std::uint32_t>(wide.size() + 2), 0);
    }

    void AddElements(ULONG tag, const CStoredValue& value) {
        const bool text = PROP_TYPE(tag) == PT_MV_UNICODE;
        const std::wstring name = Name(kValue, tag);
        std::string lengths;
        ULONG index = 0;
        AnyElement(value, [&](const CStoredValue& element) {
            std::string bytes(element.Bytes());
            if (text) bytes = Utf16BytesFromUtf8(bytes).append(2, '\0');
            Append(static_cast<std::uint32_t>(bytes.size()), lengths);
            if (!text) Append(std::uint32_t{0}, lengths);
            WriteStream(m_storage, Name((name + L"-").c_str(), index++), bytes);
            return false;
        });
        WriteStream(m_storage, name, lengths);
        Entry(tag, static_cast<std::uint32_t>(lengths.size()), 0);
    }

    IStorage& m_storage;
    std::string m_stream;
};

void WriteMessage(IStorage& storage, const MessageSnapshot& message, bool top);

void WriteRecipient(IStorage& parent, ULONG number, std::string_view block) {
    const CRef<IStorage> storage = MakeStorage(parent, Name(kRecipient, number));
    CPropertyWriter writer(*storage, std::string(kPartHeader, '\0'));
    writer.AddBlock(block, {});
    writer.Finish();
}

// The bytes of a foreign storage, empty if the attachment holds none.
std::string ForeignStorage(const AttachmentSnapshot& attachment) {
    const CValueBlock small(attachment.small), large(attachment.large);
    CStoredValue value;
    if (!small.Find(PROP_ID(PR_ATTACH_METHOD), value) || value.As<std::uint32_t>() != ATTACH_OLE) return {};
    if (!small.Find(PROP_ID(PR_ATTACH_DATA_BIN), value)) return {};
    if (value.IsLarge() && !large.Find(PROP_ID(PR_ATTACH_DATA_BIN), value)) return {};
    return IsCompoundFile(value.Bytes()) ? std::string(value.Bytes()) : std::string();
}

std::string WithoutData(std::string_view block) {
    CPropertyBag bag;
    bag.Load(std::string(block));
    CValueBlockWriter writer;
    bag.Remove(PROP_ID(PR_ATTACH_DATA_BIN));
    bag.ForEach([&writer](const CStoredValue& value) {
        if (value.IsLarge())
            writer.AddLarge(value.Id(), value.Type(), value.Size());
        else
            writer.Add(value.Id(), value.Type(), value.Bytes());
    });
    return writer.Finish();
}

void WriteAttachment(IStorage& parent, ULONG number, const AttachmentSnapshot& attachment) {
    const CRef<IStorage> storage = MakeStorage(parent, Name(kAttachment, number));
    CPropertyWriter writer(*storage, std::string(kPartHeader, '\0'));
    const std::string foreign = attachment.embedded ? std::string() : ForeignStorage(attachment);
    if (attachment.embedded) {
        writer.AddBlock(WithoutData(attachment.small), attachment.large);
        writer.AddObject(kHoldsMessage);
        WriteMessage(*MakeStorage(*storage, Name(kValue, kObjectTag)), *attachment.embedded, false);
    } else if (!foreign.empty()) {
        writer.AddBlock(WithoutData(attachment.small), attachment.large);
        writer.AddObject(kHoldsStorage);
        CopyBytesInto(foreign, *MakeStorage(*storage, Name(kValue, kObjectTag)));
    } else {
        writer.AddBlock(attachment.small, attachment.large);
    }
    writer.Finish();
}

std::string HeaderOf(std::size_t recipients, std::size_t attachments, bool top) {
    std::string header(8, '\0');
    for (const std::size_t count : {recipients, attachments, recipients, attachments})
        Append(static_cast<std::uint32_t>(count), header);
    header.resize(top ? kTopHeader : kEmbeddedHeader);
    return header;
}

void WriteMessage(IStorage& storage, const MessageSnapshot& message, bool top) {
    const auto recipients = SplitRecipients(message.recipients);
    CPropertyWriter writer(storage, HeaderOf(recipients.size(), message.attachments.size(), top));
    writer.AddBlock(message.small, message.large);
    writer.AddLong(PR_STORE_SUPPORT_MASK, kSupportMask);
    ULONG number = 0;
    for (const std::string_view block : recipients)
        WriteRecipient(storage, number++, block);
    number = 0;
    for (const auto& attachment : message.attachments)
        WriteAttachment(storage, number++, *attachment);
    writer.Finish();
}

bool IsPartOfMessage(const std::wstring& name) {
    const std::wstring_view view(name);
    for (const wchar_t* prefix : {kProperties, kNames, kRecipient, kAttachment, kValue})
        if (view.substr(0, std::wstring_view(prefix).size()) == prefix) return true;
    return false;
}

}  // namespace

void WriteMsg(IStorage& storage, CStoreCore& core, const MessageSnapshot& message) {
    for (const Element& element : ListElements(storage))
        if (IsPartOfMessage(element.name)) storage.DestroyElement(element.name.c_str());
    WriteMsgNames(storage, core);
    WriteMessage(storage, message, true);
    WriteClassStg(&storage, kMessageClass);
}
