// The copy of an appointment whose text stays behind. What crosses is listed, so that nothing which a person
// or a program may write into an item crosses by being forgotten: when the appointment is and how it shows in
// a calendar, as numbers and times. On its way back such a copy changes the same and nothing else.
#pragma once
#include <Tarn/Engine/ItemTransfer.h>

// Puts what crosses of `source` into the emptied `target`. Texts of single occurrences stay behind, and so
// does a recurrence that is not understood. The last HRESULT, with `retry` as in CopyContents; the target is
// not saved. Throws where a property cannot be read.
HRESULT CopyWithoutText(IMessagePtr& source, IMessagePtr& target, bool retry);

// Gives `original` the times and the recurrence that its stripped copy has now. The rest stays, also how
// private the original is. It is kept in the overwrite folder first where texts of single occurrences have no
// place any more. Throws; the original shall then not be saved.
void ReturnToOriginal(CSyncFolder& engine, IMessagePtr& copy, IMessagePtr& original);

// Whether a stripped copy shows nothing but what the program has written there. Throws.
bool ShowsLabelAlone(CSyncFolder& engine, IMessagePtr& copy);
// Whether a stripped copy is what the program would make of `original` now. Throws.
bool IsStrippedCopyOf(CSyncFolder& engine, IMessagePtr& copy, IMessagePtr& original);
// Whether the two say the same, also where one of them is a stripped copy of the other. Throws.
bool SayTheSame(CSyncFolder& engine, IMessagePtr& a, IMessagePtr& b);
