#include <Programs/vellum/Mailbox/MailboxImporter.h>

#include <Platform/Machine.h>
#include <Platform/Utf8.h>
#include <Programs/vellum/Console/Utf8.h>
#include <Programs/vellum/Session/Explain.h>

#include <algorithm>

namespace {

// A backslash would be taken for the separator of a path.
std::string FolderNameFrom(const std::string& utf8) {
    std::string name = Utf8FromNarrow(utf8);
    std::replace(name.begin(), name.end(), '\\', '_');
    return name.empty() ? "Unnamed folder" : name;
}

bool EndsEverything(HRESULT hr) {
    return hr == MAPI_E_NOT_ENOUGH_DISK || hr == MAPI_E_DISK_ERROR || hr == MAPI_E_CORRUPT_STORE ||
           hr == MAPI_E_NO_ACCESS;
}

}  // namespace

CMailboxImporter::CMailboxImporter(CProfileSession& session, const CFolderRef& top, const Hooks& hooks)
    : m_session(session), m_hooks(hooks) {
    m_folders.push_back(top);
}

std::string CMailboxImporter::Place() const {
    std::string place = "\"" + m_folders.back().path + "\"";
    if (!m_inItem) return place;
    const std::string subject = m_item ? m_item->Subject() : std::string();
    return place + ", " + (subject.empty() ? "an item without subject" : "item \"" + subject + "\"");
}

void CMailboxImporter::Warn(const std::string& text) {
    m_hooks.warn(Place() + ": " + text);
    if (!m_inItem || !m_itemWarned) ++m_result.failed;
    m_itemWarned = m_inItem;
}

void CMailboxImporter::BeginFolder(const CMailboxEvent& event) {
    bool created = false;
    const CFolderRef folder = m_session.CreateSubfolder(m_folders.back(), FolderNameFrom(event.text),
                                                        Utf8FromNarrow(event.bytes), created);
    m_folders.push_back(folder);
    m_result.folders += created ? 1 : 0;
}

void CMailboxImporter::BeginItem() {
    m_inItem = true;
    m_itemWarned = false;
    m_hooks.progress(m_folders.back().path, m_done, m_total);
    m_item = std::make_unique<CItemBuilder>(m_folders.back().folder, m_names);
}

void CMailboxImporter::EndItem() {
    if (m_item) {
        m_item->Save();
        ++m_result.items;
    }
    m_item.reset();
    m_inItem = false;
    ++m_done;
}

void CMailboxImporter::GiveUpItem(const CMAPIException& reason) {
    if (EndsEverything(reason.Hr()))
        throw CCommandError(
            ExitCode::NotOpen,
            "The import into \"" + m_folders.front().path + "\" stopped: " + Explain(reason.Hr()),
            "What came before may be there:  vellum folder list \"" + m_folders.front().path + "\"");
    Warn("left out: " + Explain(reason.Hr()));
    m_item.reset();
}

void CMailboxImporter::Take(const CMailboxEvent& event) {
    switch (event.kind) {
        case MailboxEventKind::Total:
            m_total = event.number;
            return;
        case MailboxEventKind::FolderBegin:
            return BeginFolder(event);
        case MailboxEventKind::FolderEnd:
            if (m_folders.size() > 1) m_folders.pop_back();
            return;
        case MailboxEventKind::ItemBegin:
            return BeginItem();
        case MailboxEventKind::ItemEnd:
            return EndItem();
        case MailboxEventKind::Warning:
            return Warn(event.text);
        default:
            if (m_item) m_item->Take(event);
            return;
    }
}

CImportResult CMailboxImporter::Run(IMailboxReader& reader) {
    m_result = {};
    m_folders.resize(1);
    m_done = 0;
    while (true) {
        if (!m_inItem && m_hooks.cancelled()) {
            m_result.cancelled = true;
            return m_result;
        }
        const CMailboxEvent event = reader.Next();
        if (event.kind == MailboxEventKind::End) {
            if (!event.text.empty()) Warn(event.text);
            return m_result;
        }
        try {
            Take(event);
        } catch (const CMAPIException& e) {
            GiveUpItem(e);
            if (event.kind == MailboxEventKind::ItemEnd) {
                m_inItem = false;
                ++m_done;
            }
        }
    }
}
