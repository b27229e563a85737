// What matters of an item of its class: when and where an appointment is, who a contact is and how to reach
// them.
#pragma once
#include <MapiWrapper/MapiWrapper.h>

#include <string>
#include <utility>
#include <vector>

// Names and values for a person, in UTF-8 and in the order to be shown; what the item does not have is left
// out. Empty for classes without anything of their own, such as mail. Never throws CMAPIException.
std::vector<std::pair<std::string, std::string>> HeadsOfClass(const IMessagePtr& message);
