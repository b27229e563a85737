// The reading of a mailbox file in a process of its own. The library that reads such files trusts them
// more than a damaged file deserves: there it may crash, loop or ask for all memory, and that must cost
// no more than the rest of the file.
#include <Programs/vellum/Mailbox/Pff/PffEventPipe.h>
#include <Programs/vellum/Mailbox/Pff/PffWalk.h>

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <vector>

namespace {

constexpr rlim_t cbChildMemory = 2ull << 30;
constexpr int silenceMs = 60000;

void LimitMemory() {
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
    // The sanitizers reserve terabytes of address space, which a limit would refuse.
    const rlimit limit{cbChildMemory, cbChildMemory};
    setrlimit(RLIMIT_AS, &limit);
#endif
    const rlimit noCore{0, 0};
    setrlimit(RLIMIT_CORE, &noCore);
}

// Never returns. Leaves without the clean-up of a normal exit, which belongs to the parent.
[[noreturn]] void ReadInChild(const std::string& path, int fd) {
    signal(SIGINT, SIG_IGN);
    for (const int fatal : {SIGSEGV, SIGABRT, SIGBUS, SIGFPE, SIGPIPE})
        signal(fatal, SIG_DFL);
    LimitMemory();
    try {
        CPffEventWriter writer(fd);
        const std::string problem =
            WalkMailbox(path, [&](const CMailboxEvent& event) { writer.Write(event); });
        CMailboxEvent end;
        end.text = problem;
        writer.Write(end);
        writer.Flush();
    } catch (...) {
        _exit(2);
    }
    _exit(0);
}

class CPffProcess : public IMailboxReader {
public:
    CPffProcess(pid_t child, int fd) : m_child(child), m_fd(fd), m_reader(fd, silenceMs) {}
    ~CPffProcess() override { EndChild(); }
    CMailboxEvent Next() override;

private:
    CMailboxEvent Breakdown();
    void NoteNesting(MailboxEventKind kind);
    void EndChild();

    pid_t m_child;
    int m_fd;
    CPffEventReader m_reader;
    std::vector<MailboxEventKind> m_open;  // the ends that are still owed
    bool m_brokenDown = false;
};

MailboxEventKind EndOf(MailboxEventKind begin) {
    switch (begin) {
        case MailboxEventKind::FolderBegin:
            return MailboxEventKind::FolderEnd;
        case MailboxEventKind::ItemBegin:
            return MailboxEventKind::ItemEnd;
        case MailboxEventKind::RecipientBegin:
            return MailboxEventKind::RecipientEnd;
        case MailboxEventKind::AttachmentBegin:
            return MailboxEventKind::AttachmentEnd;
        case MailboxEventKind::EmbeddedBegin:
            return MailboxEventKind::EmbeddedEnd;
        default:
            return MailboxEventKind::End;
    }
}

void CPffProcess::NoteNesting(MailboxEventKind kind) {
    const MailboxEventKind end = EndOf(kind);
    if (end != MailboxEventKind::End)
        m_open.push_back(end);
    else if (!m_open.empty() && m_open.back() == kind)
        m_open.pop_back();
}

CMailboxEvent CPffProcess::Breakdown() {
    CMailboxEvent event;
    if (!m_open.empty()) {
        event.kind = m_open.back();
        m_open.pop_back();
    } else {
        event.text = "the file is damaged: the reading broke off, and what follows is lost";
    }
    return event;
}

CMailboxEvent CPffProcess::Next() {
    CMailboxEvent event;
    if (!m_brokenDown) {
        if (m_reader.Read(event)) {
            NoteNesting(event.kind);
            return event;
        }
        m_brokenDown = true;
        if (!m_open.empty()) {
            event.kind = MailboxEventKind::Warning;
            event.text = "the file is damaged at this place";
            return event;
        }
    }
    return Breakdown();
}

void CPffProcess::EndChild() {
    close(m_fd);
    kill(m_child, SIGKILL);
    int status = 0;
    while (waitpid(m_child, &status, 0) < 0 && errno == EINTR) {
    }
}

}  // namespace

std::unique_ptr<IMailboxReader> OpenMailbox(const std::string& path, std::string& error) {
    error = MailboxProblem(path);
    if (!error.empty()) return nullptr;
    int fds[2];
    if (pipe(fds) != 0) {
        error = "the system gives no pipe";
        return nullptr;
    }
    const pid_t child = fork();
    if (child == 0) {
        close(fds[0]);
        ReadInChild(path, fds[1]);
    }
    close(fds[1]);
    if (child < 0) {
        close(fds[0]);
        error = "the system gives no process";
        return nullptr;
    }
    return std::make_unique<CPffProcess>(child, fds[0]);
}
