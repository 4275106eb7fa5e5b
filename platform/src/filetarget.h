// SPDX-License-Identifier: LicenseRef-Tarnix
// The file that a path leads to.
#ifndef TARNIX_PLATFORM_FILETARGET_H
#define TARNIX_PLATFORM_FILETARGET_H

#include <string>

namespace tarnix_platform
{

// The path at the end of a chain of links, which need not exist. Without this a rename would
// replace the first link instead of the file.
std::string resolveLinks(std::string path);

bool hasAcl(const char* path);

} // namespace tarnix_platform

#endif
