// The general tools, all of them: text, hexadecimal, GUIDs, paths, small files, streams, attachments by
// name, the wastebasket.
#pragma once
#include <MapiWrapper/MapiWrapper_std.h>
#include <Tools/CharClasses.h>
#include <Tools/MessageTools.h>
#include <Tools/Paths.h>
#include <Tools/TextFiles.h>
