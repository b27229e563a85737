// The command line and the terminal of this process, in UTF-8.
#pragma once
#include <memory>
#include <streambuf>
#include <string>
#include <vector>

// What main was given, without the program's name. On Windows the wide command line stands for it,
// while main's 8-bit form has lost letters.
std::vector<std::string> ProgramArguments(int argc, char** argv);

// What a stream has to write through for its text to arrive at the terminal behind the descriptor (1 or 2);
// null where the stream's own buffer does: files, pipes, and a terminal that takes UTF-8. To be given back
// (rdbuf) before it goes.
std::unique_ptr<std::streambuf> TerminalBuffer(int descriptor);
