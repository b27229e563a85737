// The properties of libpff's items as events.
#pragma once
#include <Programs/vellum/Mailbox/Pff/PffHandles.h>
#include <Programs/vellum/Mailbox/Pff/PffWalk.h>

class CPffProperties {
public:
    // The identifier of an attachment's data, which goes by SendAttachmentData.
    static constexpr std::uint32_t attachmentData = 0x3701;

    explicit CPffProperties(const MailboxSink& sink) : m_sink(sink) {}

    // All properties of the item's first record set but for the identifier `without` (0: none). False
    // if something could not be read; what could be was sent.
    bool SendFirstSet(libpff_item_t* item, std::uint32_t without);
    bool SendSet(libpff_record_set_t* set, std::uint32_t without);
    // PR_ATTACH_DATA_BIN in chunks. False if the data broke off.
    bool SendAttachmentData(libpff_item_t* attachment);

    static std::string FolderName(libpff_item_t* folder);
    static std::string ReadText(libpff_item_t* item, std::uint32_t identifier);
    static std::optional<std::string> ReadBinary(libpff_item_t* item, std::uint32_t identifier,
                                                 std::size_t limit);

private:
    static bool FindEntry(libpff_item_t* item, std::uint32_t identifier, CPffRecordSet& set,
                          CPffRecordEntry& entry);
    enum class Outcome { Sent, Skipped, Failed };
    Outcome SendEntry(libpff_record_entry_t* entry, std::uint32_t without);
    bool FillName(libpff_record_entry_t* entry, std::uint32_t identifier, CMailboxEvent& event);
    bool SendNarrow(libpff_record_entry_t* entry, CMailboxEvent& event);
    bool SendMultiValue(libpff_record_entry_t* entry, std::uint32_t type, CMailboxEvent& event);
    bool SendRaw(libpff_record_entry_t* entry, CMailboxEvent& event);

    const MailboxSink& m_sink;
};
