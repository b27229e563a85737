#include <Platform/Registry.h>
#include <Platform/Utf8.h>

#include <utility>
#include <vector>

namespace {

HKEY RootKey(RegistryRoot root) {
    return root == RegistryRoot::CurrentUser ? HKEY_CURRENT_USER : HKEY_LOCAL_MACHINE;
}

HKEY KeyOf(void* handle) {
    return static_cast<HKEY>(handle);
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
    Close();
    m_open = std::exchange(other.m_open, false);
    m_handle = std::exchange(other.m_handle, nullptr);
    m_root = other.m_root;
    m_path = std::move(other.m_path);
    return *this;
}

LONG CRegistryKey::Open(RegistryRoot root, const std::string& path, bool write) {
    Close();
    HKEY key = nullptr;
    const REGSAM access = write ? KEY_READ | KEY_WRITE : KEY_READ;
    const LONG result = RegOpenKeyExW(RootKey(root), WideFromUtf8(path).c_str(), 0, access, &key);
    if (result != ERROR_SUCCESS) return result;
    m_handle = key;
    m_root = root;
    m_path = path;
    m_open = true;
    return ERROR_SUCCESS;
}

LONG CRegistryKey::Create(RegistryRoot root, const std::string& path) {
    Close();
    HKEY key = nullptr;
    const LONG result =
        RegCreateKeyExW(RootKey(root), WideFromUtf8(path).c_str(), 0, nullptr, REG_OPTION_NON_VOLATILE,
                        KEY_READ | KEY_WRITE, nullptr, &key, nullptr);
    if (result != ERROR_SUCCESS) return result;
    m_handle = key;
    m_root = root;
    m_path = path;
    m_open = true;
    return ERROR_SUCCESS;
}

void CRegistryKey::Close() {
    if (m_open) RegCloseKey(KeyOf(m_handle));
    m_open = false;
    m_handle = nullptr;
}

std::optional<DWORD> CRegistryKey::ReadDword(const std::string& name) const {
    DWORD type = 0;
    DWORD value = 0;
    DWORD size = sizeof value;
    const LONG result = m_open ? RegQueryValueExW(KeyOf(m_handle), WideFromUtf8(name).c_str(), nullptr, &type,
                                                  reinterpret_cast<BYTE*>(&value), &size)
                               : ERROR_INVALID_HANDLE;
    if (result != ERROR_SUCCESS || type != REG_DWORD || size != sizeof value) return std::nullopt;
    return value;
}

std::optional<std::string> CRegistryKey::ReadString(const std::string& name) const {
    if (!m_open) return std::nullopt;
    std::vector<wchar_t> units(128);
    DWORD type = 0;
    LONG result = ERROR_MORE_DATA;
    DWORD size = 0;
    // Somebody may make the value longer between the two calls.
    for (int tries = 0; tries < 10 && result == ERROR_MORE_DATA; ++tries) {
        size = static_cast<DWORD>(units.size() * sizeof(wchar_t));
        result = RegQueryValueExW(KeyOf(m_handle), WideFromUtf8(name).c_str(), nullptr, &type,
                                  reinterpret_cast<BYTE*>(units.data()), &size);
        if (result == ERROR_MORE_DATA) units.resize(size / sizeof(wchar_t) + 1);
    }
    if (result != ERROR_SUCCESS || type != REG_SZ) return std::nullopt;
    std::string text = Utf8FromWide(units.data(), size / sizeof(wchar_t));
    if (!text.empty() && text.back() == '\0') text.pop_back();
    return text;
}

LONG CRegistryKey::WriteDword(const std::string& name, DWORD value) {
    if (!m_open) return ERROR_INVALID_HANDLE;
    return RegSetValueExW(KeyOf(m_handle), WideFromUtf8(name).c_str(), 0, REG_DWORD,
                          reinterpret_cast<const BYTE*>(&value), sizeof value);
}

LONG CRegistryKey::WriteString(const std::string& name, const std::string& value) {
    if (!m_open) return ERROR_INVALID_HANDLE;
    const std::wstring text = WideFromUtf8(value);
    return RegSetValueExW(KeyOf(m_handle), WideFromUtf8(name).c_str(), 0, REG_SZ,
                          reinterpret_cast<const BYTE*>(text.c_str()),
                          static_cast<DWORD>((text.size() + 1) * sizeof(wchar_t)));
}

LONG CRegistryKey::DeleteValue(const std::string& name) {
    return m_open ? RegDeleteValueW(KeyOf(m_handle), WideFromUtf8(name).c_str()) : ERROR_INVALID_HANDLE;
}

LONG DeleteRegistryTree(RegistryRoot root, const std::string& path) {
    // The empty path would empty the whole root.
    return path.empty() ? ERROR_BAD_PATHNAME : RegDeleteTreeW(RootKey(root), WideFromUtf8(path).c_str());
}
