#include <Platform/Directories.h>
#include <Platform/Files.h>
#include <Platform/Machine.h>
#include <Platform/OfTarget.h>

#include <mutex>
#include <optional>

namespace {

// The variable is where the base lies: so other modules of this process, which carry a copy of this
// room, and programs that it starts use the same places.
constexpr char BaseVariable[] = "VELLUM_DATA_DIR";

std::mutex g_lock;                         // guards the next one and changes of the variable
std::optional<std::string> g_fromOutside;  // what the variable held before the first SetBaseDirectory

std::string Variable() {
    return EnvironmentVariable(BaseVariable);
}

std::string BaseDirectory() {
    const std::lock_guard guard(g_lock);
    return Variable();
}

std::string Made(const std::string& path) {
    MakePrivateDirectories(path);
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
    if (!g_fromOutside) g_fromOutside = Variable();
    SetEnvironment(BaseVariable, base.empty() ? *g_fromOutside : base);
}
