#include <Platform/Directories.h>
#include <Platform/Files.h>
#include <Platform/Registry.h>

#include "RegistryFile.h"

#include <filesystem>
#include <functional>
#include <utility>

namespace {

// Above what any settings need; a larger file is damage and must not fill the memory.
constexpr std::uintmax_t MaxFileSize = 64u << 20;
constexpr unsigned LockTimeoutMs = 30'000;

std::string FilePath() {
    return JoinPath(ConfigDirectory(), "registry");
}

std::string FullKey(RegistryRoot root, const std::string& path) {
    const char* name = root == RegistryRoot::CurrentUser ? "HKEY_CURRENT_USER" : "HKEY_LOCAL_MACHINE";
    return path.empty() ? name : std::string(name) + "\\" + path;
}

// A path that a section's heading cannot hold.
bool IsBadPath(const std::string& path) {
    return path.find_first_of(std::string("\r\n\0", 3)) != std::string::npos;
}

LONG Load(CRegistryFile& file) {
    const std::string path = FilePath();
    if (!FileExists(path)) return ERROR_SUCCESS;
    std::error_code error;
    const std::uintmax_t cb = std::filesystem::file_size(path, error);
    if (error) return ERROR_CANTREAD;
    if (cb > MaxFileSize) return ERROR_BADDB;
    std::string bytes;
    if (!ReadFileBytes(path, bytes)) return ERROR_CANTREAD;
    file = CRegistryFile::Parse(bytes);
    return ERROR_SUCCESS;
}

// Reads, changes and rewrites the file under a lock, so that no change of another process gets lost.
LONG Change(const std::function<LONG(CRegistryFile&)>& change) {
    const std::string path = FilePath();
    CProcessLock lock;
    std::string holder;
    if (!lock.TryLock(path + ".lock", std::string(), holder, LockTimeoutMs)) return ERROR_CANTWRITE;
    CRegistryFile file;
    LONG result = Load(file);
    if (result == ERROR_SUCCESS) result = change(file);
    if (result != ERROR_SUCCESS) return result;
    return WriteFileDurably(path, file.Print()) ? ERROR_SUCCESS : ERROR_CANTWRITE;
}

}  // namespace

CRegistryKey::~CRegistryKey() {
    Close();
}

CRegistryKey::CRegistryKey(CRegistryKey&& other) noexcept {
    *this = std::move(other);
}

CRegistryKey& CRegistryKey::operator=(CRegistryKey&& other) noexcept {
    if (this == &other) return *this;
    m_open = std::exchange(other.m_open, false);
    m_root = other.m_root;
    m_path = std::move(other.m_path);
    return *this;
}

LONG CRegistryKey::Open(RegistryRoot root, const std::string& path, bool) {
    Close();
    if (IsBadPath(path)) return ERROR_BAD_PATHNAME;
    CRegistryFile file;
    if (const LONG result = Load(file)) return result;
    const std::string key = FullKey(root, path);
    if (!path.empty() && !file.HasKey(key)) return ERROR_FILE_NOT_FOUND;
    m_root = root;
    m_path = key;
    m_open = true;
    return ERROR_SUCCESS;
}

LONG CRegistryKey::Create(RegistryRoot root, const std::string& path) {
    const LONG opened = Open(root, path);
    if (opened != ERROR_FILE_NOT_FOUND) return opened;
    const std::string key = FullKey(root, path);
    const LONG result = Change([&](CRegistryFile& file) {
        file.AddKey(key);
        return ERROR_SUCCESS;
    });
    return result == ERROR_SUCCESS ? Open(root, path) : result;
}

void CRegistryKey::Close() {
    m_open = false;
    m_path.clear();
}

std::optional<DWORD> CRegistryKey::ReadDword(const std::string& name) const {
    CRegistryFile file;
    if (!m_open || Load(file) != ERROR_SUCCESS) return std::nullopt;
    const auto value = file.Find(m_path, name);
    const DWORD* number = value ? std::get_if<DWORD>(&*value) : nullptr;
    return number ? std::optional<DWORD>(*number) : std::nullopt;
}

std::optional<std::string> CRegistryKey::ReadString(const std::string& name) const {
    CRegistryFile file;
    if (!m_open || Load(file) != ERROR_SUCCESS) return std::nullopt;
    const auto value = file.Find(m_path, name);
    const std::string* text = value ? std::get_if<std::string>(&*value) : nullptr;
    return text ? std::optional<std::string>(*text) : std::nullopt;
}

LONG CRegistryKey::WriteDword(const std::string& name, DWORD value) {
    if (!m_open) return ERROR_INVALID_HANDLE;
    return Change([&](CRegistryFile& file) {
        file.Set(m_path, name, value);
        return ERROR_SUCCESS;
    });
}

LONG CRegistryKey::WriteString(const std::string& name, const std::string& value) {
    if (!m_open) return ERROR_INVALID_HANDLE;
    return Change([&](CRegistryFile& file) {
        file.Set(m_path, name, value);
        return ERROR_SUCCESS;
    });
}

LONG CRegistryKey::DeleteValue(const std::string& name) {
    if (!m_open) return ERROR_INVALID_HANDLE;
    return Change([&](CRegistryFile& file) {
        return file.RemoveValue(m_path, name) ? ERROR_SUCCESS : ERROR_FILE_NOT_FOUND;
    });
}

LONG DeleteRegistryTree(RegistryRoot root, const std::string& path) {
    if (path.empty() || IsBadPath(path)) return ERROR_BAD_PATHNAME;
    return Change([&](CRegistryFile& file) {
        return file.RemoveTree(FullKey(root, path)) ? ERROR_SUCCESS : ERROR_FILE_NOT_FOUND;
    });
}
