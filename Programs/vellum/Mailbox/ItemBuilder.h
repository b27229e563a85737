// Builds one item of a store out of the events of a mailbox file.
#pragma once
#include <MapiWrapper/MapiWrapper.h>
#include <Programs/vellum/Mailbox/PropertyBatch.h>

#include <map>
#include <memory>
#include <string>
#include <vector>

// The numbers that one store gives the names of a mailbox file; asked for once each.
class CNameCache {
public:
    // The identifier in the high word, or 0 where the store has none for it.
    ULONG IdOf(IMAPIProp* object, const CMailboxName& name);

private:
    std::map<CMailboxName, ULONG> m_ids;
};

// Takes the events between ItemBegin and ItemEnd. Values up to a few dozen KB are gathered and set in
// one call, larger ones go through a stream, so memory stays bounded. Throws CMAPIException where the
// store refuses; the item is then given up by destroying the builder, and the store holds nothing of it.
class CItemBuilder {
public:
    CItemBuilder(const IMAPIFolderPtr& folder, CNameCache& names);
    void Take(const CMailboxEvent& event);
    // At ItemEnd.
    void Save();
    // What is known so far, for messages; in the system's code page.
    const std::string& Subject() const { return m_subject; }

private:
    // A message under way, or one of its attachments.
    struct Level {
        IMessagePtr message;  // empty for an attachment
        IAttachPtr attachment;
        CPropertyBatch properties;
        std::vector<std::unique_ptr<CPropertyBatch>> recipients;
        bool hasData = false;
    };
    IMAPIProp* Object() const;
    CPropertyBatch& Batch();
    void TakeProperty(const CMailboxEvent& event);
    void BeginStream(ULONG tag);
    void WriteStream(const CMailboxEvent& event);
    void FlushProperties();
    void FlushRecipients();
    void BeginAttachment();
    void EndAttachment();
    void BeginEmbedded();
    void EndEmbedded();

    CNameCache& m_names;
    std::vector<std::unique_ptr<Level>> m_levels;
    bool m_inRecipient = false;
    CComPtr<IStream> m_stream;
    bool m_dropStream = false;
    std::string m_subject;
};
