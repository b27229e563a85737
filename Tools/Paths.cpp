#include <Platform/Directories.h>
#include <Platform/Files.h>
#include <Tools/Paths.h>

#include <filesystem>
#include <system_error>

namespace {

// The separator of paths in this system's own texts, and the one of the file system.
const std::string kSeparators = std::filesystem::path::preferred_separator == '/' ? "\\/" : "\\";

// Enters the directory, or creates it.
int EnterOrMake(const std::string& path) {
    std::error_code error;
    std::filesystem::current_path(path, error);
    if (!error) return 0;
    return std::filesystem::create_directory(path, error) ? 0 : -1;
}

}  // namespace

std::string ModuleRelativePath(const std::string& file) {
    const std::string directory = ModuleDirectory();
    return directory.empty() ? file : JoinPath(directory, file);
}

std::string ParentPath(const std::string& path) {
    const size_t at = path.rfind('\\');
    return at == std::string::npos ? path : path.substr(0, at);
}

std::string SplitPathHead(const std::string& path, std::string& rest) {
    const size_t at = path.find('\\');
    const std::string head = path.substr(0, at);
    rest = at == std::string::npos ? std::string() : path.substr(at + 1);
    return head;
}

int CreatePath(const std::string& path) {
    for (size_t at = path.find_first_of(kSeparators); at != std::string::npos;
         at = path.find_first_of(kSeparators, at + 1)) {
        if (at != 0) EnterOrMake(path.substr(0, at));
    }
    return EnterOrMake(path);
}
