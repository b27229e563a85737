#include <Platform/Files.h>
#include <Platform/OfTarget.h>
#include <Platform/Utf8.h>

#include <chrono>

// The lock belongs to the handle: a second object of this process is refused too, and the system
// takes it back when the process dies.
struct CProcessLock::State {
    HANDLE file = INVALID_HANDLE_VALUE;
    ~State() {
        if (file != INVALID_HANDLE_VALUE) CloseHandle(file);
    }
};

namespace {

constexpr DWORD PollMs = 10;
constexpr DWORD LimitOfText = 0x10000;

// One byte far behind the holder's text, which others must still be able to read.
OVERLAPPED LockedByte() {
    OVERLAPPED range{};
    range.Offset = 0x7FFFFFFF;
    return range;
}

bool LockWithin(HANDLE file, unsigned timeoutMs) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    for (;;) {
        OVERLAPPED range = LockedByte();
        if (LockFileEx(file, LOCKFILE_EXCLUSIVE_LOCK | LOCKFILE_FAIL_IMMEDIATELY, 0, 1, 0, &range))
            return true;
        if (std::chrono::steady_clock::now() >= end) return false;
        Sleep(PollMs);
    }
}

bool ReplaceContents(HANDLE file, const std::string& text) {
    DWORD written = 0;
    SetFilePointer(file, 0, nullptr, FILE_BEGIN);
    return SetEndOfFile(file) &&
           WriteFile(file, text.data(), static_cast<DWORD>(text.size()), &written, nullptr);
}

std::string ShortContents(HANDLE file) {
    std::string text(LimitOfText, '\0');
    DWORD got = 0;
    SetFilePointer(file, 0, nullptr, FILE_BEGIN);
    if (!ReadFile(file, text.data(), LimitOfText, &got, nullptr)) got = 0;
    text.resize(got);
    return text;
}

void KeepError() {
    SetLastFileError(std::error_code(static_cast<int>(GetLastError()), std::system_category()));
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
    state->file =
        CreateFileW(WideFromUtf8(path).c_str(), GENERIC_READ | GENERIC_WRITE,
                    FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (state->file == INVALID_HANDLE_VALUE || !LockWithin(state->file, timeoutMs)) {
        KeepError();
        if (state->file != INVALID_HANDLE_VALUE) holder = ShortContents(state->file);
        return false;
    }
    // Without the text the lock is as good; only the message to others becomes poorer.
    if (!ReplaceContents(state->file, text)) KeepError();
    m_state = std::move(state);
    return true;
}

bool CProcessLock::Replace(const std::string& text) {
    if (!m_state) return false;
    if (ReplaceContents(m_state->file, text)) return true;
    KeepError();
    return false;
}

void CProcessLock::Unlock() {
    if (!m_state) return;
    ReplaceContents(m_state->file, std::string());
    OVERLAPPED range = LockedByte();
    UnlockFileEx(m_state->file, 0, 1, 0, &range);
    m_state.reset();
}
