// The items of a folder, and the one that a person means.
#pragma once
#include <Programs/vellum/Session/ProfileSession.h>

#include <string>
#include <vector>

struct CItemRow {
    unsigned number = 0;  // place in the folder's listing, from 1
    CMapiBinary entryId;
    std::string subject;  // in UTF-8, and so is `from`
    std::string from;
    std::string messageClass;
    FILETIME date{};  // sent, else received, else created
    FILETIME created{};
    FILETIME modified{};
    LONG size = 0;
};

// All items in the order of their creation, or those that fit a query. The numbers are those of the
// whole listing in both cases. Throws CCommandError: Usage for a query that does not compile.
std::vector<CItemRow> ListItems(const CFolderRef& folder, const std::string& query);

// The item that `word` names: its number, its id in hexadecimal, or its subject. Throws Usage where there
// is none or a subject fits several.
CItemRow FindItem(const CFolderRef& folder, const std::string& word);

// Opens an item with the flags given (MAPI_MODIFY, or 0 for reading). Throws CCommandError naming it.
IMessagePtr OpenItem(const CFolderRef& folder, const CItemRow& row, ULONG flags);

// "\"Subject\" of 2001-05-14 23:39", or "an item without subject of ...".
std::string ItemLabel(const CItemRow& row);

// Compiles a query for a folder; throws Usage with the place of the error, and for a text without any
// condition or with something behind it, NotOpen where the folder cannot be searched with it.
// Answers what is seldom meant (CQueryCompiler::Doubts).
std::vector<std::string> CheckQuery(const CFolderRef& folder, const std::string& query);
