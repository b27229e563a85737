#include "PropStream.h"

#include <MapiStore/Values/MemoryStream.h>

// See PropStream.h.
class CPropStream : public CMemoryStream {
public:
    CPropStream(CPropObject& object, ULONG tag, std::string bytes, bool writable)
        : CMemoryStream(std::move(bytes), writable),
          m_core(object.SharedCore()),
          m_object(object),
          m_owner(CRef<IUnknown>::Share(object.AsUnknown())),
          m_tag(tag) {}
    ~CPropStream() override {
        // Written but not committed: the stream is in direct mode, what was written counts.
        if (m_dirty) GuardedCall([&] { return PutBack(); });
    }
    void MarkDirty() { m_dirty = true; }
    void GoToEnd() { m_position = m_bytes.size(); }

protected:
    HRESULT Guarded(const std::function<HRESULT()>& body) override { return GuardedCall(*m_core, body); }
    void WriteBack() override {
        const auto id = static_cast<PropId>(PROP_ID(m_tag));
        m_object.RequireWritable();
        const bool binary = PROP_TYPE(m_tag) == PT_BINARY;
        const std::string text = binary ? std::string() : StoredText();
        m_object.ChangeNow(
            [&] { m_object.SetStored(id, StoredTypeOf(PROP_TYPE(m_tag)), binary ? m_bytes : text); });
    }

private:
    HRESULT PutBack() {
        const CStoreLock lock(*m_core);
        WriteBack();
        return S_OK;
    }
    std::string StoredText() const {
        std::string text = PROP_TYPE(m_tag) == PT_UNICODE ? Utf8FromUtf16Bytes(m_bytes) : m_bytes;
        if (!text.empty() && text.back() == 0) text.pop_back();
        return PROP_TYPE(m_tag) == PT_UNICODE ? text : Utf8FromNarrow(text);
    }

    std::shared_ptr<CStoreCore> m_core;
    CPropObject& m_object;  // kept alive by m_owner
    CRef<IUnknown> m_owner;
    ULONG m_tag;
};

namespace {

// The bytes of a stream on what is stored, for the width of the tag. `buffer` is what FindWhole filled;
// where the value is all of it, it becomes the stream's.
std::string StreamBytes(const CStoredValue& value, ULONG type, std::string& buffer) {
    if (type == PT_UNICODE) return Utf16BytesFromUtf8(value.Bytes());
    if (type == PT_STRING8) return NarrowFromUtf8(value.Bytes());
    if (value.Bytes().data() == buffer.data() && value.Bytes().size() == buffer.size())
        return std::move(buffer);
    return std::string(value.Bytes());
}

}  // namespace

IStream* OpenPropStream(CPropObject& object, ULONG tag, ULONG options, ULONG flags) {
    const auto id = static_cast<PropId>(PROP_ID(tag));
    const bool modify = (flags & (MAPI_MODIFY | MAPI_CREATE)) != 0;
    CStoredValue value;
    std::string buffer;
    const bool found = object.FindWhole(id, value, buffer);
    if (PROP_TYPE(tag) == PT_UNSPECIFIED) {
        Require(found, MAPI_E_NOT_FOUND);
        tag = PROP_TAG(*GivenType(value.Type(), PT_UNSPECIFIED, (flags & MAPI_UNICODE) != 0), id);
    }
    const ULONG type = PROP_TYPE(tag);
    Require(type == PT_STRING8 || type == PT_UNICODE || type == PT_BINARY, MAPI_E_INTERFACE_NOT_SUPPORTED);
    if (modify) {
        const SCODE code = object.MaySet(id);
        if (code != S_OK) throw CStoreError(code);
    }
    const bool fits = found && GivenType(value.Type(), type, false).has_value();
    Require(fits || (flags & MAPI_CREATE), MAPI_E_NOT_FOUND);
    const bool discard = (flags & MAPI_CREATE) || (modify && (options & STGM_CREATE));
    auto stream = CRef<CPropStream>::Take(
        new CPropStream(object, tag, discard ? std::string() : StreamBytes(value, type, buffer), modify));
    if (discard) stream->MarkDirty();
    if (flags & STREAM_APPEND) stream->GoToEnd();
    return stream.Detach();
}
