// SPDX-License-Identifier: LicenseRef-Tarnix
// The accounts' rights: a text file with one line "account right" for each.
//
// A line that a process has added has a mark (rightsline.h). Such a line grants the right as long
// as that process runs; after that the next change removes it. Each adder has a line of its own, so
// the right stays until the last one has removed its line. To a reader that does not know the mark
// it is a line for another right. Lines without a mark are written by hand, and stay.
//
// Lines of another form are kept unchanged. A change holds a lock, for which it waits as long as
// filelock.h says (ETIMEDOUT), and replaces the whole file. A missing file counts as empty. A file
// or a directory that group or others may write, or that belongs to neither root nor the effective
// user, is refused with EPERM, a symbolic link with ELOOP, a relative path with EINVAL. All return
// false on failure, with the last error set.
#ifndef TARNIX_PLATFORM_RIGHTSFILE_H
#define TARNIX_PLATFORM_RIGHTSFILE_H

#include "uniquefd.h"

#include <sys/types.h>

#include <string>
#include <vector>

namespace tarnix_platform
{

// Whether any line grants the right, whoever has added it. EACCES: none does.
bool holdsRight(const std::string& account, const std::string& right);

// In the order of the file; empty if the account has none. Lines that other processes have added
// do not count: they can go at any moment, so this process must add its own.
bool rightsOf(const std::string& account, std::vector<std::string>& rights);

// Where the file is. The open directory stays the same if it is moved or if this process changes
// its root directory.
struct RightsPlace {
    std::string path;
    UniqueFd directory; // empty if it does not exist

    std::string directoryPath() const;
    const char* name() const; // in the directory
    UniqueFd open(int flags) const;
};

// What removing added rights needs. It is acquired when they are added, because at the end of a run
// this process may have no descriptor left, or no permission.
struct AddedRights {
    RightsPlace place;
    std::string mark;
    pid_t process{}; // a forked copy of it removes nothing
    UniqueFd lock;
    UniqueFd file;  // the rights file, unless another change has replaced it
    UniqueFd spare; // closed to make the descriptor free that a replacement needs
};

// Adds a line for each right even if there is one.
bool addRights(const std::string& account, const std::vector<std::string>& names,
               AddedRights& rights);
// Removes the lines that addRights has added. If the file cannot be replaced, as on a full disk, or
// was moved, overwrites their marks in place, so that they grant nothing. After a failure they
// grant the rights until this process ends.
bool removeRights(const std::string& account, const std::vector<std::string>& names,
                  AddedRights& rights);

} // namespace tarnix_platform

#endif
