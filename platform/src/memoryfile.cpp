// SPDX-License-Identifier: LicenseRef-Tarnix
// A file in memory.
#include "memoryfile.h"

#include "descriptors.h"

#include <sys/mman.h>
#include <sys/stat.h>

namespace tarnix_platform
{

namespace
{

#ifndef MFD_NOEXEC_SEAL
#define MFD_NOEXEC_SEAL 0x8U
#endif

// Asks for a file that cannot be executed, because a system may refuse others; old kernels do not
// know the flag.
int create()
{
    const int file = ::memfd_create("tarnix", MFD_CLOEXEC | MFD_NOEXEC_SEAL);
    return file != -1 ? file : ::memfd_create("tarnix", MFD_CLOEXEC);
}

bool leadsTo(const char* path, int fd)
{
    struct stat there {
    };
    struct stat here {
    };
    ::fstat(fd, &here);
    return ::stat(path, &there) == 0 && there.st_ino == here.st_ino && there.st_dev == here.st_dev;
}

} // namespace

MemoryFile::MemoryFile() : m_File(create())
{
    const bool isAbove = moveAboveStandard(m_File); // false also without a file
    m_Path = "/proc/self/fd/" + std::to_string(m_File.get());
    if (!isAbove || !leadsTo(m_Path.c_str(), m_File.get())) {
        m_File.reset();
    }
}

MemoryFile::~MemoryFile()
{
    [[maybe_unused]] const int cannotFail = ::ftruncate(m_File.get(), 0); // if there is a file
}

} // namespace tarnix_platform
