// Copying between any two IMAPIProp objects through published operations alone: the way into and out
// of objects that are not of this store, such as a message on a compound file.
#pragma once
#include <Platform/MapiHeaders.h>

#include <vector>

struct CopyProblem {
    ULONG tag;
    SCODE code;
};

// What IMAPIProp::CopyTo does for messages and attachments: all properties but the excluded ones (by
// ID; PR_MESSAGE_RECIPIENTS and PR_MESSAGE_ATTACHMENTS name the recipients and attachments), named
// ones mapped by name, values above 32 KB by stream, recipients, attachments and embedded messages to
// a depth of 32. With `include` only these properties (CopyProps). MAPI_NOREPLACE keeps what the
// target has. Problems are appended, not thrown. Does not save the target, but the parts it creates
// in it. Throws CStoreError where source or target as a whole cannot be read or written.
void CopyAnyMessage(IMessage* source, IMessage* target, const SPropTagArray* exclude,
                    const SPropTagArray* include, ULONG flags, std::vector<CopyProblem>& problems);
void CopyAnyAttachment(IAttach* source, IAttach* target, const SPropTagArray* exclude,
                       const SPropTagArray* include, ULONG flags, std::vector<CopyProblem>& problems);

// Properties alone.
void CopyAnyProperties(IMAPIProp* source, IMAPIProp* target, const SPropTagArray* exclude,
                       const SPropTagArray* include, ULONG flags, std::vector<CopyProblem>& problems);

// Fills an out parameter for problems: null for none, else a block for MAPIFreeBuffer. `out` may be
// null. The index of a problem is that of its tag in `asked`, or its place in the array.
void GiveProblems(const std::vector<CopyProblem>& problems, const SPropTagArray* asked,
                  SPropProblemArray** out);
void GiveProblemList(const std::vector<SPropProblem>& problems, SPropProblemArray** out);
