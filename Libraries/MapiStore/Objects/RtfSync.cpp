// RTFSync: the plain and the RTF body of a message brought to the same text.
#include <MapiStore/Core/StoreCall.h>
#include <MapiStore/Values/Lzfu.h>
#include <MapiStore/Values/PropertyCodec.h>
#include <MapiStore/Values/RtfText.h>
#include <MapiStore/Values/StreamBytes.h>
#include <MapiStore/Values/UnknownImpl.h>

#include <cctype>

namespace {

// Empty where the property is not there.
CRef<IStream> OpenStream(IMessage& message, ULONG tag, ULONG options, ULONG flags) {
    CRef<IUnknown> object;
    const HRESULT hr = message.OpenProperty(tag, &IID_IStream, options, flags, object.Out());
    if (hr == MAPI_E_NOT_FOUND) return {};
    Require(SUCCEEDED(hr) && object, FAILED(hr) ? hr : MAPI_E_CALL_FAILED);
    CRef<IStream> stream;
    const HRESULT asked = object->QueryInterface(IID_IStream, reinterpret_cast<void**>(stream.Out()));
    Require(SUCCEEDED(asked), asked);
    return stream;
}

bool ReadRtf(IMessage& message, std::string& rtf) {
    const CRef<IStream> packed = OpenStream(message, PR_RTF_COMPRESSED, 0, 0);
    if (!packed) return false;
    rtf = DecompressRtf(ReadWholeStream(*packed)).text;
    return true;
}

bool ReadBody(IMessage& message, std::string& utf8) {
    const CRef<IStream> stream = OpenStream(message, PR_BODY_W, 0, 0);
    if (!stream) return false;
    utf8 = Utf8FromUtf16Bytes(ReadWholeStream(*stream));
    while (!utf8.empty() && utf8.back() == '\0')
        utf8.pop_back();
    return true;
}

void WriteProperty(IMessage& message, ULONG tag, const std::string& bytes) {
    const CRef<IStream> stream =
        OpenStream(message, tag, STGM_CREATE | STGM_READWRITE, MAPI_CREATE | MAPI_MODIFY);
    Require(static_cast<bool>(stream), MAPI_E_NOT_FOUND);
    WriteWholeStream(*stream, bytes);
    const HRESULT hr = stream->Commit(STGC_DEFAULT);
    Require(SUCCEEDED(hr), hr);
}

std::string WithoutBlanks(const std::string& text) {
    std::string marks;
    for (char c : text)
        if (!std::isspace(static_cast<unsigned char>(c))) marks.push_back(c);
    return marks;
}

// What a later RTFSync, also of another program, recognises the text by.
void Mark(IMessage& message, const std::string& utf8) {
    const std::string marks = WithoutBlanks(utf8);
    std::string tag = NarrowFromUtf8(std::string_view(marks).substr(0, 20));
    SPropValue values[6] = {};
    values[0].ulPropTag = PR_RTF_IN_SYNC;
    values[0].Value.b = TRUE;
    values[1].ulPropTag = PR_RTF_SYNC_BODY_CRC;
    values[1].Value.l = static_cast<LONG>(RtfChecksum(marks));
    values[2].ulPropTag = PR_RTF_SYNC_BODY_COUNT;
    values[2].Value.l = static_cast<LONG>(marks.size());
    values[3].ulPropTag = PR_RTF_SYNC_BODY_TAG_A;
    values[3].Value.lpszA = tag.data();
    values[4].ulPropTag = PR_RTF_SYNC_PREFIX_COUNT;
    values[5].ulPropTag = PR_RTF_SYNC_TRAILING_COUNT;
    const HRESULT hr = message.SetProps(6, values, nullptr);
    Require(SUCCEEDED(hr), hr);
}

// True if the body had to change.
bool BodyFromRtf(IMessage& message, const std::string& rtf) {
    const std::string text = TextFromRtf(rtf);
    std::string body;
    const bool same = ReadBody(message, body) && WithoutBlanks(body) == WithoutBlanks(text);
    if (!same) WriteProperty(message, PR_BODY_W, Utf16BytesFromUtf8(text));
    Mark(message, same ? body : text);
    return !same;
}

bool RtfFromBody(IMessage& message) {
    std::string body, rtf;
    if (!ReadBody(message, body)) return false;
    const bool same = ReadRtf(message, rtf) && WithoutBlanks(TextFromRtf(rtf)) == WithoutBlanks(body);
    if (!same) WriteProperty(message, PR_RTF_COMPRESSED, CompressRtf(RtfFromText(body)));
    Mark(message, body);
    return !same;
}

}  // namespace

STDAPI_(HRESULT) RTFSync(LPMESSAGE lpMessage, ULONG ulFlags, WINBOOL* lpfMessageUpdated) {
    if (!lpMessage || !lpfMessageUpdated) return MAPI_E_INVALID_PARAMETER;
    *lpfMessageUpdated = FALSE;
    if (ulFlags & ~(RTF_SYNC_RTF_CHANGED | RTF_SYNC_BODY_CHANGED)) return MAPI_E_UNKNOWN_FLAGS;
    return GuardedCall([&] {
        std::string rtf;
        bool updated = false;
        // Where both have changed the RTF, which says more, decides.
        if ((ulFlags & RTF_SYNC_RTF_CHANGED) && ReadRtf(*lpMessage, rtf))
            updated = BodyFromRtf(*lpMessage, rtf);
        else if (ulFlags & RTF_SYNC_BODY_CHANGED)
            updated = RtfFromBody(*lpMessage);
        *lpfMessageUpdated = updated;
        return S_OK;
    });
}
