#include <Platform/Terminal.h>
#include <Platform/Utf8.h>
#include <objbase.h>

#include <shellapi.h>

#include <algorithm>

namespace {

constexpr std::size_t cbGathered = 8192;
constexpr std::size_t cLongestWrite = 8000;  // units that a console takes at once

// How many bytes at the end belong to a character that is not whole yet.
std::size_t UnfinishedAtEnd(const std::string& text) {
    for (std::size_t back = 1; back <= std::min<std::size_t>(3, text.size()); ++back) {
        const auto byte = static_cast<unsigned char>(text[text.size() - back]);
        if ((byte & 0xC0) == 0x80) continue;
        const std::size_t length = byte >= 0xF0 ? 4 : byte >= 0xE0 ? 3 : byte >= 0xC0 ? 2 : 1;
        return length > back ? back : 0;
    }
    return 0;
}

class CTerminalBuffer : public std::streambuf {
public:
    explicit CTerminalBuffer(HANDLE console) : m_console(console) {}
    ~CTerminalBuffer() override { Write(0); }

protected:
    int_type overflow(int_type c) override {
        if (c != traits_type::eof()) m_text += static_cast<char>(c);
        if (m_text.size() >= cbGathered) sync();
        return traits_type::not_eof(c);
    }
    std::streamsize xsputn(const char* text, std::streamsize count) override {
        m_text.append(text, static_cast<std::size_t>(count));
        if (m_text.size() >= cbGathered) sync();
        return count;
    }
    int sync() override {
        Write(UnfinishedAtEnd(m_text));
        return 0;
    }

private:
    void Write(std::size_t cbKept) {
        const std::string kept = m_text.substr(m_text.size() - cbKept);
        m_text.resize(m_text.size() - cbKept);
        const std::wstring wide = WideFromUtf8(m_text);
        m_text = kept;
        for (std::size_t at = 0; at < wide.size();) {
            DWORD written = 0;
            const auto count = static_cast<DWORD>(std::min(wide.size() - at, cLongestWrite));
            if (!WriteConsoleW(m_console, wide.data() + at, count, &written, nullptr) || written == 0) return;
            at += written;
        }
    }

    HANDLE m_console;
    std::string m_text;
};

}  // namespace

std::vector<std::string> ProgramArguments(int, char**) {
    std::vector<std::string> arguments;
    int count = 0;
    wchar_t** words = CommandLineToArgvW(GetCommandLineW(), &count);
    for (int i = 1; words && i < count; ++i)
        arguments.push_back(Utf8FromWide(words[i]));
    LocalFree(words);
    return arguments;
}

std::unique_ptr<std::streambuf> TerminalBuffer(int descriptor) {
    const HANDLE handle = GetStdHandle(descriptor == 1 ? STD_OUTPUT_HANDLE : STD_ERROR_HANDLE);
    DWORD mode = 0;
    if (!GetConsoleMode(handle, &mode)) return nullptr;
    return std::make_unique<CTerminalBuffer>(handle);
}
