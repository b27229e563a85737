// Where the command line keeps files of its own for a profile. Two profiles have two places, whatever
// characters their names hold.
#pragma once
#include <string>

// Below the configuration directory, whose folder is made if it is not there.
std::string ProfileProtocolFile(const std::string& profile);
