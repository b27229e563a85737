// The entry of every run: which kind of pair it is, and the subfolders that both sides have by name.
#include <Platform/UserInterface.h>
#include <Tarn/Engine/FolderKey.h>
#include <Tarn/Engine/FolderLevel.h>
#include <Tarn/Engine/MessageCache.h>
#include <Tarn/Engine/syncfolder.h>

namespace {
// No folder tree of a person is this deep; a store that names a folder as its own child is.
constexpr int MaxDepth = 500;

// The folder of a level, as the entry opens it.
IMAPIFolderPtr OpenParent(const CMapiSession& session, const CFolderKey& key) {
    if (key.m_folder.IsEmpty() || key.m_store.IsEmpty())
        throw CMAPIException(MAPI_E_INVALID_ENTRYID, "SyncSubFolder", nullptr);
    const IMAPIFolderPtr folder = session.OpenStore(key.m_store).OpenEntry(key.m_folder).As<IMAPIFolderPtr>();
    if (!folder) throw CMAPIException(MAPI_E_NOT_FOUND, "SyncSubFolder", nullptr);
    return folder;
}

// An unreadable hierarchy gives no children, and the pair itself still runs.
template <class Body>
void Enclosed(CSyncFolder& engine, Body body) {
    try {
        body();
    } catch (const CMAPIException& e) {
        ++engine.m_outcome.phasesFailed;
        NoteException(e, "CSyncFolder::SyncFolder");
    }
}
}  // namespace

// --- construction ------------------------------------------------------------------------------------

CSyncFolder::CSyncFolder() : m_cache(std::make_unique<CMessageCache>()) {}

CSyncFolder::~CSyncFolder() {
    CloseTraceFile();
}

int CSyncFolder::SyncPrepared() {
    if (!m_setting) m_setting = &m_ownSetting;
    m_running = true;
    const int answer = SyncSubFolder(m_sourceText, m_targetText, m_toTarget, m_toSource, m_deletions,
                                     m_withSubfolders, m_createFolders);
    m_running = false;
    return answer;
}

// --- the walk ----------------------------------------------------------------------------------------

int CSyncFolder::SyncSubFolder(const std::string& source, const std::string& target, bool toTarget,
                               bool toSource, bool findDeletions, bool withSubfolders, bool createFolders) {
    if (m_setting) {
        if (m_setting->Has(SYNC_TRACE_FILE)) OpenTraceFile();
        if (m_setting->Has(SYNC_BY_DIRECTORY) || !m_setting->m_emails.empty()) return RefuseTransport();
    }
    if (m_depth == 0) m_walkCancelled = m_sidesSwapped = false;
    if (withSubfolders) {
        CDirections directions{toTarget, toSource, findDeletions, createFolders};
        SyncChildren(source, target, directions);
    }
    return SyncFolder(source, target, toTarget, toSource, findDeletions);
}

int CSyncFolder::RefuseTransport() {
    m_outcome.notAvailable = true;
    ShowMessageBox(m_setting->Has(SYNC_BY_DIRECTORY)
                       ? "Synchronisation by a directory of files is not available yet. Nothing was changed."
                       : "Synchronisation by e-mail is not available yet. Nothing was changed.",
                   "Vellum");
    return 1;
}

void CSyncFolder::SyncChildren(const std::string& sourceText, const std::string& targetText,
                               const CDirections& directions) {
    if (EndsWalk()) return;
    if (m_depth >= MaxDepth) {
        ShowMessageBox("The folders are nested too deeply to be followed further.", "Vellum");
        return;
    }
    ++m_depth;
    const bool swapped = m_sidesSwapped;
    try {
        SyncLevel(sourceText, targetText, directions);
    } catch (...) {
        --m_depth;
        m_sidesSwapped = swapped;
        throw;
    }
    --m_depth;
}

void CSyncFolder::SyncLevel(const std::string& sourceText, const std::string& targetText,
                            const CDirections& directions) {
    CFolderKey sourceKey, targetKey;
    CFolderLevel source, target;
    Enclosed(*this, [&] {
        sourceKey = CFolderKey::FromText(sourceText);
        source.ReadSource(OpenParent(m_session, sourceKey));
    });
    Enclosed(*this, [&] {
        targetKey = CFolderKey::FromText(targetText);
        target.ReadTarget(OpenParent(m_session, targetKey));
    });
    // Children that could not be listed are not children that are missing.
    if (!source.rows.IsValid() || !target.rows.IsValid()) return;

    const CLevelMatch match(source, target);
    for (const auto& [i, j] : match.pairs) {
        if (EndsWalk()) return;
        TraceText(m_traceFile, "Folder equal, synchronizing sub folders\n");
        SyncSubFolder(CFolderKey::ToText(source.ChildId(i), sourceKey.m_store.Bin()),
                      CFolderKey::ToText(target.ChildId(j), targetKey.m_store.Bin()), directions.toTarget,
                      directions.toSource, directions.findDeletions, true, directions.createFolders);
    }
    if (EndsWalk()) return;
    for (const CLevelMatch::CNamesake& namesake : match.namesakes)
        NoteNamesake((namesake.inSource ? source : target).folder, namesake.name);
    for (const ULONG row : match.inSourceAlone)
        CreateOrNote(source, row, target.folder, directions);
    m_sidesSwapped = !m_sidesSwapped;
    for (const ULONG row : match.inTargetAlone)
        CreateOrNote(target, row, source.folder, directions.Exchanged());
    m_sidesSwapped = !m_sidesSwapped;
}

