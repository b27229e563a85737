// The stamp on an item: writing it, finding items that bear another item's, and the text of private
// appointments.
#include <MapiWrapper/HexText.h>
#include <MapiWrapper/TagArray.h>
#include <Platform/Clock.h>
#include <Platform/Machine.h>
#include <Platform/UserInterface.h>
#include <Tarn/Engine/syncfolder.h>

#include <vector>

namespace {
constexpr ULONG RowsPerLook = 128;
constexpr DWORD StatusIntervalMs = 1000;
constexpr char AppointmentClass[] = "IPM.Appointment";
constexpr LONG LocationId = 0x8208;
constexpr GUID AppointmentSet = {0x00062002, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};

bool SameBinary(const CMapiPropValue& stamp, ULONG tag, const CMapiPropValue& real) {
    return stamp.Tag() == tag && EqualBinary(stamp.Binary(), real.Binary());
}

void DeleteOneProp(IMessagePtr& message, ULONG tag) {
    CTagArray tags({tag});
    THROW_ON_FAILURE_FOR(message->DeleteProps(tags.Get(), nullptr), message.Get());
}
}  // namespace

void CSyncFolder::QuerySyncRows(CMapiRowSet& rows, const IMAPIFolderPtr& folder, const IMAPITablePtr& table) {
    rows.Free();
    const CSyncTags& tags = TagsOf(folder.RawProp());
    rows = table.QueryRows({PR_ENTRYID, tags.larchId, PR_LAST_MODIFICATION_TIME, tags.larchEid, PR_SUBJECT_A,
                            PR_CREATION_TIME, PR_LONGTERM_ENTRYID_FROM_TABLE, PR_SENSITIVITY, PR_SEARCH_KEY,
                            PR_DISPLAY_NAME_A, CHANGE_PROP_TYPE(tags.privateMark, PT_BOOLEAN)});
}

// --- stamping --------------------------------------------------------------------------------------

bool CSyncFolder::SetSyncID(IMessagePtr& message, const std::string& syncId, bool force) {
    bool wrote = true;
    CSyncTags tags;
    try {
        MARK_POSITION();
        tags = TagsOf(message.RawProp());
    } catch (...) {
        ShowMessageBox(
            FormatText("Error on accessing the synchronzation ID in Line %d", CurrentPosition().line),
            "Vellum");
        return wrote;
    }
    try {
        MARK_POSITION();
        const CMapiPropValues values = message.GetProps(
            {PR_ENTRYID, PR_PARENT_ENTRYID, tags.larchEid, tags.larchParentEid, tags.larchId});
        wrote = force || values[4].Tag() != tags.larchId || values[4].Str() != syncId ||
                !SameBinary(values[2], tags.larchEid, values[0]) ||
                !SameBinary(values[3], tags.larchParentEid, values[1]);
        if (!wrote) return false;
        MARK_POSITION();
        SPropValue stamp[3] = {};
        stamp[0].ulPropTag = tags.larchEid;
        stamp[0].Value.bin = values[0].Binary();
        stamp[1].ulPropTag = tags.larchParentEid;
        stamp[1].Value.bin = values[1].Binary();
        stamp[2].ulPropTag = tags.larchId;
        stamp[2].Value.lpszA = const_cast<char*>(syncId.c_str());
        MARK_POSITION();
        THROW_ON_FAILURE_FOR(message.SetPropsHr(stamp, 3), message.Get());
    } catch (const CMAPIException& e) {
        ShowMessageBox(FormatText("Error %s in %s(%d)", e.GetErrorText().c_str(), SyncFolderSource,
                                  CurrentPosition().line),
                       "Tarn");
    } catch (...) {
        ShowMessageBox(FormatText("Crash in %s(%d)", SyncFolderSource, CurrentPosition().line), "Tarn");
    }
    return wrote;
}

// --- items that bear another item's stamp ------------------------------------------------------------

