// Items in files of their own (.msg).
#pragma once
#include <Programs/vellum/Session/ProfileSession.h>

#include <string>

// True if the file begins as a compound file does.
bool IsMsgFile(const std::string& path);

// A copy of the file's item in `folder`, saved. Answers its subject. Throws CCommandError (NotOpen) with
// nothing created where the file is damaged or the store refuses.
std::string ImportMsgFile(const std::string& path, const CFolderRef& folder);

// Writes the item to a new file. Throws CCommandError (NotOpen); a file that was begun is removed.
void ExportMsgFile(const IMessagePtr& message, const std::string& path);
