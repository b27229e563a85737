// Brings the folders and items of a mailbox file into a store.
#pragma once
#include <Programs/vellum/Mailbox/ItemBuilder.h>
#include <Programs/vellum/Session/ProfileSession.h>

#include <functional>
#include <string>
#include <vector>

struct CImportResult {
    unsigned items = 0;
    unsigned folders = 0;  // created
    unsigned failed = 0;   // items left out, items with something missing, and a file that broke off
    bool cancelled = false;
};

// One file after another may pass through one importer.
class CMailboxImporter {
public:
    struct Hooks {
        std::function<void(const std::string& text)> warn;
        std::function<void(const std::string& folder, unsigned done, unsigned total)> progress;
        std::function<bool()> cancelled;
    };
    CMailboxImporter(CProfileSession& session, const CFolderRef& top, const Hooks& hooks);

    // Reads to the end of the file, or until somebody cancels; then the item under way is given up.
    // What a damaged file or the store refuses is warned of and left out. Throws CCommandError where
    // going on makes no sense (the disk is full, a folder cannot be created).
    CImportResult Run(IMailboxReader& reader);

private:
    void Take(const CMailboxEvent& event);
    void BeginFolder(const CMailboxEvent& event);
    void BeginItem();
    void EndItem();
    void GiveUpItem(const CMAPIException& reason);
    void Warn(const std::string& text);
    std::string Place() const;

    CProfileSession& m_session;
    Hooks m_hooks;
    CNameCache m_names;
    std::vector<CFolderRef> m_folders;
    std::unique_ptr<CItemBuilder> m_item;
    bool m_inItem = false;
    bool m_itemWarned = false;
    unsigned m_total = 0;
    unsigned m_done = 0;
    CImportResult m_result;
};
