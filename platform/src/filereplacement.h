// A new file that takes the place of another.
#ifndef TARNIX_PLATFORM_FILEREPLACEMENT_H
#define TARNIX_PLATFORM_FILEREPLACEMENT_H

#include "uniquefd.h"

#include <sys/types.h>

#include <string>

namespace tarnix_platform
{

// The temporary file, which the destructor removes unless it was put in place. At any moment the
// name leads to the whole old file or the whole new one. All report failure by false, with the
// reason in errno.
class FileReplacement
{
public:
    FileReplacement() = default;
    ~FileReplacement();
    FileReplacement(const FileReplacement&) = delete;
    FileReplacement& operator=(const FileReplacement&) = delete;

    // Makes the file, in the directory of the one that it is to replace. A name that exists is
    // refused with EEXIST, so that it is nobody else's file and no link that somebody put there.
    bool create(std::string path, mode_t mode);

    explicit operator bool() const { return static_cast<bool>(m_File); }
    int fd() const { return m_File.get(); }
    const std::string& path() const { return m_Path; }

    // Gives the file the mode of one without an ACL. It must not keep the ACL that its directory
    // gives to new files: the change of the mode would open that.
    bool setMode(mode_t mode);

    // Puts the file in the place of `target`. After a failure it can still be used.
    bool commit(const std::string& target);

    // The same after the bytes have reached the disk, and the name too: a crash leaves the old file
    // or the new one.
    bool commitToDisk(const std::string& target);

private:
    std::string m_Path;
    UniqueFd m_File; // empty: none was made, or it is in place
};

} // namespace tarnix_platform

#endif
