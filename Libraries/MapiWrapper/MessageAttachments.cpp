// The attachments of a message.
#include <MapiWrapper/ExchangeTags.h>
#include <MapiWrapper/Message.h>
#include <MapiWrapper/StreamTools.h>

#include <cstring>

namespace {

enum { kFileName, kLongName, kLocation, kMethod, kPosition, kDisplayName, kExtension, kTag, kFlags, kCount };

BYTE s_mimeTag[9] = {0x2A, 0x86, 0x48, 0x86, 0xF7, 0x14, 0x03, 0x0A, 0x04};

SPropValue TextValue(ULONG tag, const char* text) {
    SPropValue value{};
    value.ulPropTag = tag;
    value.Value.lpszA = const_cast<char*>(text);
    return value;
}

SPropValue LongValue(ULONG tag, LONG number) {
    SPropValue value{};
    value.ulPropTag = tag;
    value.Value.l = number;
    return value;
}

bool EqualNoCase(const std::string& a, const char* b) {
    if (a.size() != std::strlen(b)) return false;
    for (size_t i = 0; i < a.size(); ++i) {
        const char c = a[i] >= 'A' && a[i] <= 'Z' ? static_cast<char>(a[i] + 32) : a[i];
        if (c != b[i]) return false;
    }
    return true;
}

// The parts of a path as the attachment's values want them.
struct CAttachNames {
    std::string path;
    std::string name;       // behind the last separator; the path where there is none
    std::string shortName;  // at most seven characters before the dot; the path where there is no separator
    std::string extension;  // with its dot, or empty

    explicit CAttachNames(const char* text) : path(text), name(path), shortName(path) {
        const size_t separator = path.find_last_of("\\/");
        const size_t dot = path.rfind('.');
        if (dot != std::string::npos && (separator == std::string::npos || dot > separator))
            extension = path.substr(dot);
        if (separator == std::string::npos) return;
        name = path.substr(separator + 1);
        shortName = name;
        const size_t first = name.find('.');
        if (first != std::string::npos && first > 8) shortName = name.substr(0, 7) + name.substr(first);
    }
};

// Pictures are marked at once, so that they count as shown attachments even if the rest fails.
void MarkPicture(IAttachPtr& attach, const std::string& extension) {
    const bool jpg = EqualNoCase(extension, ".jpg");
    if (!jpg && !EqualNoCase(extension, ".gif")) return;
    SPropValue values[3] = {TextValue(PR_ATTACH_MIME_TAG_A, jpg ? "image/jpg" : "image/gif"),
                            LongValue(PR_ATTACHMENT_HIDDEN, 0), LongValue(PR_ATTACHMENT_FLAGS, 0)};
    attach.SetPropsHr(values, 3);
}

HRESULT FirstProblem(const SPropProblemArray* problems) {
    for (ULONG i = 0; problems && i < problems->cProblem; ++i) {
        if (const HRESULT hr = FAILED_HR(problems->aProblem[i].scode, "AddAttachment")) return hr;
    }
    return S_OK;
}

HRESULT SetNames(IAttachPtr& attach, const CAttachNames& names, LONG method) {
    SPropValue values[kCount];
    values[kFileName] = TextValue(PR_ATTACH_FILENAME_A, names.name.c_str());
    values[kLongName] = TextValue(PR_ATTACH_LONG_FILENAME_A, names.name.c_str());
    values[kLocation] = TextValue(PR_ATTACH_CONTENT_LOCATION_A, names.shortName.c_str());
    values[kMethod] = LongValue(PR_ATTACH_METHOD, method);
    values[kPosition] = LongValue(PR_RENDERING_POSITION, 2000);
    values[kDisplayName] = TextValue(PR_DISPLAY_NAME_A, names.name.c_str());
    values[kExtension] = TextValue(PR_ATTACH_EXTENSION_A, names.extension.c_str());
    values[kTag] = SPropValue{};
    values[kTag].ulPropTag = PR_ATTACH_TAG;
    values[kTag].Value.bin = SBinary{sizeof s_mimeTag, s_mimeTag};
    values[kFlags] = LongValue(PR_ATTACH_FLAGS, 1);
    SPropProblemArray* problems = nullptr;
    HRESULT hr = attach.SetPropsHr(values, kCount, &problems);
    if (hr >= 0) hr = FirstProblem(problems);
    if (problems) MAPIFreeBuffer(problems);
    return hr;
}

// Saves the attachment where the caller does not want it, otherwise hands it over.
HRESULT Finish(IAttachPtr& attach, IAttachPtr* out) {
    if (!out) return attach->SaveChanges(FORCE_SAVE);
    *out = attach;
    return S_OK;
}

}  // namespace

