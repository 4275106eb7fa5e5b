// The accounts' rights: a text file with one line "account right" for each.
//
// Lines of another form are kept unchanged. A change holds a lock, for which it waits 10 seconds at
// most (ETIMEDOUT), and replaces the whole file. A missing file counts as empty. A file or a
// directory that group or others may write, or that belongs to neither root nor the effective user,
// is refused with EPERM. All return false on failure, with the last error set.
#ifndef TARNIX_PLATFORM_RIGHTSFILE_H
#define TARNIX_PLATFORM_RIGHTSFILE_H

#include <string>
#include <vector>

namespace tarnix_platform
{

bool holdsRight(const std::string& account, const std::string& right);

// In the order of the file; empty if the account has none.
bool rightsOf(const std::string& account, std::vector<std::string>& rights);

bool addRights(const std::string& account, const std::vector<std::string>& rights);
bool removeRights(const std::string& account, const std::vector<std::string>& rights);
bool removeAllRights(const std::string& account);

} // namespace tarnix_platform

#endif
