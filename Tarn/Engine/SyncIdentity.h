// What makes two items the same item: the stamp in their named properties.
#pragma once
#include <MapiWrapper/MapiWrapper.h>
#include <Tarn/Engine/ItemKey.h>

#include <string>
#include <string_view>
#include <vector>

// Tags that server stores publish beside those of the system's headers.
#ifndef PR_LONGTERM_ENTRYID_FROM_TABLE
#define PR_LONGTERM_ENTRYID_FROM_TABLE PROP_TAG(PT_BINARY, 0x6670)
#endif
#ifndef PR_BODY_HTML_A
#define PR_BODY_HTML_A PROP_TAG(PT_STRING8, 0x1013)
#endif

// Columns of the row set of a run, by number.
enum SyncColumn : ULONG {
    COL_ENTRYID = 0,   // KeyOfRow tells which of the two IDs names the item
    COL_SYNC_ID = 1,   // PT_STRING8
    COL_MODIFIED = 2,  // PR_LAST_MODIFICATION_TIME
    COL_STAMP = 3,     // LarchEid, PT_BINARY
    COL_SUBJECT = 4,
    COL_CREATED = 5,           // PR_CREATION_TIME
    COL_LONGTERM_ENTRYID = 6,  // PR_LONGTERM_ENTRYID_FROM_TABLE
    COL_SENSITIVITY = 7,
    COL_SEARCH_KEY = 8,
    COL_DISPLAY_NAME = 9,
    COL_PRIVATE_MARK = 10,
    SYNC_COLUMNS = 11,
};

// Tags of the stamp in one store, with their types.
struct CSyncTags {
    ULONG larchId = 0;         // PT_STRING8, the sync ID
    ULONG larchEid = 0;        // PT_BINARY, the item's entry ID when it was stamped
    ULONG larchParentEid = 0;  // PT_BINARY, its folder at that time
    ULONG privateMark = 0;     // PT_LONG, TarnPriv: 1 in an anonymised copy
    ULONG privateFlag = 0;     // PT_BOOLEAN, of any item: the box "private" that a person ticks
    ULONG pairKey = 0;         // PT_BINARY, on the hidden messages: the target of their pair
    ULONG runTime = 0;         // PT_SYSTIME, on the hidden messages: one value for all that a run wrote
    // Of the items of others; 0 where the store has no item with it.
    ULONG location = 0;   // PT_STRING8, of an appointment
    ULONG linkNames = 0;  // PT_MV_STRING8, of the linked contacts
};

// The name under which the sync ID is kept: L"LarchID", or L"LarchID.<computer>" while the switch for
// IDs per computer is on (nothing turns it on at present).
const std::wstring& SyncIdName();

// The numbers that the object's store gives the names, its own ones created where they are new. Objects of
// one store share their numbering (PR_MAPPING_SIGNATURE), so the names are asked for once per store.
// Throws CMAPIException, MAPI_E_NOT_FOUND for an empty answer.
class CSyncTagCache {
public:
    const CSyncTags& TagsOf(IMAPIProp* object);
    void Clear() { m_known.clear(); }

private:
    struct Known {
        std::string signature;
        CSyncTags tags;
    };
    std::vector<Known> m_known;
    CSyncTags m_unsigned;  // the answer for an object without signature
};

// One string-named property of PS_PUBLIC_STRINGS, uncached. Throws like the above; with `create`
// clear also MAPI_E_NOT_FOUND for a name that the store does not know.
ULONG NamedTag(IMAPIProp* object, const wchar_t* name, ULONG type, bool create);

// A new text of the GUID form: its last eight bytes stand in decimal, so no parser takes it back.
std::string NewSyncIdText();
// If `syncId` is empty, gives it a new text.
void EnsureSyncId(std::string& syncId);
// The same, but reads the sync ID of the message first.
void EnsureSyncId(IMessagePtr& message, std::string& syncId);
// For two messages that shall agree: the text given, else the target's, else the source's, else new.
void EnsureSyncId(IMessagePtr& target, IMessagePtr& source, std::string& syncId);

// The sync ID of a row whose stamp is its own; empty for one that bears none, or another item's.
std::string_view LinkOfRow(const CMapiRowSet& rows, ULONG row);
// The row of that link, or -1.
int FindLink(const CMapiRowSet& rows, const std::string& syncId);
// True where the row's item and one of `others` bear the same link. It belongs to that one, and is no
// counterpart of anything else, however alike they are: copies of an item share its search key.
bool IsLinkedWithin(const CMapiRowSet& rows, ULONG row, const CMapiRowSet& others);
