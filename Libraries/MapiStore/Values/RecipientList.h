// The recipients of a message in stored form: u32 count, count times u32 end, then one block each.
#pragma once
#include "ValueBlock.h"

// Damaged bytes throw MAPI_E_CORRUPT_DATA. The views are of `list`.
std::vector<std::string_view> SplitRecipients(std::string_view list);
std::string JoinRecipients(const std::vector<std::string>& blocks);
