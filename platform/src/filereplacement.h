// SPDX-License-Identifier: LicenseRef-Tarnix
// A temporary file that replaces another.
#ifndef TARNIX_PLATFORM_FILEREPLACEMENT_H
#define TARNIX_PLATFORM_FILEREPLACEMENT_H

#include "uniquefd.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/types.h>

#include <string>

namespace tarnix_platform
{

// The destructor removes the temporary file unless it has replaced the other. At any moment the
// name leads to the complete old file or the complete new one. All report failure by false, with
// the reason in errno.
class FileReplacement
{
public:
    FileReplacement() = default;
    ~FileReplacement();
    FileReplacement(const FileReplacement&) = delete;
    FileReplacement& operator=(const FileReplacement&) = delete;

    // Creates the file for reading and writing; its path must be in the directory of the file that
    // it replaces. Fails with EEXIST if the path exists, so that the file is never one of somebody
    // else, nor a link that somebody has put there. Relative paths, also the target's, start at
    // `directory`, a descriptor that stays open until the file has replaced the other.
    bool create(std::string path, mode_t mode, int directory = AT_FDCWD);

    // The same under a name of its own, for a file that is to replace `target`.
    bool createTemporary(const std::string& target, mode_t mode);

    explicit operator bool() const { return static_cast<bool>(m_File); }
    int fd() const { return m_File.get(); }
    const std::string& path() const { return m_Path; }

    // Sets the mode, after removing the ACL that the file may have inherited from its directory:
    // with one, the group bits of the mode would be the mask of the ACL and extend its entries.
    bool setMode(mode_t mode);

    // Gives it the owner and the mode of another file, as far as the system lets the user. A user
    // who may not change owners becomes the owner. If the group cannot be kept either, the new
    // group gets the permissions of others, which it had for the other file.
    bool keepAccess(const struct stat& from);

    // Gives it the user's extended attributes (user.*) of another file, as far as the file system
    // takes them.
    void keepAttributes(const char* from);

    // The file stays under its own name.
    void keep() { m_File.reset(); }

    // Renames the file over `target`. After a failure it can still be used.
    bool commit(const std::string& target);

    // The same, but after a crash of the system too the target is the whole old or the whole new
    // file: the new one is on the disk before it gets the name. The directory is not synced, so it
    // may be the old one.
    bool commitSynced(const std::string& target);

private:
    std::string m_Path;
    int m_Directory = AT_FDCWD;
    UniqueFd m_File; // empty: not created, or already renamed
};

} // namespace tarnix_platform

#endif
