// A temporary file that replaces another.
#include "filereplacement.h"

#include "descriptors.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/xattr.h>

#include <cerrno>
#include <cstdio>

namespace tarnix_platform
{

FileReplacement::~FileReplacement()
{
    if (m_File) {
        ::unlink(m_Path.c_str());
    }
}

bool FileReplacement::create(std::string path, mode_t mode)
{
    m_Path = std::move(path);
    m_File = openFile(m_Path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW, mode);
    return static_cast<bool>(m_File);
}

bool FileReplacement::setMode(mode_t mode)
{
    const bool hasNoAcl = ::fremovexattr(fd(), "system.posix_acl_access") == 0 ||
                          errno == ENODATA || errno == ENOTSUP;
    return hasNoAcl && ::fchmod(fd(), mode) == 0;
}

bool FileReplacement::commit(const std::string& target)
{
    if (std::rename(m_Path.c_str(), target.c_str()) != 0) {
        return false;
    }
    m_File.reset();
    return true;
}

bool FileReplacement::commitToDisk(const std::string& target)
{
    if (::fsync(fd()) != 0 || !commit(target)) {
        return false;
    }
    const std::string directory = target.substr(0, target.find_last_of('/') + 1) + ".";
    if (const UniqueFd opened = openFile(directory.c_str(), O_RDONLY | O_DIRECTORY)) {
        ::fsync(opened.get());
    }
    return true;
}

} // namespace tarnix_platform
