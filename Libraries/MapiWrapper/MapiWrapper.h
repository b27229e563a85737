// Chief header of the MAPI access layer: wrappers around the interfaces, values and named fields.
//
// Brings together errors (MapiException), values (PropValue, MapiBinary, Variant), property objects
// (GenMapiProp, MapiProp, NamedTags), containers and tables (GenMapiCont, MapiContainer, MapiFolder,
// MapiTable, MapiRowSet), messages (Message, Attach, Recipient, ContactLinks), stores and the session
// (MsgStore, MapiSession), the query words (UserFields, NameTables).
#pragma once
#include <MapiWrapper/Attach.h>
#include <MapiWrapper/ContactLinks.h>
#include <MapiWrapper/GenMapiCont.h>
#include <MapiWrapper/GenMapiProp.h>
#include <MapiWrapper/MapiBinary.h>
#include <MapiWrapper/MapiContainer.h>
#include <MapiWrapper/MapiException.h>
#include <MapiWrapper/MapiFolder.h>
#include <MapiWrapper/MapiProp.h>
#include <MapiWrapper/MapiRowSet.h>
#include <MapiWrapper/MapiSession.h>
#include <MapiWrapper/MapiTable.h>
#include <MapiWrapper/Message.h>
#include <MapiWrapper/MsgStore.h>
#include <MapiWrapper/NameTables.h>
#include <MapiWrapper/NamedTags.h>
#include <MapiWrapper/PropValue.h>
#include <MapiWrapper/Recipient.h>
#include <MapiWrapper/UserFields.h>
#include <MapiWrapper/Variant.h>