HRESULT IMessagePtr::AddAttachment(const char* path, LONG method, IAttachPtr& out) {
    out.Free();
    IMessage* raw = NotNull(m_object.Get(), "IMessagePtr::AddAttachment");
    ULONG number = 0;
    HRESULT hr = raw->CreateAttach(&IID_IAttachment, 0, &number, out.Out());
    if (hr < 0) return hr;
    out.SetText(Text());
    if (!path) return hr;
    NotNull(out.Get(), "IMessage::CreateAttach");
    const CAttachNames names(path);
    MarkPicture(out, names.extension);
    hr = SetNames(out, names, method);
    if (hr < 0) return hr;
    const SPropValue flags = LongValue(PR_ATTACH_FLAGS, 1);
    SetOneProp(&flags);
    return S_OK;
}

HRESULT IMessagePtr::AddAttachmentData(const void* data, ULONG cb, const char* path, IAttachPtr* out) {
    IAttachPtr attach;
    HRESULT hr = AddAttachment(path, ATTACH_BY_VALUE, attach);
    if (hr < 0) return hr;
    CComPtr<IStream> stream;
    hr = attach.OpenStream(PR_ATTACH_DATA_BIN, 1, MAPI_MODIFY | MAPI_CREATE, stream);
    if (hr < 0) return hr;
    hr = WriteAll(stream.Get(), data, cb, cb);
    if (hr < 0) return hr;
    hr = stream->Commit(0);
    if (hr < 0) return hr;
    stream.Free();
    return Finish(attach, out);
}

HRESULT IMessagePtr::AddAttachmentFile(std::FILE* file, const char* path, IAttachPtr* out) {
    IAttachPtr attach;
    HRESULT hr = AddAttachment(path, ATTACH_BY_VALUE, attach);
    if (hr < 0) return hr;
    CComPtr<IStream> stream;
    hr = attach.OpenStream(PR_ATTACH_DATA_BIN, 1, MAPI_MODIFY | MAPI_CREATE, stream);
    if (hr < 0) return hr;
    char block[1024];
    size_t count;
    while ((count = std::fread(block, 1, sizeof block, NotNull(file, "AddAttachmentFile"))) > 0) {
        hr = WriteAll(stream.Get(), block, static_cast<ULONG>(count));
        if (hr != 0) return hr;
    }
    if (std::ferror(file)) return static_cast<HRESULT>(MAPI_E_DISK_ERROR);
    hr = stream->Commit(0);
    if (hr < 0) return hr;
    stream.Free();
    return Finish(attach, out);
}

bool IMessagePtr::ReadAttachment(ULONG number, std::string& data) const {
    data.clear();
    if (!m_object) return false;
    IAttachPtr attach;
    CComPtr<IStream> stream;
    if (m_object->OpenAttach(number, nullptr, 0, attach.Out()) < 0 || !attach) return false;
    if (attach.OpenStream(PR_ATTACH_DATA_BIN, 0, 0, stream) < 0) return false;
    STATSTG stat{};
    if (stream->Stat(&stat, STATFLAG_NONAME) < 0 || stat.cbSize.QuadPart > kStreamLimit) return false;
    if (ReadToEnd(stream.Get(), data, 0x10000, static_cast<size_t>(stat.cbSize.QuadPart)) >= 0) return true;
    data.clear();
    return false;
}
