// Keys and values of the user's configuration: the Windows registry, or on other targets the text
// file "registry" in ConfigDirectory() (see Directories.h) with the same key paths.
//
// A path is taken letter for letter. "Software\X" and "\Software\X" are two spellings; Windows opens
// only the first, and the file keeps them apart in the same way, because callers rely on which of
// the two opens.
#pragma once
#include <windows.h>
#include <optional>
#include <string>

enum class RegistryRoot { CurrentUser, LocalMachine };

// One open key. Not for sharing between threads; two processes may use the same key, each write is
// whole (on other targets: rewritten to a new file and renamed, under a lock).
class CRegistryKey {
public:
    CRegistryKey() = default;
    ~CRegistryKey();
    CRegistryKey(CRegistryKey&& other) noexcept;
    CRegistryKey& operator=(CRegistryKey&& other) noexcept;
    CRegistryKey(const CRegistryKey&) = delete;
    CRegistryKey& operator=(const CRegistryKey&) = delete;

    // ERROR_SUCCESS, or the system's code (ERROR_FILE_NOT_FOUND for an absent key). Never throw.
    LONG Open(RegistryRoot root, const std::string& path, bool write = false);
    LONG Create(RegistryRoot root, const std::string& path);
    bool IsOpen() const { return m_open; }
    void Close();

    // Empty when the value is absent or of another type.
    std::optional<DWORD> ReadDword(const std::string& name) const;
    std::optional<std::string> ReadString(const std::string& name) const;

    // ERROR_SUCCESS or the system's code.
    LONG WriteDword(const std::string& name, DWORD value);
    LONG WriteString(const std::string& name, const std::string& value);
    LONG DeleteValue(const std::string& name);

private:
    bool m_open = false;
    RegistryRoot m_root = RegistryRoot::CurrentUser;
    std::string m_path;
    void* m_handle = nullptr;  // HKEY on Windows, unused elsewhere
};

// Removes a key with its values and subkeys. For tests and clean-up.
LONG DeleteRegistryTree(RegistryRoot root, const std::string& path);