std::string NamesakeText(const std::string& path) {
    return "There is more than one folder \"" + path +
           "\". The first of them is synchronised.\nRename the other one to have it synchronised as well.";
}

void CSyncFolder::NoteNamesake(const IMAPIFolderPtr& parent, const std::string& name) {
    std::string path = name;
    try {
        path = GetFolderPath(m_session, parent, '\\') + "\\" + name;
    } catch (const CMAPIException& e) {
        NoteException(e, "CSyncFolder::SyncFolder");
    }
    ++m_outcome.pairsNotOpened;
    ShowMessageBox(NamesakeText(path), "Tarn");
}

// A folder that is made costs as much as one that is run, so each asks.
bool CSyncFolder::EndsWalk() {
    return m_stoppedByGuard || m_walkCancelled || PollCancelled();
}

// A folder without counterpart: made on the other side, or told to the person. From the folder that is there
// to the one that is not is the direction to the target.
void CSyncFolder::CreateOrNote(const CFolderLevel& level, ULONG row, const IMAPIFolderPtr& otherParent,
                               const CDirections& directions) {
    if (EndsWalk()) return;
    // Nothing would ever come into the other one.
    if (directions.createFolders && !directions.toTarget) return;
    const std::string name = level.ChildName(row);
    const std::string path = ChildPath(level.folder, level.ChildId(row), name);
    TraceFormat(m_traceFile, "Source to Target: %s does not have a counterpart, creating folder\n",
                path.c_str());
    if (directions.createFolders)
        SyncAndCreateFolder(level.folder, otherParent, name, level.rows, directions.toTarget,
                            directions.toSource, directions.findDeletions, true, true);
    else
        m_missingFolders.push_back(path);
    TraceFormat(m_traceFile, "%s\n", path.c_str());
}

std::string CSyncFolder::ChildPath(const IMAPIFolderPtr& parent, const SBinary& entryId,
                                   const std::string& name) {
    try {
        const IMAPIFolderPtr child = parent.OpenEntryv(entryId).As<IMAPIFolderPtr>();
        if (child) return GetFolderPath(m_session, child, '\\');
    } catch (const CMAPIException& e) {
        NoteException(e, "CSyncFolder::SyncFolder");
    }
    return name;
}

// --- creation ----------------------------------------------------------------------------------------

namespace {
// The row of the folder with that name, or -1.
int RowOfName(const CMapiRowSet& rows, const std::string& name) {
    return rows.IsValid() ? rows.FindRow(CHILD_NAME, name) : -1;
}
}  // namespace

// To mix the items of two folders cannot be taken back.
void CSyncFolder::TellOneFolderForTwo(const std::string& name) {
    ++m_outcome.phasesFailed;
    ShowMessageBox(
        "The folder \"" + name +
            "\" is left out: the other side has a folder whose name differs by upper and lower case "
            "alone, and its store cannot hold both. Rename one of the two folders.",
        "Vellumware");
}

void CSyncFolder::SyncAndCreateFolder(const IMAPIFolderPtr& existingParent, const IMAPIFolderPtr& parent,
                                      const std::string& name, const CMapiRowSet& rows, bool toTarget,
                                      bool toSource, bool findDeletions, bool withSubfolders,
                                      bool createFolders) {
    const int row = RowOfName(rows, name);
    if (row < 0) return;
    std::string existing, created;
    try {
        MARK_POSITION();
        const CMapiPropValue existingId = rows.Cell(static_cast<ULONG>(row), CHILD_ENTRYID);
        if (IsTracing())
            TraceFormat(m_traceFile, "Create Folder %s src = %s\n", name.c_str(),
                        existingParent.GetStrPropOrEmpty(PR_DISPLAY_NAME_A).c_str());
        MARK_POSITION();
        IMAPIFolderPtr folder = parent.CreateFolder(FOLDER_GENERIC, name, "", OPEN_IF_EXISTS);
        MARK_POSITION();
        if (folder.GetStrProp(PR_DISPLAY_NAME_A) != name) return TellOneFolderForTwo(name);
        const CMapiPropValue containerClass = rows.Cell(static_cast<ULONG>(row), CHILD_CLASS);
        if (containerClass.Type() == PT_STRING8 && !containerClass.Str().empty())
            folder.SetStrProp(PR_CONTAINER_CLASS_A, containerClass.Str());
        folder.SaveChanges(KEEP_OPEN_READWRITE);
        MARK_POSITION();
        existing = CFolderKey::ToText(existingId.Binary(), existingParent.GetBinProp(PR_STORE_ENTRYID).Bin());
        created = CFolderKey::ToText(folder.GetBinProp(PR_ENTRYID).Bin(),
                                     folder.GetBinProp(PR_STORE_ENTRYID).Bin());
    } catch (const CMAPIException& e) {
        ++m_outcome.phasesFailed;
        ShowMessageBox("Error " + e.GetErrorText() + " during folder creation " + name, "Vellumware");
        return;
    } catch (...) {
        ++m_outcome.phasesFailed;
        ShowMessageBox("Fatal error during folder creation " + name, "Vellumware");
        return;
    }
    SyncSubFolder(existing, created, toTarget, toSource, findDeletions, withSubfolders, createFolders);
}
