// What the copy routines of a run share: the facts that decide about one item, its text while the item
// is emptied and filled again, and the guard of versions that would otherwise be gone.
#pragma once
#include <Tarn/Engine/syncfolder.h>

#include <memory>
#include <optional>
#include <string>

// The properties of a source item that decide how it is carried over, read in one call.
struct CItemFacts {
    std::string syncId;
    std::string messageClass;
    CMapiBinary searchKey;
    LONG sensitivity = 0;
    bool flaggedPrivate = false;  // by the box that a person ticks, which some programs show alone
    bool markedPrivate = false;   // a stripped copy: its text is not the person's
    bool hasSubject = false;
    bool hasCreated = false;
    FILETIME created{};

    bool IsAppointment() const;
    bool IsPrivateAppointment() const;
    // Private, or kept from others in another way: personal, confidential.
    bool IsWithheldAppointment() const;
};
// Throws where a value cannot be read for another reason than that it is not there: a mark that is
// taken for absent would let the text of an anonymised copy replace the real one.
CItemFacts ReadItemFacts(CSyncFolder& engine, IMessagePtr& message);

// Opens with MAPI_BEST_ACCESS. Throws; CNullAccess where the entry is no message.
IMessagePtr OpenMessage(const IMAPIFolderPtr& folder, const SBinary& entryId);
// The same without throwing: empty where the message does not open.
IMessagePtr TryOpenMessage(const IMAPIFolderPtr& folder, const SBinary& entryId);

// All contents. With `retry` a refused copy between messages is tried as one between property objects. The
// last HRESULT; the target is not saved.
HRESULT CopyContents(IMessagePtr& source, IMessagePtr& target, bool retry);

// What a person may have written into an item, as far as an item without it shows nothing of it.
struct CItemText {
    std::string subject;
    std::string body;  // the HTML where there is no plain one
    std::string rtf;   // only where there is neither
    std::string location;
    std::string links;   // the names of linked contacts
    std::string sender;  // who stands in the label of a stripped copy
    LONG sensitivity = 0;
    bool markedPrivate = false;
};
// Throws where a part is there and cannot be read.
CItemText ReadItemText(CSyncFolder& engine, IMessagePtr& message);
// Whether each part is what the program writes into a stripped copy, or nothing.
bool IsLabelOrEmpty(const CItemText& item);

// Whether the pair lets no text cross with this item.
bool StripsCopy(const CSyncFolder& engine, const CItemFacts& facts);

// Labels the copy of a private appointment, and marks every `stripped` copy. Throws where the mark does not
// arrive: a copy without it would carry what it shows back over the person's text.
void AnonymiseTarget(CSyncFolder& engine, const CItemFacts& facts, IMessagePtr& target, bool stripped);

// A copy of a version in the overwrite folder.
struct CKeptVersion {
    CItemKey item;
    FILETIME created{};
    FILETIME modified{};
};
// Copies `version` there as it is now. Throws where that cannot be done, also without an overwrite
// folder.
CKeptVersion KeepVersion(CSyncFolder& engine, IMessagePtr& version);
// Puts the kept contents and times back into the entry, which counts as unchanged afterwards where the
// store takes the time. Throws, with nothing changed.
void RestoreVersion(CSyncFolder& engine, const IMAPIFolderPtr& folder, const CItemKeyView& item,
                    const CKeptVersion& kept);
// A target as the run saw it when it looked at its folder.
struct CSeenTarget {
    CSeenTarget(const CSyncFolder& engine, const CMapiRowSet& rows, ULONG row);

    FILETIME time;
    bool isUncarried;
};
// To be called before `target` is emptied, keeps it where somebody may miss what it holds:
//   - a part of its text that the new version has not, because the program took it out: now
//     (`withoutText`), or earlier, from the copy that comes back
//   - a version that somebody has made since the run looked at the folder and found it as `seen`
//     (may be null), or may have made before without a new time
//   - an edit that never was carried to the other side, and is not the same there
//   - anything, in a run that cannot tell what was replaced already
// Throws like KeepVersion and ReadItemText.
void KeepWhatMayBeMissed(CSyncFolder& engine, const CItemFacts& facts, IMessagePtr& source,
                         IMessagePtr& target, bool withoutText, const CSeenTarget* seen);