namespace {
// Why a row has to be given an identity of its own, if it has.
struct StampCheck {
    bool reset = false;
    bool keyMissing = false;
    bool keyShared = false;  // by another row
    CItemKeyView item;       // empty: the item never had a stamp and stays as it is
};

StampCheck CheckRow(const CMapiRowSet& rows, ULONG row) {
    StampCheck check;
    check.keyMissing = rows.Cell(row, COL_SEARCH_KEY).IsError();
    check.reset = check.keyMissing;
    const CMapiPropValue stamp = rows.Cell(row, COL_STAMP);
    if (stamp.IsError()) {
        check.reset = true;
        return check;
    }
    check.item = KeyOfRow(rows, row);
    if (!check.item.IsEmpty() && !EqualBinary(check.item, stamp.Binary())) check.reset = true;
    return check;
}

bool IsKeyShared(const CMapiRowSet& rows, ULONG row) {
    std::vector<ULONG> found;
    return rows.FindRows(COL_SEARCH_KEY, HexFromBinary(rows.Cell(row, COL_SEARCH_KEY).Binary()), found) > 1;
}

IMessagePtr OpenForChange(const IMAPIFolderPtr& folder, const SBinary& entryId) {
    try {
        return folder.OpenEntryv(entryId, MAPI_MODIFY).As<IMessagePtr>();
    } catch (const CMAPIException&) {
        return {};
    }
}

// Everything is written before the save, so a reset that fails half way leaves the item as it was.
// Its own is the search key as text, but for copies beside each other, which share that key.
void ResetIdentity(IMessagePtr& message, const CSyncTags& tags, const StampCheck& check) {
    if (check.keyMissing) {
        GUID key = NewGuid();
        message.SetProp(PR_SEARCH_KEY, SBinary{sizeof key, reinterpret_cast<BYTE*>(&key)});
    }
    DeleteOneProp(message, tags.larchId);
    DeleteOneProp(message, tags.larchEid);
    DeleteOneProp(message, tags.larchParentEid);
    message.SetProp(tags.larchEid, SBinary(CItemKey::OfItem(message)));
    message.SetStrProp(tags.larchId,
                       check.keyShared ? NewSyncIdText() : message.GetBinProp(PR_SEARCH_KEY).Hex());
    message.SaveChanges(KEEP_OPEN_READWRITE);
}

// True if the row's item was reset. A copy that keeps the stamp of its original would be taken for it
// by the rest of the run, so a call that fails once gets a second chance here.
bool ResetRow(const IMAPIFolderPtr& folder, const CSyncTags& tags, const StampCheck& check, FILE* traceFile) {
    for (int attempt = 0;; ++attempt) {
        IMessagePtr message = OpenForChange(folder, check.item);
        if (!message && attempt == 0) continue;
        if (!message) return false;
        if (IsTraceActive(traceFile))
            TraceFormat(traceFile, "Reset IDs for %s", message.GetStrPropOrEmpty(PR_SUBJECT_A).c_str());
        try {
            ResetIdentity(message, tags, check);
            return true;
        } catch (const CMAPIException&) {
            if (attempt > 0) throw;
        }
    }
}
}  // namespace

bool CSyncFolder::CheckSyncID(const IMAPIFolderPtr& folder, CMapiRowSet& rows) {
    bool changed = false;
    try {
        if (m_progress) m_progress->SetMessageText("Checking rows");
        if (IsTraceWindowThere())
            ServerTraceWrite(m_traceFile, "------------------ Checking for duplicates ------------ \n");
        const ULONG count = rows.Count();
        DWORD lastLook = TickCount();
        for (ULONG row = 0; row < count; ++row) {
            if (row % RowsPerLook == 0) {
                const DWORD now = TickCount();
                if (m_progress && now - lastLook > StatusIntervalMs)
                    m_progress->SetMessageText(FormatText("Preparing Row %d form %d", static_cast<int>(row),
                                                          static_cast<int>(count)));
                lastLook = now;
            }
            StampCheck check = CheckRow(rows, row);
            if (check.keyMissing)
                ServerTraceWrite(m_traceFile, "Reset because entry does not have SearchKey");
            if (!check.reset || check.item.IsEmpty()) continue;
            check.keyShared = !check.keyMissing && IsKeyShared(rows, row);
            if (!ResetRow(folder, TagsOf(folder.RawProp()), check, m_traceFile)) continue;
            changed = true;
            const CMapiPropValue syncId = rows.Cell(row, COL_SYNC_ID);
            if (syncId.Type() == PT_STRING8)
                syncId.Get()->ulPropTag = CHANGE_PROP_TYPE(syncId.Tag(), PT_ERROR);
        }
    } catch (const CMAPIException& e) {
        ++m_outcome.phasesFailed;
        ReportException(e, "Not found");
    } catch (...) {
        ++m_outcome.phasesFailed;
        ShowMessageBox("Erorr in CheckSyncID", "");
    }
    return changed;
}

