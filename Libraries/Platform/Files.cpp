#include <Platform/CodePage.h>
#include <Platform/Files.h>
#include <Platform/OfTarget.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <fstream>
#include <system_error>

namespace fs = std::filesystem;

namespace {

thread_local std::error_code t_lastError;

bool Result(bool ok, const std::error_code& error) {
    if (!ok) SetLastFileError(error);
    return ok;
}

std::error_code SystemError() {
    return errno ? std::error_code(errno, std::generic_category())
                 : std::make_error_code(std::errc::io_error);
}

// Beside the target, so that the rename stays on one file system; unlike any other writer's name.
std::string TemporaryBeside(const std::string& path) {
    static std::atomic<unsigned> counter{0};
    const auto now = fs::file_time_type::clock::now().time_since_epoch().count();
    return path + "." + std::to_string(now) + "." + std::to_string(++counter) + ".tmp";
}

// FILETIME ticks; 0 for an entry that has just gone.
template <class Entry>
std::uint64_t Written(const Entry& entry) {
    using Ticks = std::chrono::duration<std::int64_t, std::ratio<1, 10'000'000>>;
    std::error_code error;
    const auto time = fs::last_write_time(entry, error);
    if (error) return 0;
    const auto sinceUnix = fs::file_time_type::clock::to_sys(time).time_since_epoch();
    constexpr auto unixEpoch = Ticks(116'444'736'000'000'000);
    return static_cast<std::uint64_t>((std::chrono::duration_cast<Ticks>(sinceUnix) + unixEpoch).count());
}

}  // namespace

void SetLastFileError(const std::error_code& error) {
    t_lastError = error;
}

std::string LastFileError() {
    return t_lastError ? Utf8FromCodePage(t_lastError.message(), AnsiCodePage()) : std::string();
}

bool FileExists(const std::string& path) {
    std::error_code error;
    const auto status = fs::status(NativePath(path), error);
    return fs::exists(status) && !fs::is_directory(status);
}

bool FileIsAbsent(const std::string& path) {
    std::error_code error;
    return fs::status(NativePath(path), error).type() == fs::file_type::not_found;
}

bool DirectoryExists(const std::string& path) {
    std::error_code error;
    return fs::is_directory(NativePath(path), error);
}

bool MakeDirectories(const std::string& path) {
    std::error_code error;
    fs::create_directories(NativePath(path), error);
    // A trailing separator or a race with another creator reads as a failure although all is well.
    return DirectoryExists(path) ||
           Result(false, error ? error : std::make_error_code(std::errc::not_a_directory));
}

bool MakePrivateDirectories(const std::string& path) {
    if (DirectoryExists(path)) return true;
    const std::string above = NarrowPath(NativePath(path).parent_path());
    if (!above.empty() && above != path && !MakePrivateDirectories(above)) return false;
    const int code = MakePrivateDirectory(path);
    // Another creator may have been faster.
    return DirectoryExists(path) || Result(false, std::error_code(code, std::system_category()));
}

bool CreatePrivateFile(const std::string& path) {
    const int code = WriteAndFlush(path, {});
    return Result(code == 0, std::error_code(code, std::system_category()));
}

FileStamp StampOfFile(const std::string& path) {
    FileStamp stamp;
    std::error_code error;
    const auto cb = fs::file_size(NativePath(path), error);
    if (error) return stamp;
    stamp = {true, cb, Written(NativePath(path))};
    return stamp;
}

bool RemoveFile(const std::string& path) {
    std::error_code error;
    if (DirectoryExists(path)) return Result(false, std::make_error_code(std::errc::is_a_directory));
    if (fs::remove(NativePath(path), error)) return true;
    return Result(false, error ? error : std::make_error_code(std::errc::no_such_file_or_directory));
}

bool RemoveTree(const std::string& path) {
    if (path.empty()) return Result(false, std::make_error_code(std::errc::invalid_argument));
    std::error_code error;
    fs::remove_all(NativePath(path), error);
    return Result(!error, error);
}

bool RenameFile(const std::string& from, const std::string& to) {
    std::error_code error;
    fs::rename(NativePath(from), NativePath(to), error);
    return Result(!error, error);
}

bool CopyFileTo(const std::string& from, const std::string& to) {
    const int code = CopyOver(from, to);
    return Result(code == 0, std::error_code(code, std::system_category()));
}

std::vector<DirectoryEntry> ListDirectory(const std::string& path) {
    std::vector<DirectoryEntry> entries;
    std::error_code error;
    fs::directory_iterator it(NativePath(path), error);
    for (; !error && it != fs::directory_iterator(); it.increment(error)) {
        std::error_code ofEntry;
        const bool isDirectory = it->is_directory(ofEntry);
        const auto cb = isDirectory ? 0 : it->file_size(ofEntry);
        entries.push_back({NarrowPath(it->path().filename()), isDirectory, ofEntry ? 0 : cb, Written(*it)});
    }
    if (error) SetLastFileError(error);
    std::sort(entries.begin(), entries.end(),
              [](const auto& left, const auto& right) { return left.name < right.name; });
    return entries;
}

bool ReadFileBytes(const std::string& path, std::string& bytes) {
    bytes.clear();
    if (DirectoryExists(path)) return Result(false, std::make_error_code(std::errc::is_a_directory));
    errno = 0;
    std::ifstream file(NativePath(path), std::ios::binary);
    if (!file) return Result(false, SystemError());
    char block[65536];
    while (file.read(block, sizeof block) || file.gcount() > 0) {
        bytes.append(block, static_cast<size_t>(file.gcount()));
    }
    return Result(!file.bad(), SystemError());
}

bool WriteFileDurably(const std::string& path, const std::string& bytes) {
    const std::string temporary = TemporaryBeside(path);
    if (const int code = WriteAndFlush(temporary, bytes)) {
        std::error_code ignored;
        fs::remove(NativePath(temporary), ignored);
        return Result(false, std::error_code(code, std::system_category()));
    }
    if (!RenameFile(temporary, path)) {
        std::error_code ignored;
        fs::remove(NativePath(temporary), ignored);
        return false;
    }
    FlushDirectory(NarrowPath(NativePath(path).parent_path()));
    return true;
}

bool PublishFile(const std::string& from, const std::string& to) {
    if (const int code = FlushFile(from)) return Result(false, std::error_code(code, std::system_category()));
    if (!RenameFile(from, to)) return false;
    FlushDirectory(NarrowPath(NativePath(to).parent_path()));
    return true;
}

bool CopyPrivateFile(const std::string& from, const std::string& to) {
    if (!CreatePrivateFile(to)) return false;
    errno = 0;
    std::ifstream source(NativePath(from), std::ios::binary);
    std::ofstream target(NativePath(to), std::ios::binary);
    std::string block(1 << 20, 0);
    while (source && target) {
        source.read(block.data(), static_cast<std::streamsize>(block.size()));
        target.write(block.data(), source.gcount());
    }
    const bool isWhole = source.eof() && target.flush().good();
    const std::error_code error = SystemError();
    target.close();
    if (isWhole && FlushFile(to) == 0) return true;
    RemoveFile(to);
    return Result(false, error);
}

std::string JoinPath(const std::string& directory, const std::string& name) {
    constexpr char separator = static_cast<char>(fs::path::preferred_separator);
    if (directory.empty()) return name;
    if (directory.back() == '/' || directory.back() == separator) return directory + name;
    return directory + separator + name;
}
