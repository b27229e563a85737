// Are two items the same thing? A yes or no over a fixed list of properties per message class, so that
// what legitimately differs between two stores (entry IDs, times, sync IDs) is left out.
#pragma once
#include <MapiWrapper/MapiWrapper.h>

struct CMessageCacheEntry;

// One line of a tag list. A list ends with the tag 0xFFFFFFFF.
struct PropCompareEntry {
    ULONG tag;        // the full tag; 0: a named property
    const GUID* set;  // of a named property, and so are the rest
    ULONG type;
    LONG id;
};
inline constexpr ULONG PropCompareEnd = 0xFFFFFFFF;

extern const GUID SetAppointment;  // PSETID_Appointment
extern const GUID SetTask;         // PSETID_Task
extern const GUID SetAddress;      // PSETID_Address
extern const GUID SetCommon;       // PSETID_Common

extern const PropCompareEntry HeaderTags[];       // every class
extern const PropCompareEntry AppointmentTags[];  // "IPM.Appointment"
extern const PropCompareEntry ContactTags[];      // "IPM.Contact"
extern const PropCompareEntry TaskTags[];         // "IPM.Task"

// Entries in front of the end mark.
ULONG CountTagList(const PropCompareEntry* list);

// The answers are 1 for equal and 0 for different.
//
// Throws CMAPIException where a class cannot be read or a name not be resolved. The plain bodies do not
// count here.
int CompareMessages(const IMessagePtr& a, const IMessagePtr& b);
// A property counts as equal where both reads fail with the same code. Names are asked for on both
// sides, since two stores number the same name differently; a name that a store does not know fails
// with MAPI_E_NOT_FOUND. Throws where the store refuses to look a name up.
int CompareTagList(const PropCompareEntry* list, IMessagePtr a, IMessagePtr b);
// On two entries of a message cache: here the plain bodies count where both have one. Appointments are
// never equal.
int CompareCacheEntries(CMessageCacheEntry& source, CMessageCacheEntry& candidate, FILE* traceFile);

// By the type of the first value. Types that no list holds are equal, so bytes never make a
// difference; a NaN is unequal to everything.
bool EqualPropValues(const SPropValue& a, const SPropValue& b);
