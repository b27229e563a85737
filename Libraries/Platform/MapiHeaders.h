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

// A flag of PR_STORE_SUPPORT_MASK that not every version of the headers has: the store takes PT_UNICODE.
#ifndef STORE_UNICODE_OK
#define STORE_UNICODE_OK ((ULONG)0x00040000)
#endif
