// The program as a process of its own.
#pragma once
#include <sys/types.h>

#include <string>
#include <vector>

class CChildProcess {
public:
    // Starts vellum with these arguments below `base`; its output goes to files named after `name` there. As
    // another user where `user` is one; rights bind no root user.
    CChildProcess(const std::string& base, const std::string& name, const std::vector<std::string>& arguments,
                  uid_t user = 0);
    // A process that is still running is killed.
    ~CChildProcess();
    CChildProcess(const CChildProcess&) = delete;
    CChildProcess& operator=(const CChildProcess&) = delete;

    // Its exit code; -1 if it was ended by a signal, -2 if it did not end within the time.
    int Wait(unsigned timeoutMs = 60000);
    bool Runs() { return Wait(0) == -2; }
    void Signal(int number) const;
    std::string Out() const;
    std::string Err() const;

private:
    std::string m_outPath;
    std::string m_errPath;
    pid_t m_pid = -1;
    int m_code = -2;
};
