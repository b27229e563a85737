#include <Platform/Files.h>
#include <Platform/Machine.h>
#include <Platform/OfTarget.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <ctime>

namespace {

constexpr mode_t NewFileMode = 0600;
constexpr mode_t NewDirectoryMode = 0700;

// The places of the XDG base directories; a relative value of the variable does not count.
std::string XdgDirectory(const char* variable, const char* belowHome) {
    const char* set = std::getenv(variable);
    if (set && set[0] == '/') return std::string(set) + "/vellum";
    const char* home = std::getenv("HOME");
    return std::string(home && *home ? home : "/tmp") + belowHome + "/vellum";
}

int WriteAll(int fd, const std::string& bytes) {
    size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t n = ::write(fd, bytes.data() + done, bytes.size() - done);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) return errno;
        done += static_cast<size_t>(n);
    }
    return ::fsync(fd) == 0 ? 0 : errno;
}

}  // namespace

SYSTEMTIME SystemLocalTime() {
    timeval now{};
    ::gettimeofday(&now, nullptr);
    tm local{};
    ::localtime_r(&now.tv_sec, &local);
    SYSTEMTIME st{};
    st.wYear = static_cast<WORD>(local.tm_year + 1900);
    st.wMonth = static_cast<WORD>(local.tm_mon + 1);
    st.wDayOfWeek = static_cast<WORD>(local.tm_wday);
    st.wDay = static_cast<WORD>(local.tm_mday);
    st.wHour = static_cast<WORD>(local.tm_hour);
    st.wMinute = static_cast<WORD>(local.tm_min);
    st.wSecond = static_cast<WORD>(local.tm_sec < 60 ? local.tm_sec : 59);
    st.wMilliseconds = static_cast<WORD>(now.tv_usec / 1000);
    return st;
}

ClockState& SharedClockState() {
    static ClockState state;
    return state;
}

std::string EnvironmentVariable(const char* name) {
    const char* set = std::getenv(name);
    return set ? set : "";
}

std::FILE* OpenFile(const std::string& path, const char* mode) {
    return std::fopen(path.c_str(), mode);
}

std::string FileIdentity(const std::string& path) {
    struct stat file {};
    if (::stat(path.c_str(), &file) != 0) return {};
    return std::to_string(file.st_dev) + ":" + std::to_string(file.st_ino);
}

void SetEnvironment(const char* name, const std::string& value) {
    if (value.empty()) {
        ::unsetenv(name);
    } else {
        ::setenv(name, value.c_str(), 1);
    }
}

std::filesystem::path NativePath(const std::string& path) {
    return path;
}
std::string NarrowPath(const std::filesystem::path& path) {
    return path.string();
}

int WriteAndFlush(const std::string& path, const std::string& bytes) {
    const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, NewFileMode);
    if (fd < 0) return errno;
    const int code = WriteAll(fd, bytes);
    return ::close(fd) == 0 || code ? code : errno;
}

int FlushFile(const std::string& path) {
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return errno;
    const int code = ::fsync(fd) == 0 ? 0 : errno;
    ::close(fd);
    return code;
}

int MakePrivateDirectory(const std::string& path) {
    return ::mkdir(path.c_str(), NewDirectoryMode) == 0 ? 0 : errno;
}

int CopyOver(const std::string& from, const std::string& to) {
    std::error_code error;
    std::filesystem::copy_file(from, to, std::filesystem::copy_options::overwrite_existing, error);
    return error.value();
}

void FlushDirectory(const std::string& directory) {
    const int fd = ::open(directory.empty() ? "." : directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0) return;
    ::fsync(fd);
    ::close(fd);
}

std::string SystemModuleDirectory() {
    return SystemConfigDirectory();
}
std::string SystemConfigDirectory() {
    return XdgDirectory("XDG_CONFIG_HOME", "/.config");
}
std::string SystemDataDirectory() {
    return XdgDirectory("XDG_DATA_HOME", "/.local/share");
}
