#include "ChildProcess.h"

#include <Platform/Clock.h>
#include <Platform/Files.h>
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>

namespace {

constexpr unsigned pollMs = 10;

void Redirect(int descriptor, const std::string& path) {
    const int file = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    ::dup2(file, descriptor);
    ::close(file);
}

std::string Text(const std::string& path) {
    std::string text;
    ReadFileBytes(path, text);
    return text;
}

}  // namespace

CChildProcess::CChildProcess(const std::string& base, const std::string& name,
                             const std::vector<std::string>& arguments, uid_t user)
    : m_outPath(JoinPath(base, name + ".out")), m_errPath(JoinPath(base, name + ".err")) {
    std::vector<std::string> line = {VELLUM_PROGRAM, "--data-dir", JoinPath(base, "base")};
    line.insert(line.end(), arguments.begin(), arguments.end());
    std::vector<char*> pointers;
    for (std::string& word : line)
        pointers.push_back(word.data());
    pointers.push_back(nullptr);
    m_pid = ::fork();
    if (m_pid != 0) return;
    Redirect(1, m_outPath);
    Redirect(2, m_errPath);
    if (user != 0 && ::setuid(user) != 0) ::_exit(126);
    ::execv(pointers[0], pointers.data());
    ::_exit(127);
}

CChildProcess::~CChildProcess() {
    if (!Runs()) return;
    Signal(SIGKILL);
    Wait();
}

int CChildProcess::Wait(unsigned timeoutMs) {
    for (unsigned waited = 0; m_code == -2; waited += pollMs) {
        int status = 0;
        if (::waitpid(m_pid, &status, WNOHANG) == m_pid)
            m_code = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        else if (waited >= timeoutMs)
            break;
        else
            SleepMs(pollMs);
    }
    return m_code;
}

void CChildProcess::Signal(int number) const {
    ::kill(m_pid, number);
}

std::string CChildProcess::Out() const {
    return Text(m_outPath);
}

std::string CChildProcess::Err() const {
    return Text(m_errPath);
}
