// A whole item as data or as text.
#pragma once
#include <MapiWrapper/MapiWrapper.h>
#include <Programs/vellum/Console/Listing.h>

#include <string>

class CConsole;

// {"subject", "class", "properties": [...], "recipients": [{"type", "name", "address", "properties"}],
//  "attachments": [{"name", "method", "properties", "item": {...}}]}, embedded items to any depth that a
// store can hold, at most 32. Throws CMAPIException where the item's properties cannot be read.
Json ItemToJson(IMessage* message);

// The item as a person reads it: heads, among them those of its class, attachments by name and size, body.
void PrintItem(CConsole& console, const IMessagePtr& message);

// "2001-05-14 23:39", UTC; empty for no time.
std::string ShortTime(const FILETIME& time);
