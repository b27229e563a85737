#include <Programs/vellum/Mailbox/Pff/PffWalk.h>

#include <Platform/Files.h>
#include <Programs/vellum/Mailbox/Pff/PffProperties.h>

#include <set>

namespace {

// Deeper than any real mailbox; a damaged file can refer to itself.
constexpr int maxFolderDepth = 64;
constexpr int maxEmbeddedDepth = 16;
constexpr std::uint32_t propertyIpmSubtreeEntryId = 0x35E0;
constexpr std::uint32_t propertyContainerClass = 0x3613;
constexpr std::size_t cbEntryId = 24;

class CPffWalk {
public:
    explicit CPffWalk(const MailboxSink& sink) : m_sink(sink), m_properties(sink) {}
    std::string Run(const std::string& path);

private:
    bool OpenTop(CPffItem& top);
    std::uint32_t TopIdentifier();
    std::uint32_t CountItems(libpff_item_t* folder, int depth);
    void WalkFolderContents(libpff_item_t* folder, int depth);
    void WalkSubFolders(libpff_item_t* folder, int depth);
    void WalkItem(libpff_item_t* item, int depth, MailboxEventKind begin, MailboxEventKind end);
    void WalkRecipients(libpff_item_t* item);
    void WalkAttachments(libpff_item_t* item, int depth);
    void WalkAttachment(libpff_item_t* attachment, int depth);
    bool IsNew(libpff_item_t* item);
    void Emit(MailboxEventKind kind, const std::string& text = {}) {
        CMailboxEvent event;
        event.kind = kind;
        event.text = text;
        m_sink(event);
    }
    void Warn(const std::string& text) { Emit(MailboxEventKind::Warning, text); }

