// Reading a mailbox file (.pst, .ost) as a stream of events, so that a mailbox of any size passes
// through a bounded buffer. Nothing here knows of MAPI; the importer turns events into items.
#pragma once
#include <array>
#include <cstdint>
#include <memory>
#include <string>

enum class MailboxEventKind : std::uint8_t {
    End,          // last event; text says why the file could not be read to its end, or is empty
    Total,        // first event: number = items in all folders that will follow, 0 if not known
    FolderBegin,  // text = display name, bytes = container class
    FolderEnd,
    ItemBegin,  // properties, recipients and attachments follow
    ItemEnd,
    RecipientBegin,
    RecipientEnd,
    AttachmentBegin,
    AttachmentEnd,
    EmbeddedBegin,  // inside an attachment: an item with properties, recipients and attachments
    EmbeddedEnd,
    Property,  // tag, name (if isNamed), bytes; with `more` the value goes on in PropertyData
    PropertyData,
    Warning,  // text = what could not be read at this place
};

// The name of a named property: set and number, or set and text.
struct CMailboxName {
    std::array<std::uint8_t, 16> set{};  // GUID as it lies in memory
    bool byText = false;
    std::uint32_t number = 0;
    std::string text;  // UTF-8

    bool operator<(const CMailboxName& other) const;
};

// One event. The value of a property in `bytes`:
//   PT_STRING8            UTF-8 without a terminating zero
//   PT_UNICODE            UTF-16LE without a terminating zero
//   PT_BINARY             the bytes
//   other single types    little-endian, as wide as the type (PT_BOOLEAN one or two bytes)
//   multi-valued types    for each value a 32-bit length and the value; texts are UTF-8
struct CMailboxEvent {
    MailboxEventKind kind = MailboxEventKind::End;
    bool isNamed = false;
    bool more = false;
    std::uint32_t tag = 0;  // property type in the low word, identifier in the high one (0 if named)
    std::uint32_t number = 0;
    CMailboxName name;
    std::string text;
    std::string bytes;
};

class IMailboxReader {
public:
    virtual ~IMailboxReader() = default;
    // The next event; after End it must not be called again. Events nest properly also when the file
    // is damaged: every Begin that was delivered before a breakdown gets its End.
    virtual CMailboxEvent Next() = 0;
};

// Why the file cannot be read as a mailbox: it does not open, its first bytes are not those of a
// mailbox, or this build has no reader. Empty if nothing speaks against it. Never throws.
std::string MailboxProblem(const std::string& path);

// Opens a mailbox file. Null and a reason in `error` on failure. Destroying the reader early gives up
// the reading.
std::unique_ptr<IMailboxReader> OpenMailbox(const std::string& path, std::string& error);
