#include <Platform/Memory.h>
#include <Platform/Terminal.h>
#include <Programs/vellum/Commands/CommandLine.h>
#include <Programs/vellum/Console/Console.h>

#include <iostream>

namespace {

// Lets a standard stream write to its terminal, and gives it its own buffer back.
class CTerminalStream {
public:
    CTerminalStream(std::ostream& stream, int descriptor)
        : m_stream(stream), m_own(stream.rdbuf()), m_buffer(TerminalBuffer(descriptor)) {
        if (m_buffer) m_stream.rdbuf(m_buffer.get());
    }
    ~CTerminalStream() {
        m_stream.flush();
        m_stream.rdbuf(m_own);
    }
    CTerminalStream(const CTerminalStream&) = delete;
    CTerminalStream& operator=(const CTerminalStream&) = delete;

private:
    std::ostream& m_stream;
    std::streambuf* m_own;
    std::unique_ptr<std::streambuf> m_buffer;
};

}  // namespace

int main(int argc, char** argv) {
    PrepareHeap();
    std::ios::sync_with_stdio(false);
    const CTerminalStream out(std::cout, 1);
    const CTerminalStream err(std::cerr, 2);
    CConsole console(std::cout, std::cerr, ConsoleOfThisProcess());
    return RunCommandLine(ProgramArguments(argc, argv), console);
}
