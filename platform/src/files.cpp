// SPDX-License-Identifier: LicenseRef-Tarnix
// Files that no child inherits, and the replacement of a file by a new one.
#include "descriptors.h"
#include "filereplacement.h"
#include "filetarget.h"
#include "platform_file.h"
#include "retry.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <ctime>

namespace tarnix_platform
{

namespace
{

// As of fopen: all permissions that the process's umask leaves.
constexpr mode_t kDefaultMode = DEFFILEMODE;

// Errors that come from the directory or the path: the old file may still be written in place.
bool isDirectoryError(int error)
{
    switch (error) {
    case EACCES:
    case EPERM:
    case EROFS:
    case EBUSY:
    case EXDEV:
    case EEXIST:
    case ENOENT:
    case ENOTDIR:
    case ENAMETOOLONG:
        return true;
    default:
        return false;
    }
}

// Ends the part of a line that was written before the disk was full: its last byte becomes a
// newline, which takes no space. The position of the descriptor is the end of its own last write,
// so this changes no byte of another writer. True also if nothing was written.
bool endCutLine(int fd)
{
    const off_t end = ::lseek(fd, 0, SEEK_CUR);
    if (end <= 0) {
        return true;
    }
    // With O_APPEND, the only flag that it has, all writes go to the end of the file.
    return ::fcntl(fd, F_SETFL, O_RDWR) == 0 &&
           retryInterrupted([&] { return ::pwrite(fd, "\n", 1, end - 1); }) == 1;
}

std::int64_t nanoseconds(const timespec& time)
{
    return std::chrono::nanoseconds(std::chrono::seconds(time.tv_sec)).count() + time.tv_nsec;
}

// Some file systems store times in steps of two seconds.
constexpr std::chrono::nanoseconds kCoarsestFileTime = std::chrono::seconds(2);

} // namespace

TxFile TxOpenFile(const char* path)
{
    // Without O_NONBLOCK the open of a named pipe would wait for a writer.
    UniqueFd fd = openFile(path, O_RDONLY | O_NONBLOCK);
    struct stat info {
    };
    if (!fd || ::fstat(fd.get(), &info) != 0) {
        return nullptr;
    }
    if (!S_ISREG(info.st_mode)) {
        errno = 0;
        return nullptr;
    }
    TxFile file(::fdopen(fd.get(), "r"));
    if (file) {
        fd.release(); // fclose closes it
    }
    return file;
}

TxAppended TxAppendToFile(const char* path, const char* line, std::size_t size)
{
    const UniqueFd file = openFile(path, O_RDWR | O_APPEND | O_CREAT, kDefaultMode);
    if (!file) {
        return TxAppended::lost;
    }
    if (writeAll(file.get(), line, size)) {
        return TxAppended::whole;
    }
    const int error = errno;
    const TxAppended result = endCutLine(file.get()) ? TxAppended::lost : TxAppended::cut;
    errno = error;
    return result;
}

bool TxGetFileVersion(const char* path, TxFileVersion& version, bool& isSettled)
{
    struct stat info {
    };
    if (::stat(path, &info) != 0) {
        return false;
    }
    version = {static_cast<std::int64_t>(info.st_dev), static_cast<std::int64_t>(info.st_ino),
               info.st_size, nanoseconds(info.st_mtim), nanoseconds(info.st_ctim)};
    timespec now{};
    ::clock_gettime(CLOCK_REALTIME, &now);
    isSettled = nanoseconds(now) - nanoseconds(info.st_ctim) > kCoarsestFileTime.count();
    return true;
}

struct TxReplacement::State {
    explicit State(const char* path)
    {
        constexpr int attempts = 20; // one fails if the file is replaced at the same time
        for (int i = 0; i < attempts; ++i) {
            if (!mayReplace(path)) {
                return;
            }
            m_Path = resolveLinks(path);
            if (isUnchanged(m_Path.c_str())) {
                create();
                return;
            }
        }
        m_MustKeepOld = true;
    }

    // A file that the user may not write must not be replaced by one that he may write. The new
    // file could not keep an ACL.
    bool mayReplace(const char* path)
    {
        // The path as it was passed, with its links: the system may refuse to follow one of them.
        m_IsNew = ::stat(path, &m_Old) != 0;
        return m_IsNew ? errno == ENOENT && *path != '\0'
                       : S_ISREG(m_Old.st_mode) && ::euidaccess(path, W_OK) == 0 && !hasAcl(path);
    }

    // Whether the resolved path leads to the file that mayReplace has checked: a link or the file
    // may have been exchanged meanwhile.
    bool isUnchanged(const char* path) const
    {
        struct stat found {
        };
        const bool isMissing = ::lstat(path, &found) != 0;
        return m_IsNew ? isMissing : found.st_dev == m_Old.st_dev && found.st_ino == m_Old.st_ino;
    }

    void create()
    {
        if (!m_New.createTemporary(m_Path, m_IsNew ? kDefaultMode : S_IRUSR | S_IWUSR)) {
            m_MustKeepOld = !isDirectoryError(errno);
        }
    }

    std::string m_Path;
    FileReplacement m_New;
    struct stat m_Old {
    };
    bool m_IsNew{};
    bool m_MustKeepOld{};
};

TxReplacement::TxReplacement(const char* path) : m_State(std::make_unique<State>(path)) {}

TxReplacement::~TxReplacement() = default;

TxReplacement::operator bool() const
{
    return static_cast<bool>(m_State->m_New);
}

const std::string& TxReplacement::path() const
{
    return m_State->m_New.path();
}

bool TxReplacement::write(const char* bytes, std::size_t size)
{
    const bool written = isWithinFileSizeLimit(size) && writeAll(m_State->m_New.fd(), bytes, size);
    m_State->m_MustKeepOld |= !written;
    return written;
}

bool TxReplacement::commit()
{
    State& state = *m_State;
    if (!state.m_IsNew) {
        state.m_New.keepAttributes(state.m_Path.c_str());
        if (!state.m_New.keepAccess(state.m_Old)) {
            return false;
        }
    }
    if (!state.m_New.commit(state.m_Path)) {
        state.m_MustKeepOld = !isDirectoryError(errno);
        return false;
    }
    return true;
}

bool TxReplacement::mustKeepOld() const
{
    return m_State->m_MustKeepOld;
}

} // namespace tarnix_platform
