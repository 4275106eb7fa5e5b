// SPDX-License-Identifier: LicenseRef-Tarnix
// A file in memory.
#ifndef TARNIX_PLATFORM_MEMORYFILE_H
#define TARNIX_PLATFORM_MEMORYFILE_H

#include "uniquefd.h"

#include <string>

namespace tarnix_platform
{

// Other code may open it by its path and let a child inherit that descriptor; the destructor
// empties the file, so that such a child reads nothing.
class MemoryFile
{
public:
    MemoryFile();
    ~MemoryFile();
    MemoryFile(const MemoryFile&) = delete;
    MemoryFile& operator=(const MemoryFile&) = delete;

    // False if the system has no such file, or if its path does not lead to it, as without /proc.
    explicit operator bool() const { return static_cast<bool>(m_File); }

    int fd() const { return m_File.get(); }
    const char* path() const { return m_Path.c_str(); }

private:
    UniqueFd m_File;
    std::string m_Path;
};

} // namespace tarnix_platform

#endif
