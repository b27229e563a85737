#include <Platform/Memory.h>
#include <Programs/vellum/Commands/CommandLine.h>
#include <Programs/vellum/Console/Console.h>

#include <iostream>

int main(int argc, char** argv) {
    PrepareHeap();
    std::ios::sync_with_stdio(false);
    CConsole console(std::cout, std::cerr, ConsoleOfThisProcess());
    const int code = RunCommandLine(std::vector<std::string>(argv + 1, argv + argc), console);
    std::cout.flush();
    return code;
}
