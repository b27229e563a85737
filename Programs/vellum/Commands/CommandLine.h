// The whole command line, for main and for tests.
#pragma once
#include <string>
#include <vector>

class CConsole;

// Runs one command. `arguments` are those behind the program's name. Answers the exit code; never throws.
int RunCommandLine(const std::vector<std::string>& arguments, CConsole& console);
