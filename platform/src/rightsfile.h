// The accounts' rights: a text file with one line "account right" for each.
//
// A line that a process has added is "account right #added PID START": the process and its start
// time, field 22 of /proc/PID/stat. Such a line grants the right as long as that process runs;
// after that the next change removes it. Each adder has a line of its own, so the right stays until
// the last one has removed its line. To a reader that does not know the mark it is a line for
// another right. Lines without a mark are written by hand, and stay.
//
// Lines of another form are kept unchanged. A change holds a lock, for which it waits 10 seconds at
// most (ETIMEDOUT), and replaces the whole file. A missing file counts as empty. A file or a
// directory that group or others may write, or that belongs to neither root nor the effective user,
// is refused with EPERM. All return false on failure, with the last error set.
#ifndef TARNIX_PLATFORM_RIGHTSFILE_H
#define TARNIX_PLATFORM_RIGHTSFILE_H

#include "uniquefd.h"

#include <sys/types.h>

#include <string>
#include <vector>

namespace tarnix_platform
{

// Whether any line grants the right, whoever has added it.
bool holdsRight(const std::string& account, const std::string& right);

// In the order of the file; empty if the account has none. Lines that other processes have added
// do not count: they can go at any moment, so this process must add its own.
bool rightsOf(const std::string& account, std::vector<std::string>& rights);

// What removing added rights needs. It is acquired when they are added, because at the end of a run
// this process may have no descriptor left, or no permission.
struct AddedRights {
    std::string path;
    std::string mark;
    pid_t process = -1; // a forked copy of it removes nothing
    UniqueFd lock;
    UniqueFd file;        // the rights file, unless another change has replaced it
    std::string fileName; // its path as the system sees it
    UniqueFd spare;       // closed to make the descriptor free that a replacement needs
};

// Adds a line for each right even if there is one.
bool addRights(const std::string& account, const std::vector<std::string>& names,
               AddedRights& rights);
// Removes the lines that addRights has added. If the file cannot be replaced, as on a full disk,
// overwrites their marks in place, so that they grant nothing. After a failure they grant the
// rights until this process ends.
bool removeRights(const std::string& account, const std::vector<std::string>& names,
                  AddedRights& rights);

} // namespace tarnix_platform

#endif
