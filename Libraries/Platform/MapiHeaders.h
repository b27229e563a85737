// The published MAPI definitions, in the one order that works on every target. Include this, never
// the single headers, so that all rooms see the same macros.
#pragma once
// clang-format off
#include <windows.h>
#include <objbase.h>
#include <mapix.h>
#include <mapiutil.h>
#include <mapitags.h>
#include <imessage.h>
// clang-format on
