// SPDX-License-Identifier: LicenseRef-Tarnix
// Environment blocks: texts "NAME=value", each with its terminator, and an empty text.
#ifndef TARNIX_PLATFORM_ENVIRONMENT_H
#define TARNIX_PLATFORM_ENVIRONMENT_H

#include <string>
#include <vector>

namespace tarnix_platform
{

// A new block, for LocalFree. Null with the last error set without memory.
char* newBlock(const std::vector<std::string>& variables);

std::vector<std::string> variablesOf(const char* block);

} // namespace tarnix_platform

#endif
