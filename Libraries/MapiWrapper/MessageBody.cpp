// The bodies of a message and its properties as streams.
#include <MapiWrapper/ExchangeTags.h>
#include <MapiWrapper/Message.h>
#include <MapiWrapper/StreamTools.h>

#include <cstring>

namespace {

constexpr ULONG kReadPortion = 65536;
constexpr ULONG kRtfReadPortion = 20000;
constexpr ULONG kRtfWritePortion = 1024;
constexpr ULONG kCreateStream = MAPI_MODIFY | MAPI_CREATE;
const char kFromHtml[] = "\\fromhtml1";

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
        THROW_ON_FAILURE(WriteAll(wrapped.Get(), text, static_cast<ULONG>(cb), kRtfWritePortion));
    }
    // The wrapped stream goes first: its end is what completes the raw one.
    void Close() {
        THROW_ON_FAILURE(wrapped->Commit(0));
        THROW_ON_FAILURE(raw->Commit(0));
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
    if (!m_object || ReadTextStream(PR_BODY_A, kStreamReadWriteMode, MAPI_MODIFY, body) < 0)
        body = GetStrPropOrEmpty(PR_BODY_A);
    if (Batch()) m_cachedBody = body;
    return body;
}

std::string IMessagePtr::GetLongText(ULONG tag) const {
    std::string text;
    if (m_object && ReadTextStream(tag, 0, 0, text) >= 0) return text;
    return GetStrPropOrEmpty(tag);
}

std::string IMessagePtr::ReadText(ULONG tag) const {
    CMapiPropValue value;
    const HRESULT hr = GetOneProp(tag, value);
    if (hr == MAPI_E_NOT_FOUND) return {};
    if (hr >= 0) return value.Str();
    if (hr != MAPI_E_NOT_ENOUGH_MEMORY) THROW_ON_FAILURE_FOR(hr, RawProp());
    // Too long for a single value.
    std::string text;
    THROW_ON_FAILURE_FOR(ReadTextStream(tag, 0, 0, text), RawProp());
    return text;
}

void IMessagePtr::SetBody(const std::string& text) {
    if (Batch()) m_cachedBody = text;
    if (WriteTextStream(PR_BODY_A, kStreamReadWriteMode, text, true) >= 0) return;
    SetStrProp(PR_BODY_A, text.c_str());
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
    THROW_ON_FAILURE_FOR(ReadToEnd(stream.Get(), bytes, cbPortion ? cbPortion : kReadPortion),
                         m_object.Get());
    return bytes;
}

void IMessagePtr::WriteStream(ULONG tag, const std::string& text) {
    THROW_ON_FAILURE_FOR(WriteTextStream(tag, 0, text, false), m_object.Get());
}
