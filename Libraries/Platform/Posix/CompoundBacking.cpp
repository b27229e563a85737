#include "CompoundBacking.h"

#include "CompoundTree.h"

#include <Platform/Files.h>
#include <Platform/Machine.h>
#include <Platform/Utf8.h>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

namespace compound {

namespace {

HRESULT OfErrno(int code) {
    switch (code) {
        case ENOENT:
            return STG_E_FILENOTFOUND;
        case ENOTDIR:
            return STG_E_PATHNOTFOUND;
        case EMFILE:
        case ENFILE:
            return STG_E_TOOMANYOPENFILES;
        case ENAMETOOLONG:
            return STG_E_INVALIDNAME;
        case ENOSPC:
        case EDQUOT:
            return STG_E_MEDIUMFULL;
        case EWOULDBLOCK:
            return STG_E_SHAREVIOLATION;
        default:
            return STG_E_ACCESSDENIED;
    }
}

bool IsReader(DWORD mode) {
    return (mode & 3) == STGM_READ;
}

// Readers that let other readers in share the file; everybody else has it alone. A reader that lets
// even writers in asks for nothing.
int LockOf(DWORD mode) {
    const DWORD share = mode & 0x70;
    if (IsReader(mode) && (share == STGM_SHARE_DENY_NONE || share == STGM_SHARE_DENY_READ)) return 0;
    return IsReader(mode) && share != STGM_SHARE_EXCLUSIVE ? LOCK_SH : LOCK_EX;
}

class CFileBacking : public IBacking {
public:
    CFileBacking(const std::string& path, DWORD mode) : m_path(path), m_mode(mode) {}
    ~CFileBacking() override {
        if (m_mode & STGM_DELETEONRELEASE) ::unlink(m_path.c_str());
        if (m_fd >= 0) ::close(m_fd);
    }

    HRESULT Open(bool create) {
        const int access = (IsReader(m_mode) ? O_RDONLY : O_RDWR) | (create ? O_CREAT : 0);
        m_fd = ::open(m_path.c_str(), access | O_CLOEXEC | O_NONBLOCK, 0600);
        if (m_fd < 0) return OpenFailure(errno);
        struct stat status {};
        if (::fstat(m_fd, &status) != 0 || !S_ISREG(status.st_mode)) return STG_E_ACCESSDENIED;
        const int lock = LockOf(m_mode);
        if (lock && ::flock(m_fd, lock | LOCK_NB) != 0) return OfErrno(errno);
        return S_OK;
    }

    HRESULT Load(std::string& bytes) override {
        struct stat status {};
        if (::fstat(m_fd, &status) != 0) return STG_E_READFAULT;
        if (static_cast<std::uint64_t>(status.st_size) > MaxSize) return STG_E_INSUFFICIENTMEMORY;
        bytes.resize(static_cast<size_t>(status.st_size));
        size_t done = 0;
        while (done < bytes.size()) {
            const ssize_t n =
                ::pread(m_fd, bytes.data() + done, bytes.size() - done, static_cast<off_t>(done));
            if (n < 0 && errno == EINTR) continue;
            if (n < 0) return STG_E_READFAULT;
            if (n == 0) break;  // somebody made the file shorter
            done += static_cast<size_t>(n);
        }
        bytes.resize(done);
        return S_OK;
    }

    HRESULT Store(const std::string& bytes) override {
        errno = 0;
        if (!WriteFileDurably(m_path, bytes)) {
            return errno == ENOSPC || errno == EDQUOT ? STG_E_MEDIUMFULL : STG_E_WRITEFAULT;
        }
        // The name now stands for a new file, so the lock has to move there.
        const int fd = ::open(m_path.c_str(), O_RDWR | O_CLOEXEC | O_NONBLOCK);
        if (fd < 0) return STG_E_WRITEFAULT;
        if (const int lock = LockOf(m_mode)) ::flock(fd, lock | LOCK_NB);
        ::close(m_fd);
        m_fd = fd;
        return S_OK;
    }

    std::wstring Name() const override { return WideFromUtf8(m_path); }

private:
    HRESULT OpenFailure(int code) {
        m_mode &= ~static_cast<DWORD>(STGM_DELETEONRELEASE);
        const size_t slash = m_path.rfind('/');
        const bool noDirectory = code == ENOENT && slash != std::string::npos && slash > 0 &&
                                 !DirectoryExists(m_path.substr(0, slash));
        return noDirectory ? STG_E_PATHNOTFOUND : OfErrno(code);
    }

    std::string m_path;
    DWORD m_mode;
    int m_fd = -1;
};

class CLockBytesBacking : public IBacking {
public:
    explicit CLockBytesBacking(ILockBytes* bytes) : m_bytes(bytes) { m_bytes->AddRef(); }
    ~CLockBytesBacking() override { m_bytes->Release(); }

    HRESULT Load(std::string& bytes) override {
        STATSTG stat{};
        const HRESULT hr = m_bytes->Stat(&stat, STATFLAG_NONAME);
        if (hr < 0) return hr;
        if (stat.cbSize.QuadPart > MaxSize) return STG_E_INSUFFICIENTMEMORY;
        bytes.resize(stat.cbSize.QuadPart);
        ULARGE_INTEGER at{};
        while (at.QuadPart < bytes.size()) {
            ULONG done = 0;
            const auto rest = static_cast<ULONG>(bytes.size() - at.QuadPart);
            const HRESULT read = m_bytes->ReadAt(at, bytes.data() + at.QuadPart, rest, &done);
            if (read < 0) return read;
            if (done == 0 || done > rest) break;
            at.QuadPart += done;
        }
        bytes.resize(at.QuadPart);
        return S_OK;
    }

    HRESULT Store(const std::string& bytes) override {
        ULARGE_INTEGER at{};
        at.QuadPart = bytes.size();
        HRESULT hr = m_bytes->SetSize(at);
        if (hr < 0) return hr;
        at.QuadPart = 0;
        while (at.QuadPart < bytes.size()) {
            ULONG done = 0;
            const auto rest = static_cast<ULONG>(bytes.size() - at.QuadPart);
            hr = m_bytes->WriteAt(at, bytes.data() + at.QuadPart, rest, &done);
            if (hr < 0) return hr;
            if (done == 0 || done > rest) return STG_E_WRITEFAULT;
            at.QuadPart += done;
        }
        return m_bytes->Flush();
    }

    std::wstring Name() const override { return std::wstring(); }

private:
    ILockBytes* m_bytes;
};

}  // namespace

HRESULT OpenFileBacking(const std::string& path, DWORD mode, bool create,
                        std::unique_ptr<IBacking>& backing) {
    auto file = std::make_unique<CFileBacking>(path, mode);
    const HRESULT hr = file->Open(create);
    if (hr == S_OK) backing = std::move(file);
    return hr;
}

std::unique_ptr<IBacking> NewLockBytesBacking(ILockBytes* bytes) {
    return std::make_unique<CLockBytesBacking>(bytes);
}

}  // namespace compound
