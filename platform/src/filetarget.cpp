// SPDX-License-Identifier: LicenseRef-Tarnix
// The file that a path leads to.
#include "filetarget.h"

#include <sys/xattr.h>
#include <unistd.h>

#include <climits>

namespace tarnix_platform
{

std::string resolveLinks(std::string path)
{
    constexpr int maxLinks = 40; // the system's limit
    char link[PATH_MAX];
    for (int i = 0; i < maxLinks; ++i) {
        const ssize_t length = ::readlink(path.c_str(), link, sizeof link);
        if (length == -1) {
            return path;
        }
        const std::size_t name = link[0] == '/' ? 0 : path.rfind('/') + 1;
        path.replace(name, std::string::npos, link, static_cast<std::size_t>(length));
    }
    return path;
}

bool hasAcl(const char* path)
{
    return ::getxattr(path, "system.posix_acl_access", nullptr, 0) != -1;
}

} // namespace tarnix_platform
