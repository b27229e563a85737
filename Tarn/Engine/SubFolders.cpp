// The entry of every run: which kind of pair it is, and the subfolders that both sides have by name.
#include <Platform/UserInterface.h>
#include <Tarn/Engine/FolderKey.h>
#include <Tarn/Engine/MessageCache.h>
#include <Tarn/Engine/syncfolder.h>

#include <unordered_map>

namespace {
// No folder tree of a person is this deep; a store that names a folder as its own child is.
constexpr int MaxDepth = 500;

enum ChildColumn : ULONG { CHILD_ENTRYID, CHILD_NAME, CHILD_CLASS };

// One side of a level of the tree.
struct Level {
    CMapiBinary storeId;
    IMsgStorePtr store;
    IMAPIFolderPtr folder;
    IMAPITablePtr children;
    CMapiRowSet rows;
};

ULONG RowCount(const Level& level) {
    return level.rows.IsValid() ? level.rows.Count() : 0;
}

// Null if the row has no entry ID.
SBinary* ChildId(const Level& level, ULONG row) {
    const CMapiPropValue id = level.rows.Cell(row, CHILD_ENTRYID);
    return id.Type() == PT_BINARY ? &id.Get()->Value.bin : nullptr;
}

// Until the folder has its counterpart.
bool HasId(const Level& level, ULONG row) {
    const SBinary* id = ChildId(level, row);
    return id && id->cb != 0;
}

std::string ChildKey(const Level& level, ULONG row) {
    const SBinary* id = ChildId(level, row);
    return CFolderKey::ToText(id ? *id : SBinary{}, level.storeId.Bin());
}

// The row of a name that differs by case alone, which is the same name to most stores; -1 for none or more.
int RowWithoutCase(const Level& level, const std::string& name) {
    SPropValue value{};
    value.ulPropTag = PR_DISPLAY_NAME_A;
    value.Value.lpszA = const_cast<char*>(name.c_str());
    SRestriction equal{};
    equal.rt = RES_CONTENT;
    equal.res.resContent = {FL_FULLSTRING | FL_IGNORECASE, PR_DISPLAY_NAME_A, &value};
    try {
        level.children.Restrict(&equal, TBL_BATCH);
        const CMapiRowSet found = level.children.QueryRows({PR_DISPLAY_NAME_A});
        return found.Count() == 1 ? level.rows.FindRow(CHILD_NAME, found.Cell(0, 0).Str()) : -1;
    } catch (const CMAPIException& e) {
        NoteException(e, "CSyncFolder::SyncFolder");
        return -1;
    }
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

void OpenLevel(const CMapiSession& session, const CFolderKey& key, Level& level) {
    level.storeId = key.m_store;
    if (key.m_folder.IsEmpty() || key.m_store.IsEmpty())
        throw CMAPIException(MAPI_E_INVALID_ENTRYID, "SyncSubFolder", nullptr);
    level.store = session.OpenStore(key.m_store);
    level.folder = level.store.OpenEntry(key.m_folder).As<IMAPIFolderPtr>();
    if (!level.folder) throw CMAPIException(MAPI_E_NOT_FOUND, "SyncSubFolder", nullptr);
    level.children = level.folder._rawHierrarchyTable();
}

void SortByName(const Level& level) {
    SSortOrderSet order{};
    order.cSorts = 1;
    order.aSort[0] = {PR_DISPLAY_NAME_A, TABLE_SORT_DESCEND};
    THROW_ON_FAILURE_FOR(level.children->SortTable(&order, TBL_BATCH), level.children.Get());
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
    Level source, target;
    Enclosed(*this, [&] {
        OpenLevel(m_session, CFolderKey::FromText(sourceText), source);
        source.rows = source.children.QueryRows({PR_ENTRYID, PR_DISPLAY_NAME_A, PR_CONTAINER_CLASS_A});
    });
    Enclosed(*this, [&] {
        OpenLevel(m_session, CFolderKey::FromText(targetText), target);
        SortByName(target);
        target.rows = target.children.QueryRows({PR_ENTRYID, PR_DISPLAY_NAME_A});
    });
    // Children that could not be listed are not children that are missing.
    if (!source.rows.IsValid() || !target.rows.IsValid()) return;

    // By name, so that a thousand folders on each side do not cost a million comparisons.
    std::unordered_map<std::string, std::vector<ULONG>> named;
    for (ULONG j = 0; j < RowCount(target); ++j)
        named[target.rows.Cell(j, CHILD_NAME).Str()].push_back(j);
    const auto synchronise = [&](ULONG i, ULONG j) {
        TraceText(m_traceFile, "Folder equal, synchronizing sub folders\n");
        SyncSubFolder(ChildKey(source, i), ChildKey(target, j), directions.toTarget, directions.toSource,
                      directions.findDeletions, true, directions.createFolders);
        if (SBinary* id = ChildId(source, i)) id->cb = 0;
        if (SBinary* id = ChildId(target, j)) id->cb = 0;
    };
    for (ULONG i = 0; i < RowCount(source); ++i) {
        const auto equal = named.find(source.rows.Cell(i, CHILD_NAME).Str());
        if (equal == named.end()) continue;
        for (const ULONG j : equal->second) {
            if (EndsWalk()) return;
            const bool first = HasId(source, i) && HasId(target, j);
            if (first) {
                synchronise(i, j);
            } else {
                const Level& twice = HasId(source, i) ? source : target;
                NoteNamesake(twice.folder, equal->first);
            }
            if (SBinary* id = ChildId(source, i)) id->cb = 0;
            if (SBinary* id = ChildId(target, j)) id->cb = 0;
        }
    }

    for (ULONG i = 0; i < RowCount(source); ++i) {
        if (!HasId(source, i)) continue;
        const int j = RowWithoutCase(target, source.rows.Cell(i, CHILD_NAME).Str());
        if (j < 0 || !HasId(target, static_cast<ULONG>(j))) continue;
        if (EndsWalk()) return;
        synchronise(i, static_cast<ULONG>(j));
    }

    const auto missing = [&](const Level& level, const Level& other) {
        for (ULONG row = 0; row < RowCount(level); ++row) {
            const SBinary* id = ChildId(level, row);
            if (id && id->cb != 0)
                CreateOrNote(level.folder, other.folder, *id, level.rows.Cell(row, CHILD_NAME).Str(),
                             level.rows, directions);
        }
    };
    missing(source, target);
    m_sidesSwapped = !m_sidesSwapped;
    missing(target, source);
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

// A folder without counterpart: made on the other side, or told to the person.
void CSyncFolder::CreateOrNote(const IMAPIFolderPtr& parent, const IMAPIFolderPtr& otherParent,
                               const SBinary& entryId, const std::string& name, const CMapiRowSet& rows,
                               const CDirections& directions) {
    if (EndsWalk()) return;
    const std::string path = ChildPath(parent, entryId, name);
    TraceFormat(m_traceFile, "Source to Target: %s does not have a counterpart, creating folder\n",
                path.c_str());
    if (directions.createFolders)
        SyncAndCreateFolder(parent, otherParent, name, rows, directions.toTarget, directions.toSource,
                            directions.findDeletions, true, true);
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
