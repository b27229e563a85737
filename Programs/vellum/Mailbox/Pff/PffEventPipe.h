// Mailbox events through a pipe between two processes of the same program.
#pragma once
#include <Programs/vellum/Mailbox/MailboxReader.h>

// Gathers events and writes them in large pieces. Throws std::runtime_error when the other end has gone.
class CPffEventWriter {
public:
    explicit CPffEventWriter(int fd) : m_fd(fd) {}
    void Write(const CMailboxEvent& event);
    void Flush();

private:
    int m_fd;
    std::string m_buffer;
};

// False for the end of the pipe, for a record cut off or out of shape, and when nothing came for
// `silenceMs`.
class CPffEventReader {
public:
    CPffEventReader(int fd, int silenceMs) : m_fd(fd), m_silenceMs(silenceMs) {}
    bool Read(CMailboxEvent& event);

private:
    bool Have(std::size_t cb);
    bool TakeNumber(std::uint32_t& value);
    bool TakeBytes(std::string& bytes);

    int m_fd;
    int m_silenceMs;
    std::string m_buffer;
    std::size_t m_taken = 0;
};
