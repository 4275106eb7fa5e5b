// A file in memory.
#include "memoryfile.h"

#include "descriptors.h"

#include <sys/mman.h>
#include <sys/stat.h>

#include <cerrno>

namespace tarnix_platform
{

namespace
{

// Asks for a file that cannot be executed, because a system may refuse others; old kernels do not
// know the flag.
int create()
{
    constexpr unsigned int noExecution = 0x8; // MFD_NOEXEC_SEAL
    const int file = ::memfd_create("tarnix", MFD_CLOEXEC | noExecution);
    return file >= 0 || errno != EINVAL ? file : ::memfd_create("tarnix", MFD_CLOEXEC);
}

bool leadsTo(const char* path, int fd)
{
    struct stat there {
    };
    struct stat here {
    };
    return ::stat(path, &there) == 0 && ::fstat(fd, &here) == 0 && there.st_ino == here.st_ino &&
           there.st_dev == here.st_dev;
}

} // namespace

MemoryFile::MemoryFile() : m_File(create())
{
    if (!m_File || !moveAboveStandard(m_File)) {
        m_File.reset();
        return;
    }
    m_Path = "/proc/self/fd/" + std::to_string(m_File.get());
    if (!leadsTo(m_Path.c_str(), m_File.get())) {
        m_File.reset();
    }
}

MemoryFile::~MemoryFile()
{
    if (m_File && ::ftruncate(m_File.get(), 0) != 0) {
        // Cannot fail: the file is not sealed.
    }
}

} // namespace tarnix_platform
