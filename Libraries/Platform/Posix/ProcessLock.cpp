#include <Platform/Files.h>
#include <Platform/OfTarget.h>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <thread>

// The lock belongs to the open file, not to the process: so a second object of this process is
// refused too, and the system takes it back when the process dies.
struct CProcessLock::State {
    int fd = -1;
    ~State() {
        if (fd >= 0) ::close(fd);
    }
};

namespace {

constexpr auto PollInterval = std::chrono::milliseconds(10);
constexpr size_t LimitOfText = 0x10000;

bool LockWithin(int fd, unsigned timeoutMs) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    for (;;) {
        if (::flock(fd, LOCK_EX | LOCK_NB) == 0) return true;
        if (errno != EWOULDBLOCK && errno != EINTR) return false;
        if (std::chrono::steady_clock::now() >= end) {
            errno = EWOULDBLOCK;
            return false;
        }
        std::this_thread::sleep_for(PollInterval);
    }
}

bool ReplaceContents(int fd, const std::string& text) {
    if (::ftruncate(fd, 0) != 0) return false;
    return ::pwrite(fd, text.data(), text.size(), 0) == static_cast<ssize_t>(text.size());
}

std::string ShortContents(int fd) {
    std::string text(LimitOfText, '\0');
    const ssize_t n = ::pread(fd, text.data(), text.size(), 0);
    text.resize(n > 0 ? static_cast<size_t>(n) : 0);
    return text;
}

}  // namespace

CProcessLock::CProcessLock() = default;
CProcessLock::~CProcessLock() {
    Unlock();
}
CProcessLock::CProcessLock(CProcessLock&&) noexcept = default;

CProcessLock& CProcessLock::operator=(CProcessLock&& other) noexcept {
    if (this != &other) {
        Unlock();
        m_state = std::move(other.m_state);
    }
    return *this;
}

bool CProcessLock::TryLock(const std::string& path, const std::string& text, std::string& holder,
                           unsigned timeoutMs) {
    Unlock();
    holder.clear();
    auto state = std::make_unique<State>();
    state->fd = ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (state->fd < 0 || !LockWithin(state->fd, timeoutMs)) {
        SetLastFileError(std::error_code(errno, std::generic_category()));
        if (state->fd >= 0) holder = ShortContents(state->fd);
        return false;
    }
    // Without the text the lock is as good; only the message to others becomes poorer.
    if (!ReplaceContents(state->fd, text)) {
        SetLastFileError(std::error_code(errno, std::generic_category()));
    }
    m_state = std::move(state);
    return true;
}

bool CProcessLock::Replace(const std::string& text) {
    if (!m_state) return false;
    if (ReplaceContents(m_state->fd, text)) return true;
    SetLastFileError(std::error_code(errno, std::generic_category()));
    return false;
}

void CProcessLock::Unlock() {
    if (!m_state) return;
    // The file stays: removing it would let a second lock arise on a new file of the same name.
    ReplaceContents(m_state->fd, std::string());
    m_state.reset();
}