void CSyncFolder::PreviewSyncIDs(const IMAPIFolderPtr& folder, CMapiRowSet& rows,
                                 std::list<std::string>& ids) {
    const CSyncTags& tags = TagsOf(folder.RawProp());
    const FILETIME now = UtcNow();
    for (ULONG row = 0; row < rows.Count(); ++row) {
        const StampCheck check = CheckRow(rows, row);
        if (!check.reset || check.item.IsEmpty()) continue;
        ids.push_back(check.keyMissing ? NewSyncIdText()
                                       : HexFromBinary(rows.Cell(row, COL_SEARCH_KEY).Binary()));
        SPropValue& stamp = *rows.Cell(row, COL_STAMP).Get();
        stamp.ulPropTag = tags.larchEid;
        stamp.Value.bin = check.item;
        SPropValue& syncId = *rows.Cell(row, COL_SYNC_ID).Get();
        syncId.ulPropTag = tags.larchId;
        syncId.Value.lpszA = ids.back().data();
        rows.Cell(row, COL_MODIFIED).Get()->Value.ft = now;
    }
}

// --- private appointments ----------------------------------------------------------------------------

namespace {
// One group of writes: what fails leaves the message as far as it got, and the next group is tried all the
// same, so that as little of the text as possible stays readable. False where it failed.
template <class Group>
bool Enclosed(Group group) {
    try {
        MARK_POSITION();
        group();
        return true;
    } catch (const CMAPIException& e) {
        NoteException(e, FormatText("SyncFolder.cpp %d", CurrentPosition().line).c_str());
        return false;
    }
}

// False where the label does not stand where people look for it. No text comes with the contents, so a store
// that refuses a kind of body gives nothing away.
bool WriteLabel(IMessagePtr& target, const std::string& label) {
    const bool titled = Enclosed([&] {
        target.SetStrProp(
            PR_SUBJECT_A,
            FormatText("[%s] %s", target.GetStrPropOrEmpty(PR_SENDER_NAME_A).c_str(), label.c_str()));
        target.SetStrProp(PR_DISPLAY_NAME_A, label);
    });
    Enclosed([&] { target.SetStrProp(PR_BODY_A, label); });
    Enclosed([&] { target.SetStrProp(PR_BODY_HTML_A, label); });
    const bool placed = Enclosed(
        [&] { target.SetStrProp(target.GetIDFromName(AppointmentSet, LocationId, PT_STRING8), ""); });
    Enclosed([&] {
        target.SetRtf(label, false);
        BOOL updated = FALSE;
        THROW_ON_FAILURE_FOR(RTFSync(target.Get(), RTF_SYNC_BODY_CHANGED, &updated), target.Get());
    });
    return titled && placed;
}
}  // namespace

void CSyncFolder::ModifyTarget(IMessagePtr& message) {
    if (!m_stripPrivate) return;
    try {
        const std::string messageClass = message.GetStrPropOrEmpty(PR_MESSAGE_CLASS_A);
        if (messageClass.compare(0, sizeof AppointmentClass - 1, AppointmentClass) != 0) return;
        const LONG sensitivity = message.GetLongPropOr0(PR_SENSITIVITY);
        if (IsTracing())
            TraceFormat(m_traceFile, "Subject = %s\n", message.GetStrPropOrEmpty(PR_SUBJECT_A).c_str());
        const CSyncTags& tags = TagsOf(message.RawProp());
        CMapiPropValue flag;
        const bool flagged = message.GetOneProp(tags.privateFlag, flag) >= 0 && flag.Bool();
        if (sensitivity != SENSITIVITY_PRIVATE && !flagged) return;
        // The mark says that nothing readable is left; without it the copy is not saved.
        if (!WriteLabel(message, LoadText(TEXT_PRIVATE_LABEL))) return;
        message.SetLongProp(tags.privateMark, 1);
    } catch (const CMAPIException& e) {
        NoteException(e, "ModifyTarget");
    } catch (...) {
        TraceText(m_traceFile, "ModifyTarget");
    }
}
