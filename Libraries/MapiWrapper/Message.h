// A message: its bodies, recipients and attachments.
#pragma once
#include <MapiWrapper/Attach.h>
#include <MapiWrapper/GenMapiProp.h>
#include <MapiWrapper/Recipient.h>

#include <cstdio>
#include <string>
#include <vector>

class IMAPIFolderPtr;

class IMessagePtr : public CGenMapiPropPtr {
public:
    using Interface = IMessage;
    static const IID& InterfaceId() { return IID_IMessage; }

    IMessagePtr() = default;
    explicit IMessagePtr(IMessage* object) : m_object(object) {}  // adds a reference

    IMAPIProp* RawProp() const override { return m_object.Get(); }
    // Takes the caller's reference.
    void Attach(IMessage* object) {
        m_object.Attach(object);
        SetText(TextForm::Unknown);
    }
    IMessage* Detach() { return m_object.Detach(); }
    IMessage** Out() { return m_object.Out(); }
    IMessage* Get() const { return m_object.Get(); }
    IMessage* operator->() const { return NotNull(m_object.Get(), "IMessagePtr"); }

    // --- bodies and streams (MessageBody.cpp) -------------------------------------------------------
    // The plain body, whatever its size; empty if it cannot be read to its end. Never throws. In batch
    // mode it is read once.
    std::string GetBody() const;
    // Any string property, whatever its size; never throws.
    std::string GetLongText(ULONG tag) const;
    // The same for who writes the text back: empty only where the message has none. Throws where it
    // cannot be read to its end.
    std::string ReadText(ULONG tag) const;
    // Writes the text with its terminating zero as a stream. Throws only where the stream does not open
    // and the property cannot be set either.
    void SetBody(const std::string& text);
    // The uncompressed RTF. Throws.
    std::string GetRtf() const;
    // Does nothing where the stream does not open; throws where one that is open does not take the text.
    // With `sync` the other bodies follow (RTFSync).
    void SetRtf(const std::string& text, bool sync);
    // The HTML property, or what lies behind "\fromhtml1" in the RTF, or empty. Throws where the RTF
    // cannot be read.
    std::string GetHtml() const;
    // Stores HTML inside the RTF body; like SetRtf where the stream fails.
    void SetHtml(const std::string& html);
    // PR_SUBJECT_A; if that cannot be read PR_DISPLAY_NAME_A; never throws.
    std::string GetTitle() const;
    // All bytes of a property opened as a stream, read cbPortion at a time. Throws where it does not open.
    std::string ReadStream(ULONG tag, ULONG cbPortion) const;
    // A text, without a terminating zero. Throws where the stream does not open.
    void WriteStream(ULONG tag, const std::string& text);

    // --- recipients (MessageRecipients.cpp) ---------------------------------------------------------
    // Throws "IMessagePtr::rawGetRecipients" without an object.
    CRecipients rawGetRecipients() const;
    // Resolves and adds one recipient; recipientType is MAPI_TO and so on. MAPI_E_NO_SUPPORT for a null
    // session; otherwise the last HRESULT.
    HRESULT AddRecipient(IMAPISession* session, const std::string& displayName, const std::string& address,
                         const std::string& addressType, bool sendRich, LONG recipientType);

    // --- attachments (MessageAttachments.cpp) -------------------------------------------------------
    // The attachment gets its names from `path` (null: none are set). S_OK with `out` set and not
    // saved, or the first failing code; `out` then holds the attachment if one was created.
    HRESULT AddAttachment(const char* path, LONG method, IAttachPtr& out);
    // By value. Saved when no `out` is given; otherwise out is the unsaved attachment.
    HRESULT AddAttachmentData(const void* data, ULONG cb, const char* path, IAttachPtr* out = nullptr);
    HRESULT AddAttachmentFile(std::FILE* file, const char* path, IAttachPtr* out = nullptr);
    // True with all bytes; false and empty where the attachment cannot be read.
    bool ReadAttachment(ULONG number, std::string& data) const;

private:
    CComPtr<IMessage> m_object;
};

// The hidden message of `folder` with that subject and class. Not there: with `create` a new one,
// with both set and not saved, otherwise an empty wrapper. Throws.
IMessagePtr FindOrCreateHidden(const IMAPIFolderPtr& folder, const std::string& subject,
                               const std::string& messageClass, bool create);