    const MailboxSink& m_sink;
    CPffProperties m_properties;
    CPffFile m_file;
    std::set<std::uint32_t> m_seen;  // identifiers of folders and items: none is delivered twice
};

bool CPffWalk::IsNew(libpff_item_t* item) {
    CPffError error;
    std::uint32_t identifier = 0;
    if (libpff_item_get_identifier(item, &identifier, error) != 1) return true;
    return m_seen.insert(identifier).second;
}

// The number of the folder that holds what the user sees; its parent also holds search folders and
// bookkeeping.
std::uint32_t CPffWalk::TopIdentifier() {
    CPffError error;
    CPffItem store;
    if (libpff_file_get_message_store(m_file, store.Out(), error) != 1) return 0;
    const auto entryId = CPffProperties::ReadBinary(store, propertyIpmSubtreeEntryId, cbEntryId);
    if (!entryId || entryId->size() < cbEntryId) return 0;
    std::uint32_t identifier = 0;
    for (std::size_t i = 0; i < 4; ++i)
        identifier |= static_cast<std::uint32_t>(static_cast<unsigned char>((*entryId)[cbEntryId - 4 + i]))
                      << (8 * i);
    return identifier;
}

bool CPffWalk::OpenTop(CPffItem& top) {
    CPffError error;
    const std::uint32_t identifier = TopIdentifier();
    if (identifier != 0 && libpff_file_get_item_by_identifier(m_file, identifier, top.Out(), error) == 1)
        return true;
    return libpff_file_get_root_folder(m_file, top.Out(), error) == 1;
}

std::uint32_t CPffWalk::CountItems(libpff_item_t* folder, int depth) {
    CPffError error;
    int items = 0;
    int folders = 0;
    std::uint32_t total = 0;
    if (libpff_folder_get_number_of_sub_messages(folder, &items, error) == 1 && items > 0)
        total = static_cast<std::uint32_t>(items);
    if (depth >= maxFolderDepth || !IsNew(folder)) return total;
    if (libpff_folder_get_number_of_sub_folders(folder, &folders, error) != 1) return total;
    for (int i = 0; i < folders; ++i) {
        CPffItem child;
        if (libpff_folder_get_sub_folder(folder, i, child.Out(), error) == 1)
            total += CountItems(child, depth + 1);
    }
    return total;
}

void CPffWalk::WalkFolderContents(libpff_item_t* folder, int depth) {
    CPffError error;
    int count = 0;
    if (libpff_folder_get_number_of_sub_messages(folder, &count, error) != 1) {
        Warn("the list of the folder's items cannot be read");
        count = 0;
    }
    for (int i = 0; i < count; ++i) {
        CPffItem item;
        if (libpff_folder_get_sub_message(folder, i, item.Out(), error) != 1)
            Warn("item " + std::to_string(i + 1) + " of " + std::to_string(count) + " cannot be read");
        else if (IsNew(item))
            WalkItem(item, 0, MailboxEventKind::ItemBegin, MailboxEventKind::ItemEnd);
    }
    WalkSubFolders(folder, depth);
}

void CPffWalk::WalkSubFolders(libpff_item_t* folder, int depth) {
    CPffError error;
    int count = 0;
    if (libpff_folder_get_number_of_sub_folders(folder, &count, error) != 1) {
        Warn("the list of subfolders cannot be read");
        return;
    }
    if (count > 0 && depth >= maxFolderDepth) {
        Warn("the folders are nested too deeply; those further down are left out");
        return;
    }
    for (int i = 0; i < count; ++i) {
        CPffItem child;
        if (libpff_folder_get_sub_folder(folder, i, child.Out(), error) != 1) {
            Warn("subfolder " + std::to_string(i + 1) + " of " + std::to_string(count) + " cannot be read");
            continue;
        }
        if (!IsNew(child)) continue;
        CMailboxEvent begin;
        begin.kind = MailboxEventKind::FolderBegin;
        begin.text = CPffProperties::FolderName(child);
        begin.bytes = CPffProperties::ReadText(child, propertyContainerClass);
        m_sink(begin);
        WalkFolderContents(child, depth + 1);
        Emit(MailboxEventKind::FolderEnd);
    }
}

void CPffWalk::WalkItem(libpff_item_t* item, int depth, MailboxEventKind begin, MailboxEventKind end) {
    Emit(begin);
    if (!m_properties.SendFirstSet(item, 0)) Warn("some of its properties cannot be read");
    WalkRecipients(item);
    WalkAttachments(item, depth);
    Emit(end);
}

void CPffWalk::WalkRecipients(libpff_item_t* item) {
    CPffError error;
    CPffItem recipients;
    const int found = libpff_message_get_recipients(item, recipients.Out(), error);
    int count = 0;
    if (found == 0) return;
    if (found != 1 || libpff_item_get_number_of_record_sets(recipients, &count, error) != 1) {
        Warn("its recipients cannot be read");
        return;
    }
    for (int i = 0; i < count; ++i) {
        CPffRecordSet set;
        if (libpff_item_get_record_set_by_index(recipients, i, set.Out(), error) != 1) {
            Warn("recipient " + std::to_string(i + 1) + " cannot be read");
            continue;
        }
        Emit(MailboxEventKind::RecipientBegin);
        if (!m_properties.SendSet(set, 0))
            Warn("some properties of recipient " + std::to_string(i + 1) + " cannot be read");
        Emit(MailboxEventKind::RecipientEnd);
    }
}

void CPffWalk::WalkAttachments(libpff_item_t* item, int depth) {
    CPffError error;
    int count = 0;
    if (libpff_message_get_number_of_attachments(item, &count, error) != 1) {
        Warn("its attachments cannot be read");
        return;
    }
    for (int i = 0; i < count; ++i) {
        CPffItem attachment;
        if (libpff_message_get_attachment(item, i, attachment.Out(), error) != 1) {
            Warn("attachment " + std::to_string(i + 1) + " cannot be read");
            continue;
        }
        Emit(MailboxEventKind::AttachmentBegin);
        WalkAttachment(attachment, depth);
        Emit(MailboxEventKind::AttachmentEnd);
    }
}

void CPffWalk::WalkAttachment(libpff_item_t* attachment, int depth) {
    CPffError error;
    if (!m_properties.SendFirstSet(attachment, CPffProperties::attachmentData))
        Warn("some properties of an attachment cannot be read");
    int type = LIBPFF_ATTACHMENT_TYPE_UNDEFINED;
    if (libpff_attachment_get_type(attachment, &type, error) != 1) return;
    if (type == LIBPFF_ATTACHMENT_TYPE_DATA) {
        if (!m_properties.SendAttachmentData(attachment)) Warn("the data of an attachment cannot be read");
        return;
    }
    if (type != LIBPFF_ATTACHMENT_TYPE_ITEM) return;
    CPffItem embedded;
    if (depth >= maxEmbeddedDepth)
        Warn("items are embedded in each other too deeply; those further down are left out");
    else if (libpff_attachment_get_item(attachment, embedded.Out(), error) != 1)
        Warn("an embedded item cannot be read");
    else
        WalkItem(embedded, depth + 1, MailboxEventKind::EmbeddedBegin, MailboxEventKind::EmbeddedEnd);
}

std::string CPffWalk::Run(const std::string& path) {
    CPffError error;
    if (libpff_file_initialize(m_file.Out(), error) != 1) return "out of memory";
    if (libpff_file_open(m_file, path.c_str(), LIBPFF_OPEN_READ, error) != 1)
        return "the file is damaged: its header or its indexes cannot be read";
    CPffItem top;
    if (!OpenTop(top)) return "the file is damaged: its folders cannot be found";
    CMailboxEvent total;
    total.kind = MailboxEventKind::Total;
    total.number = CountItems(top, 0);
    m_sink(total);
    m_seen.clear();
    WalkFolderContents(top, 0);
    return {};
}

}  // namespace

std::string MailboxProblem(const std::string& path) {
    if (!FileExists(path)) return "there is no such file";
    CPffError error;
    const int signature = libpff_check_file_signature(path.c_str(), error);
    if (signature == 1) return {};
    return signature == 0 ? "it is no mailbox file (.pst, .ost)" : "it cannot be read";
}

std::string WalkMailbox(const std::string& path, const MailboxSink& sink) {
    return CPffWalk(sink).Run(path);
}
