// Where things lie. All paths are UTF-8, without a closing separator.
#pragma once
#include <string>

// The directory of the module (DLL or program), where the settings text file lies beside the program
// on Windows; elsewhere the same as ConfigDirectory().
std::string ModuleDirectory();
// $XDG_CONFIG_HOME/vellum, on Windows %APPDATA%\Vellum. Created at the first call.
std::string ConfigDirectory();
// $XDG_DATA_HOME/vellum: profiles and their stores. On Windows %LOCALAPPDATA%\Vellum. Created at the
// first call.
std::string DataDirectory();

// Moves all three below `base` (config in base/config, data in base/data) for this process; the
// environment variable VELLUM_DATA_DIR does the same from outside. Empty takes it back.
void SetBaseDirectory(const std::string& base);
