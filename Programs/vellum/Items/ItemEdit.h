// Changes to items, as a person writes them on the command line.
#pragma once
#include <Programs/vellum/Session/ProfileSession.h>

#include <string>
#include <vector>

struct CItemChanges {
    std::string subject;
    bool hasSubject = false;
    std::string body;
    bool hasBody = false;
    std::string messageClass;
    std::vector<std::string> assignments;  // "NAME=VALUE"
    std::vector<std::string> removals;     // "NAME"
    std::vector<std::string> to;           // addresses
    std::vector<std::string> cc;
    std::vector<std::string> attachments;  // files

    bool IsEmpty() const {
        return !hasSubject && !hasBody && messageClass.empty() && assignments.empty() && removals.empty() &&
               to.empty() && cc.empty() && attachments.empty();
    }
};

// Applies them to an open, modifiable message without saving. NAME is a word of the query language
// (Subject, Sensitivity, "string:Colour"), a published name (PR_IMPORTANCE) or a tag (0x0036000B). Text
// stands as it is, numbers in decimal or with 0x, truth as true or false, times as
// YYYY-MM-DD[ hh:mm[:ss]] in UTC, bytes in hexadecimal. Throws CCommandError (Usage for what cannot be
// understood, NotOpen for a file that cannot be read); the message may then hold part of the changes,
// which the caller drops by not saving.
void ApplyChanges(CProfileSession& session, const CFolderRef& folder, IMessagePtr& message,
                  const CItemChanges& changes);
