#include <Platform/Terminal.h>

std::vector<std::string> ProgramArguments(int argc, char** argv) {
    return argc > 1 ? std::vector<std::string>(argv + 1, argv + argc) : std::vector<std::string>();
}

std::unique_ptr<std::streambuf> TerminalBuffer(int) {
    return nullptr;
}
