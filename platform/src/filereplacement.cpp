// A temporary file that replaces another.
#include "filereplacement.h"

#include "descriptors.h"

#include <sys/stat.h>
#include <sys/xattr.h>

#include <cerrno>
#include <utility>

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

bool FileReplacement::setMode(mode_t mode)
{
    const bool hasNoAcl = ::fremovexattr(fd(), "system.posix_acl_access") == 0 ||
                          errno == ENODATA || errno == ENOTSUP;
    return hasNoAcl && ::fchmod(fd(), mode) == 0;
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