// Whether `target` shows a text of its own that `source` does not.
bool HasOtherText(CSyncFolder& engine, IMessagePtr& source, IMessagePtr& target);

// False where the store has not taken the message yet: it gives the entry ID at the save. A message for
// which that cannot be told counts as taken.
bool HasEntryId(const IMessagePtr& message);

// SetSyncID, and once more where the stamp did not hold: an item whose stamp is not its own loses its
// link in the next run. True if the message has to be saved.
bool StampItem(CSyncFolder& engine, IMessagePtr& message, const std::string& syncId);

// Before the first save of a copy: names the original, whose link it is to bear. A process may die, or its
// gathered saves be lost, between the save of the copy and those of the two stamps; the next run then knows
// the copy for what it is. No person's copying leaves such a stamp: it names an item of the other folder,
// but as its place the folder of the copy. Throws.
void StampUnfinished(CSyncFolder& engine, IMessagePtr& copy, const IMAPIFolderPtr& folder,
                     const std::string& syncId, const CItemKeyView& original);

// Throws where there is no overwrite folder: a new item would be made beside the old one, which could not
// leave.
void RequirePlaceForOld(const CSyncFolder& engine, const IMAPIFolderPtr& folder);
// The answers of stores for an item that is not there any more.
bool IsGone(HRESULT hr);

// Moves the entry out of `folder`. False where the store refuses twice, or without an overwrite folder.
bool MoveAside(const IMAPIFolderPtr& folder, const CItemKeyView& item, const IMAPIFolderPtr& overwriteFolder);

// How far a row got. What stopped before the save can be tried again without doubling anything.
enum class RowResult { Done, NotSaved, MaybeSaved };

// A target that was saved without its contents.
struct CEmptiedTarget {
    CItemKey item;  // empty: none was
    CKeptVersion kept;
};

// Rewrites a known target from an open source. For one use; everything given must outlive it.
class CResync {
public:
    CResync(CSyncFolder& engine, const IMAPIFolderPtr& targetFolder, const CItemKeyView& targetItem)
        : m_engine(engine), m_targetFolder(targetFolder), m_targetItem(targetItem) {}

    // From now on contents that do not arrive are a failure like any other, and nothing is saved.
    void RequireContents() { m_requireContents = true; }
    // How the run saw the target: what was not to be seen then is kept before it is replaced.
    void SetSeen(const CSeenTarget& seen) { m_seen = seen; }
    // Throws; Result says how far it got.
    void Run(IMessagePtr& source, std::string& status);

    RowResult Result() const { return m_result; }
    // The contents did not arrive, and the target was saved without them.
    bool LeftEmpty() const { return m_leftEmpty; }
    // Of the target, once it is saved.
    const CItemKey& SavedItem() const { return m_savedItem; }
    // What the target held, if it was left empty.
    const CKeptVersion& Kept() const { return m_kept; }

private:
    void ChooseTarget(IMessagePtr& source, const CItemFacts& facts);
    void Fill(IMessagePtr& source, const CItemFacts& facts);
    void GiveBack(IMessagePtr& source);
    void KeepOldVersion();
    void Save(IMessagePtr& source, const CItemFacts& facts);
    void FinishNewTarget(const CItemFacts& facts);
    void RemoveOldVersion();

    CSyncFolder& m_engine;
    const IMAPIFolderPtr& m_targetFolder;
    const CItemKeyView m_targetItem;
    IMessagePtr m_target;
    std::optional<CSeenTarget> m_seen;
    bool m_isNew = false;
    bool m_requireContents = false;
    bool m_leftEmpty = false;
    CKeptVersion m_kept;
    CItemKey m_savedItem;
    RowResult m_result = RowResult::NotSaved;
};
