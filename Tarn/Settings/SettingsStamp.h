// Whether the list of pairs has been written since, without reading it.
#pragma once
#include <MapiWrapper/MapiWrapper.h>

#include <string>

// A text that is another one after the list or the values beside it were saved, by whatever process. It costs
// one look at the associated items of the inbox. Throws CMAPIException.
std::string SettingsStamp(const CMapiSession& session);
