// Properties of a message that follow from others when nobody has set them: the normalized subject,
// its prefix, and the display lists of a message without recipients.
#pragma once
#include "ValueBlock.h"

// Length of the prefix of a subject ("RE: "): up to three characters that are no digits, a colon and a
// blank. 0 for none.
std::size_t SubjectPrefixLength(std::string_view subject);

// find(id, value) looks a property up as it is stored. False if `id` does not follow from anything.
template <class Find>
bool DerivedOfMessage(Find&& find, PropId id, CStoredValue& value) {
    switch (id) {
        case PROP_ID(PR_DISPLAY_TO):
        case PROP_ID(PR_DISPLAY_CC):
        case PROP_ID(PR_DISPLAY_BCC):
            value.View(id, PT_STRING8, {});
            return true;
        case PROP_ID(PR_NORMALIZED_SUBJECT):
        case PROP_ID(PR_SUBJECT_PREFIX): {
            if (!find(static_cast<PropId>(PROP_ID(PR_SUBJECT)), value) || value.IsLarge()) return false;
            const std::string_view subject = value.Bytes();
            std::size_t prefix = SubjectPrefixLength(subject);
            CStoredValue set;
            if (find(static_cast<PropId>(PROP_ID(PR_SUBJECT_PREFIX)), set) &&
                subject.starts_with(set.Bytes()))
                prefix = set.Size();
            value.View(id, PT_STRING8,
                       id == PROP_ID(PR_SUBJECT_PREFIX) ? subject.substr(0, prefix) : subject.substr(prefix));
            return true;
        }
        default:
            return false;
    }
}
