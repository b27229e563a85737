#include <Platform/Files.h>
#include <Platform/Machine.h>
#include <Platform/OfTarget.h>
#include <Platform/Utf8.h>

#include <cstdlib>
#include <new>

namespace {

std::string EnvironmentDirectory(const char* variable) {
    const std::string set = EnvironmentVariable(variable);
    return (set.empty() ? "." : set) + "\\Vellum";
}

// The module that this code was linked into: the add-in's DLL or the program.
HMODULE OwnModule() {
    HMODULE module = nullptr;
    constexpr DWORD flags =
        GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT;
    GetModuleHandleExA(flags, reinterpret_cast<LPCSTR>(&OwnModule), &module);
    return module;
}

DWORD WriteAll(HANDLE file, const std::string& bytes) {
    size_t done = 0;
    while (done < bytes.size()) {
        constexpr size_t most = 1u << 30;
        const size_t rest = bytes.size() - done;
        DWORD n = 0;
        if (!WriteFile(file, bytes.data() + done, static_cast<DWORD>(rest < most ? rest : most), &n,
                       nullptr)) {
            return GetLastError();
        }
        done += n;
    }
    return FlushFileBuffers(file) ? ERROR_SUCCESS : GetLastError();
}

ClockState* MapClockState() {
    const std::string name = "Local\\VellumClock-" + std::to_string(GetCurrentProcessId());
    const HANDLE mapping = CreateFileMappingA(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0,
                                              sizeof(ClockState), name.c_str());
    void* view = mapping ? MapViewOfFile(mapping, FILE_MAP_ALL_ACCESS, 0, 0, sizeof(ClockState)) : nullptr;
    // A new mapping is all zero, which is the state without an override.
    return view ? static_cast<ClockState*>(view) : new ClockState;
}

}  // namespace

SYSTEMTIME SystemLocalTime() {
    SYSTEMTIME st;
    GetLocalTime(&st);
    return st;
}

// A DLL of ours in the process carries a copy of this room; both have to see the same clock.
ClockState& SharedClockState() {
    static ClockState* const state = MapClockState();
    return *state;
}

void SetEnvironment(const char* name, const std::string& value) {
    _wputenv(WideFromUtf8(std::string(name) + "=" + value).c_str());
}

std::string EnvironmentVariable(const char* name) {
    return Utf8FromWide(_wgetenv(WideFromUtf8(name).c_str()));
}

std::filesystem::path NativePath(const std::string& path) {
    return WideFromUtf8(path);
}
std::string NarrowPath(const std::filesystem::path& path) {
    return Utf8FromWide(path.wstring());
}

int WriteAndFlush(const std::string& path, const std::string& bytes) {
    const HANDLE file = CreateFileW(WideFromUtf8(path).c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW,
                                    FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) return static_cast<int>(GetLastError());
    const DWORD code = WriteAll(file, bytes);
    CloseHandle(file);
    return static_cast<int>(code);
}

int FlushFile(const std::string& path) {
    const HANDLE file = CreateFileW(NativePath(path).c_str(), GENERIC_WRITE, FILE_SHARE_READ, nullptr,
                                    OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) return static_cast<int>(GetLastError());
    const DWORD code = FlushFileBuffers(file) ? ERROR_SUCCESS : GetLastError();
    CloseHandle(file);
    return static_cast<int>(code);
}

// A directory inherits the rights of the user's profile.
int MakePrivateDirectory(const std::string& path) {
    std::error_code error;
    std::filesystem::create_directory(NativePath(path), error);
    return error.value();
}

int CopyOver(const std::string& from, const std::string& to) {
    const bool copied = CopyFileW(WideFromUtf8(from).c_str(), WideFromUtf8(to).c_str(), FALSE);
    return copied ? 0 : static_cast<int>(GetLastError());
}

std::FILE* OpenFile(const std::string& path, const char* mode) {
    return _wfopen(WideFromUtf8(path).c_str(), WideFromUtf8(mode).c_str());
}

// A file that a database has open cannot be moved or replaced here.
std::string FileIdentity(const std::string& path) {
    return FileExists(path) ? "file" : "";
}

// The file system keeps renames in order by itself.
void FlushDirectory(const std::string&) {}

std::string SystemModuleDirectory() {
    wchar_t path[MAX_PATH] = {};
    const DWORD length = GetModuleFileNameW(OwnModule(), path, MAX_PATH);
    const std::string text = Utf8FromWide(path, length < MAX_PATH ? length : 0);
    const size_t separator = text.rfind('\\');
    return separator == std::string::npos ? "." : text.substr(0, separator);
}

std::string SystemConfigDirectory() {
    return EnvironmentDirectory("APPDATA");
}
std::string SystemDataDirectory() {
    return EnvironmentDirectory("LOCALAPPDATA");
}
