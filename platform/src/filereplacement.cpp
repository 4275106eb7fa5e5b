// SPDX-License-Identifier: LicenseRef-Tarnix
// A temporary file that replaces another.
#include "filereplacement.h"

#include "descriptors.h"

#include <linux/limits.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>
#include <string_view>
#include <utility>
#include <vector>

namespace tarnix_platform
{

FileReplacement::~FileReplacement()
{
    if (m_File) {
        ::unlinkat(m_Directory, m_Path.c_str(), 0);
    }
}

bool FileReplacement::create(std::string path, mode_t mode, int directory)
{
    m_Path = std::move(path);
    m_Directory = directory;
    m_File = openFileAt(m_Directory, m_Path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW, mode);
    return static_cast<bool>(m_File);
}

bool FileReplacement::createTemporary(const std::string& target, mode_t mode)
{
    constexpr int maxNames = 100; // killed processes leave their temporary files
    const std::string stem =
        target.substr(0, target.rfind('/') + 1) + ".tarnix-" + std::to_string(::getpid()) + "-";
    for (int i = 0; i < maxNames; ++i) {
        if (create(stem + std::to_string(i), mode) || errno != EEXIST) {
            return static_cast<bool>(m_File);
        }
    }
    return false;
}

bool FileReplacement::setMode(mode_t mode)
{
    const bool hasNoAcl = ::fremovexattr(fd(), "system.posix_acl_access") == 0 ||
                          errno == ENODATA || errno == ENOTSUP;
    return hasNoAcl && ::fchmod(fd(), mode) == 0;
}

bool FileReplacement::keepAccess(const struct stat& from)
{
    mode_t mode = from.st_mode & ALLPERMS;
    if (::fchown(fd(), from.st_uid, from.st_gid) != 0) {
        mode = (mode & ~static_cast<mode_t>(S_ISUID)) | S_IRUSR | S_IWUSR;
        if (::fchown(fd(), static_cast<uid_t>(-1), from.st_gid) != 0) {
            mode = (mode & ~static_cast<mode_t>(S_IRWXG | S_ISGID)) | (mode & S_IRWXO) << 3;
        }
    }
    return setMode(mode);
}

void FileReplacement::keepAttributes(const char* from)
{
    if (::listxattr(from, nullptr, 0) <= 0) {
        return; // the usual case
    }
    std::vector<char> names(XATTR_LIST_MAX);
    std::vector<char> value(XATTR_SIZE_MAX);
    const ssize_t end = ::listxattr(from, names.data(), names.size());
    for (ssize_t at = 0; at < end;) {
        const std::string_view name(names.data() + at);
        at += static_cast<ssize_t>(name.size() + 1);
        if (name.rfind("user.", 0) != 0) {
            continue;
        }
        const ssize_t length = ::getxattr(from, name.data(), value.data(), value.size());
        if (length != -1) {
            ::fsetxattr(fd(), name.data(), value.data(), static_cast<std::size_t>(length), 0);
        }
    }
}

bool FileReplacement::commit(const std::string& target)
{
    if (::renameat(m_Directory, m_Path.c_str(), m_Directory, target.c_str()) != 0) {
        return false;
    }
    m_File.reset();
    return true;
}

bool FileReplacement::commitSynced(const std::string& target)
{
    return ::fsync(fd()) == 0 && commit(target);
}

} // namespace tarnix_platform
