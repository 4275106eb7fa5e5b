// SPDX-License-Identifier: LicenseRef-Tarnix
// The copy of a settings file that an export is about to replace.
#include "descriptors.h"
#include "filereplacement.h"
#include "filetarget.h"
#include "platform_settings.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace tarnix_platform
{

namespace
{

// A file that is to be kept, open for reading.
class KeptFile
{
public:
    KeptFile(int fd, std::string path) : m_Fd(fd), m_Path(std::move(path)) {}

    bool isRegular()
    {
        ::fstat(m_Fd, &m_Info);
        return S_ISREG(m_Info.st_mode);
    }

    // Fails with EEXIST if there is something of that name.
    bool copyTo(const std::string& name) const
    {
        FileReplacement copy;
        if (!copy.create(name, kMode) || !fill(copy)) {
            return false;
        }
        copy.keep();
        return true;
    }

    // The same in place of what has that name, a link too.
    bool copyOver(const std::string& name) const
    {
        FileReplacement copy;
        return copy.createTemporary(name, kMode) && fill(copy) && copy.commit(name);
    }

    // Whether that file has the same content. It counts only if it belongs to this user or to the
    // owner of the original: others could remove it.
    bool isLike(const std::string& name) const
    {
        const UniqueFd other = openFile(name.c_str(), O_RDONLY | O_NONBLOCK | O_NOFOLLOW);
        struct stat info {
        };
        ::fstat(other.get(), &info);
        return S_ISREG(info.st_mode) &&
               (info.st_uid == ::geteuid() || info.st_uid == m_Info.st_uid) &&
               info.st_ino != m_Info.st_ino && hasContentOf(other.get());
    }

private:
    static constexpr mode_t kMode = S_IRUSR | S_IWUSR; // a user sets no attributes without both

    bool fill(FileReplacement& copy) const
    {
        copy.keepAttributes(m_Path.c_str());
        const bool isFilled = copyContent(copy.fd()) && copy.keepAccess(access());
        errno = EIO; // if it is not: whatever the reason is, another name is no better
        return isFilled;
    }

    // The group bits of a file with an ACL say what the ACL grants at most, and the others may
    // include a user whom the ACL excludes.
    struct stat access() const
    {
        struct stat result = m_Info;
        result.st_mode &= hasAcl(m_Path.c_str()) ? S_IRWXU : S_IRWXU | S_IRWXG | S_IRWXO;
        return result;
    }

    bool copyContent(int to) const
    {
        char piece[BUFSIZ];
        ::lseek(m_Fd, 0, SEEK_SET);
        for (;;) {
            const ssize_t got = readSome(m_Fd, piece, sizeof piece);
            if (got <= 0) {
                return got == 0;
            }
            if (!writeAll(to, piece, static_cast<std::size_t>(got))) {
                return false;
            }
        }
    }

    // The system reads whole pieces of a regular file. If it did not, there would be another copy.
    bool hasContentOf(int other) const
    {
        char piece[BUFSIZ];
        char otherPiece[BUFSIZ];
        ::lseek(m_Fd, 0, SEEK_SET);
        for (;;) {
            const ssize_t got = readSome(m_Fd, piece, sizeof piece);
            if (got < 0 || readSome(other, otherPiece, sizeof otherPiece) != got ||
                std::memcmp(piece, otherPiece, static_cast<std::size_t>(got)) != 0) {
                return false;
            }
            if (got == 0) {
                return true;
            }
        }
    }

    const int m_Fd;
    const std::string m_Path;
    struct stat m_Info {
    };
};

} // namespace

bool TxKeepCopy(const char* path, std::string& copy)
{
    constexpr int maxCopies = 10;
    std::string name;
    copy.clear();
    const std::string target = resolveLinks(path);
    const UniqueFd file = openFile(target.c_str(), O_RDONLY | O_NONBLOCK | O_NOFOLLOW);
    if (!file) {
        return errno == ENOENT;
    }
    KeptFile kept(file.get(), target);
    if (!kept.isRegular()) {
        return true;
    }
    if (::euidaccess(target.c_str(), W_OK) != 0) {
        return false; // the export would fail, and leave a copy each time
    }
    for (int i = 0; i < maxCopies; ++i) {
        name = target + ".bad" + (i == 0 ? "" : "." + std::to_string(i));
        const bool isCopied = kept.copyTo(name);
        if (!isCopied && errno != EEXIST) {
            return false;
        }
        if (isCopied || kept.isLike(name)) {
            copy = name;
            return true;
        }
    }
    if (!kept.copyOver(name)) {
        return false;
    }
    copy = name;
    return true;
}

} // namespace tarnix_platform
