// Where the command line keeps files of its own for a profile.
#pragma once
#include <string>

// The directory `kind` ("locks", "protocols") of the profile below the data directory, made if it is not
// there. Two profiles have two directories, whatever characters their names hold.
std::string ProfileFilesDirectory(const std::string& profile, const std::string& kind);
