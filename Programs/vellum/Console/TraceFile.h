// The trace of a run into a file: plays the trace window.
#pragma once
#include <Platform/WindowMessages.h>

#include <cstdio>
#include <memory>
#include <string>

// One at a time. Throws CCommandError if the file cannot be written.
class CTraceFile : public IWindowMessageSink {
public:
    explicit CTraceFile(const std::string& path);
    ~CTraceFile() override;
    LRESULT OnWindowMessage(UINT message, WPARAM wParam, LPARAM lParam) override;

private:
    struct CClose {
        void operator()(std::FILE* file) const { std::fclose(file); }
    };
    std::unique_ptr<std::FILE, CClose> m_file;
    std::unique_ptr<CWindowRegistration> m_window;
};
