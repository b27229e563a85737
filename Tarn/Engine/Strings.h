// The texts of a run that a person reads, in the person's language.
#pragma once
#include <string>

// The numbers are those of the resource table and never change.
enum TextId : unsigned {
    TEXT_PRIVATE_LABEL = 7,            // stands in a target for the text of a private appointment
    TEXT_OPENING_FOLDERS = 10,         // status: a pair begins
    TEXT_WRITING_SOURCE_STATE = 12,    // status: writing what the source holds
    TEXT_WRITING_TARGET_STATE = 13,    // status: the same for the target
    TEXT_OVERWRITTEN_FOLDER = 15,      // name of the holding folder for overwritten items
    TEXT_OVERWRITTEN_TITLE = 16,       // the same as a heading
    TEXT_COPIED_TO_COUNTERPART = 304,  // protocol, and so are the rest up to 312
    TEXT_DELETED = 306,
    TEXT_TARGET_MISSING = 307,
    TEXT_TARGET_REWRITTEN = 308,
    TEXT_COPIED_AS_NEW = 309,
    TEXT_TIMES_IDENTICAL = 310,
    TEXT_NOT_LINKED_RETRIED = 311,
    TEXT_NOT_LINKED_STAYS = 312,
    TEXT_CONFLICT_SUFFIX = 313,  // ends the path of a conflict folder
    TEXT_SOURCE_GONE = 314,      // protocol, and so are the rest
    TEXT_NOT_COPIED = 315,
    TEXT_NOT_DELETED = 316,
    TEXT_DELETION_OUTDATED = 317,
    TEXT_COPIED_NOT_WHOLE = 318,
    TEXT_CONFLICT_EARLIER = 321,  // and these, of what was done with two changes of one item: to neither item
    TEXT_CONFLICT_UNKEPT = 322,
    TEXT_CONFLICT_LATER = 323,
    TEXT_SAME_CHANGE = 324,
    TEXT_CHANGE_STAYS = 325,    // while its other side was deleted, which was not carried
    TEXT_DELETION_LOST = 326,   // the other side of that
    TEXT_CHANGE_DELETED = 327,  // while its other side was deleted, which was carried
    TEXT_SAVES_LOST = 319,      // message: what was written to a folder is gone; name, reason
    TEXT_STORE_IS_OLDER = 320,  // message: the store of a folder has gone back; name
};

// The text in UserLanguage(). A number without a text gives the empty text.
std::string LoadText(unsigned id);
