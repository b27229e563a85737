// Administration of profiles and of the stores in them.
#pragma once
#include <Platform/MapiHeaders.h>

#include <string>

// Each with one reference. MakeServiceAdmin throws MAPI_E_NOT_FOUND for an unknown profile.
IProfAdmin* MakeProfileAdmin();
IMsgServiceAdmin* MakeServiceAdmin(const std::string& profile);
