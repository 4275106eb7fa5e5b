// The store of the accounts' rights.
#ifndef TARNIX_PLATFORM_RIGHTS_H
#define TARNIX_PLATFORM_RIGHTS_H

#include <string>

namespace tarnix_platform
{

bool holdsRight(const std::string& account, const std::string& right);

} // namespace tarnix_platform

#endif
