// The accounts' rights: a text file with a line "account right" for each.
//
// Lines of another form stay as they are. A change happens under a lock and replaces the file
// whole. All fail with the last error set; a file that does not exist holds nothing.
#ifndef TARNIX_PLATFORM_RIGHTSFILE_H
#define TARNIX_PLATFORM_RIGHTSFILE_H

#include <string>
#include <vector>

namespace tarnix_platform
{

bool holdsRight(const std::string& account, const std::string& right);

// In the file's order; empty without any.
bool rightsOf(const std::string& account, std::vector<std::string>& rights);

bool addRights(const std::string& account, const std::vector<std::string>& rights);
bool removeRights(const std::string& account, const std::vector<std::string>& rights);
bool removeAllRights(const std::string& account);

} // namespace tarnix_platform

#endif
