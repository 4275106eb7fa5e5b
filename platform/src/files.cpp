// Files that no child inherits, and the one that takes another's place.
#include "descriptors.h"
#include "filereplacement.h"
#include "platform_file.h"
#include "retry.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>

namespace tarnix_platform
{

namespace
{

// Like a stream it is made with all rights that the process's mask leaves.
constexpr mode_t kUsualRights = 0666;

// The file that a chain of links ends at, which need not be there: to rename over a link would
// replace the link.
std::string behindLinks(std::string path)
{
    constexpr int mostLinks = 40; // as many as the system follows
    char link[4096];
    for (int i = 0; i < mostLinks; ++i) {
        const ssize_t length = ::readlink(path.c_str(), link, sizeof link);
        if (length <= 0) {
            break;
        }
        const std::size_t name = link[0] == '/' ? 0 : path.rfind('/') + 1;
        path.replace(name, std::string::npos, link, static_cast<std::size_t>(length));
    }
    return path;
}

// Errors after which the file itself may still be written as it is.
bool isOfDirectory(int error)
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

bool hasAccessList(const char* path)
{
    return ::getxattr(path, "system.posix_acl_access", nullptr, 0) > 0;
}

} // namespace

TxFile TxOpenFile(const char* path, const char* mode)
{
    const std::string closeOnExec = std::string(mode) + "e";
    return TxFile(retryInterrupted([&] { return std::fopen(path, closeOnExec.c_str()); }));
}

bool TxAppendToFile(const char* path, const char* bytes, std::size_t size)
{
    const UniqueFd file = openFile(path, O_RDWR | O_APPEND | O_CREAT, kUsualRights);
    if (file) {
        writeAll(file.get(), bytes, size);
    }
    return static_cast<bool>(file);
}

struct TxReplacement::State {
    explicit State(const char* path)
    {
        constexpr int attempts = 20; // others replace the file at the same time
        for (int i = 0; i < attempts; ++i) {
            if (!mayReplace(path)) {
                return;
            }
            m_Path = behindLinks(path);
            if (isStill(m_Path.c_str())) {
                create();
                return;
            }
        }
        m_MustKeepOld = true;
    }

    // What must not be written is not to be replaced by a file that may. The rights of a file with
    // an access list could not be kept.
    bool mayReplace(const char* path)
    {
        // The path as it was given, links and all: the system may refuse to follow one of them.
        m_IsNew = ::stat(path, &m_Old) != 0;
        return m_IsNew ? errno == ENOENT && *path != '\0'
                       : S_ISREG(m_Old.st_mode) && ::euidaccess(path, W_OK) == 0 &&
                             !hasAccessList(path);
    }

    // Whether the path behind the links leads to what was looked at by the path with them.
    bool isStill(const char* path) const
    {
        struct stat found {
        };
        const bool isThere = ::lstat(path, &found) == 0;
        return m_IsNew ? !isThere
                       : isThere && found.st_dev == m_Old.st_dev && found.st_ino == m_Old.st_ino;
    }

    void create()
    {
        constexpr int mostNames = 100; // those of runs that were killed are still there
        const std::string stem =
            m_Path.substr(0, m_Path.rfind('/') + 1) + ".tarnix-" + std::to_string(::getpid()) + "-";
        const mode_t mode = m_IsNew ? kUsualRights : S_IRUSR | S_IWUSR;
        for (int i = 0; i < mostNames; ++i) {
            if (m_New.create(stem + std::to_string(i), mode)) {
                return;
            }
            if (errno != EEXIST) {
                break;
            }
        }
        m_MustKeepOld = !isOfDirectory(errno);
    }

    // A user who may not give a file away becomes its owner. If the group cannot be kept either,
    // the new group's rights are those that it had before, among all others.
    bool keepAccess()
    {
        mode_t mode = m_Old.st_mode & 07777;
        if (::fchown(m_New.fd(), m_Old.st_uid, m_Old.st_gid) != 0) {
            mode = (mode & ~static_cast<mode_t>(S_ISUID)) | S_IRUSR | S_IWUSR;
            if (::fchown(m_New.fd(), static_cast<uid_t>(-1), m_Old.st_gid) != 0) {
                mode = (mode & ~static_cast<mode_t>(S_IRWXG | S_ISGID)) | (mode & S_IRWXO) << 3;
            }
        }
        return m_New.setMode(mode);
    }

    std::string m_Path;
    FileReplacement m_New;
    struct stat m_Old {
    };
    bool m_IsNew = false;
    bool m_MustKeepOld = false;
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

bool TxReplacement::take()
{
    State& state = *m_State;
    if (!state.m_IsNew && !state.keepAccess()) {
        return false;
    }
    if (!state.m_New.commit(state.m_Path)) {
        state.m_MustKeepOld = !isOfDirectory(errno);
        return false;
    }
    return true;
}

bool TxReplacement::mustKeepOld() const
{
    return m_State->m_MustKeepOld;
}

} // namespace tarnix_platform
