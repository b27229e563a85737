// The bodies of a message and its properties as streams.
#include <MapiWrapper/ExchangeTags.h>
#include <MapiWrapper/Message.h>
#include <MapiWrapper/StreamTools.h>
#include <MapiWrapper/TextConvert.h>

#include <cstring>

namespace {

constexpr ULONG kBodyPortion = 65536;
constexpr ULONG kRtfReadPortion = 20000;
constexpr ULONG kRtfWritePortion = 1024;
constexpr ULONG kCreateStream = MAPI_MODIFY | MAPI_CREATE;
const char kFromHtml[] = "\\fromhtml1";

// Reads a text stream piece by piece. A piece ends at a zero byte, since writers store the terminator.
std::string ReadPieces(IStream* stream) {
    std::string text;
    std::string piece(kBodyPortion, '\0');
    while (text.size() < kStreamLimit) {
        ULONG read = 0;
        if (stream->Read(piece.data(), kBodyPortion, &read) < 0 || read == 0 || read > kBodyPortion) break;
        text.append(piece, 0, strnlen(piece.data(), read));
    }
    return text;
}

// False where anything of it fails, so that the caller can fall back to setting the property.
bool WriteWhole(IStream* stream, const void* bytes, size_t cb) {
    return cb <= kStreamLimit &&
           WriteAll(stream, bytes, static_cast<ULONG>(cb), static_cast<ULONG>(cb)) >= 0 &&
           stream->Commit(0) >= 0;
}

// The compressed RTF of a message opened for writing: text goes into `wrapped`.
struct CRtfWriter {
    CComPtr<IStream> raw;
    CComPtr<IStream> wrapped;

    bool Open(const IMessagePtr& message) {
        if (message.OpenStream(PR_RTF_COMPRESSED, 0, kCreateStream, raw) < 0) return false;
        return WrapCompressedRTFStream(raw.Get(), MAPI_MODIFY | STORE_UNCOMPRESSED_RTF, wrapped.Out()) >= 0 &&
               wrapped;
    }
    void Write(const char* text, size_t cb) {
        WriteAll(wrapped.Get(), text, static_cast<ULONG>(cb), kRtfWritePortion);
    }
    // The wrapped stream goes first: its end is what completes the raw one.
    void Close() {
        wrapped->Commit(0);
        raw->Commit(0);
        wrapped.Free();
        raw.Free();
    }
};

std::string HtmlInRtf(const std::string& rtf) {
    const size_t mark = rtf.find(kFromHtml);
    if (mark == std::string::npos) return {};
    const size_t start = rtf.find('<', mark + std::strlen(kFromHtml));
    if (start == std::string::npos) return {};
    const size_t end = rtf.rfind('}');
    return end == std::string::npos || end <= start ? std::string() : rtf.substr(start, end - start);
}

std::string RtfOfHtml(const std::string& html) {
    std::string rtf;
    rtf.reserve(html.size() + html.size() / 8);
    for (const char c : html) {
        if (c == '\n') {
            rtf += " \r\n";
        } else {
            if (c == '{' || c == '}' || c == '\\') rtf += '\\';
            rtf += c;
        }
    }
    return rtf;
}

}  // namespace

std::string IMessagePtr::GetBody() const {
    if (Batch() && !m_cachedBody.empty()) return m_cachedBody;
    std::string body;
    CComPtr<IStream> stream;
    if (m_object && OpenStream(PR_BODY_A, kStreamReadWriteMode, MAPI_MODIFY, stream) >= 0)
        body = ReadPieces(stream.Get());
    else
        body = GetStrPropOrEmpty(PR_BODY_A);
    if (Batch()) m_cachedBody = body;
    return body;
}

std::string IMessagePtr::GetLongText(ULONG tag) const {
    CComPtr<IStream> stream;
    if (m_object && OpenStream(tag, 0, 0, stream) >= 0) return ReadPieces(stream.Get());
    return GetStrPropOrEmpty(tag);
}

void IMessagePtr::SetBody(const std::string& text) {
    if (Batch()) m_cachedBody = text;
    CComPtr<IStream> stream;
    if (OpenStream(PR_BODY_A, kStreamReadWriteMode, kCreateStream, stream) >= 0 &&
        WriteWhole(stream.Get(), text.c_str(), std::strlen(text.c_str()) + 1))
        return;
    stream.Free();
    SetStrProp(PR_BODY_A, text.c_str());
}

void IMessagePtr::SetBodyW(const std::wstring& text) {
    std::string bytes = Utf16Bytes(text.c_str());
    bytes.append(2, '\0');
    CComPtr<IStream> stream;
    if (OpenStream(PR_BODY_W, kStreamReadWriteMode, kCreateStream, stream) >= 0 &&
        WriteWhole(stream.Get(), bytes.data(), bytes.size()))
        return;
    stream.Free();
    SetWideProp(PR_BODY_W, text.c_str());
}

std::string IMessagePtr::GetRtf() const {
    CComPtr<IStream> raw;
    CComPtr<IStream> stream;
    THROW_ON_FAILURE_FOR(OpenStream(PR_RTF_COMPRESSED, 0, 0, raw), m_object.Get());
    THROW_ON_FAILURE(WrapCompressedRTFStream(raw.Get(), 0, stream.Out()));
    std::string rtf;
    THROW_ON_FAILURE(ReadToEnd(NotNull(stream.Get(), "WrapCompressedRTFStream"), rtf, kRtfReadPortion));
    rtf.resize(std::strlen(rtf.c_str()));
    return rtf;
}

void IMessagePtr::SetRtf(const std::string& text, bool sync) {
    CRtfWriter writer;
    if (!writer.Open(*this)) return;
    writer.Write(text.c_str(), std::strlen(text.c_str()) + 1);
    writer.Close();
    WINBOOL updated = FALSE;
    if (sync) RTFSync(m_object.Get(), RTF_SYNC_RTF_CHANGED, &updated);
}

std::string IMessagePtr::GetHtml() const {
    CMapiPropValue value;
    if (GetOneProp(PR_BODY_HTML_A, value) >= 0 && !value.IsError()) return value.Str();
    return HtmlInRtf(GetRtf());
}

void IMessagePtr::SetHtml(const std::string& html) {
    const std::string text = RtfOfHtml(html.c_str());
    CRtfWriter writer;
    if (!writer.Open(*this)) return;
    writer.Write("{\\fromhtml1 ", 12);
    writer.Write(text.data(), text.size());
    writer.Write("}", 1);
    writer.Close();
}

std::string IMessagePtr::GetTitle() const {
    CMapiPropValue value;
    if (GetOneProp(PR_SUBJECT_A, value) >= 0) return value.Str();
    return GetStrPropOrEmpty(PR_DISPLAY_NAME_A);
}

std::string IMessagePtr::ReadStream(ULONG tag, ULONG cbPortion) const {
    const CComPtr<IStream> stream = OpenPropertyStream(tag);
    std::string bytes;
    THROW_ON_FAILURE_FOR(ReadToEnd(stream.Get(), bytes, cbPortion ? cbPortion : kBodyPortion),
                         m_object.Get());
    return bytes;
}

void IMessagePtr::WriteStream(ULONG tag, const std::string& text) {
    CComPtr<IStream> stream;
    THROW_ON_FAILURE_FOR(OpenStream(tag, 0, kCreateStream, stream), m_object.Get());
    THROW_ON_FAILURE_FOR(WriteAll(stream.Get(), text.c_str(), static_cast<ULONG>(std::strlen(text.c_str()))),
                         m_object.Get());
    THROW_ON_FAILURE_FOR(stream->Commit(0), m_object.Get());
}
