#include <Platform/Directories.h>
#include <Platform/Files.h>
#include <Platform/OfTarget.h>

#include <cstdlib>
#include <mutex>

namespace {

std::mutex g_lock;
std::string g_base;  // guarded by g_lock

std::string BaseDirectory() {
    const std::lock_guard guard(g_lock);
    if (!g_base.empty()) return g_base;
    const char* outside = std::getenv("VELLUM_DATA_DIR");
    return outside ? outside : "";
}

std::string Made(const std::string& path) {
    MakeDirectories(path);
    return path;
}

}  // namespace

std::string ModuleDirectory() {
    return BaseDirectory().empty() ? SystemModuleDirectory() : ConfigDirectory();
}

std::string ConfigDirectory() {
    const std::string base = BaseDirectory();
    return Made(base.empty() ? SystemConfigDirectory() : JoinPath(base, "config"));
}

std::string DataDirectory() {
    const std::string base = BaseDirectory();
    return Made(base.empty() ? SystemDataDirectory() : JoinPath(base, "data"));
}

void SetBaseDirectory(const std::string& base) {
    const std::lock_guard guard(g_lock);
    g_base = base;
}
