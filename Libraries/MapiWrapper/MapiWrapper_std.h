// Second chief header of the MAPI access layer: what it offers over standard types alone, without any
// wrapper of an interface: hexadecimal and GUID text, text on its way to a store, lists
// in a text, byte strings, and the primitives of streams.
#pragma once
#include <MapiWrapper/ComPtr.h>
#include <MapiWrapper/GuidText.h>
#include <MapiWrapper/HexText.h>
#include <MapiWrapper/MapiBinary.h>
#include <MapiWrapper/StreamTools.h>
#include <MapiWrapper/TagArray.h>
#include <MapiWrapper/TextConvert.h>
