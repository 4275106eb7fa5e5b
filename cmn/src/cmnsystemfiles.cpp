// SPDX-License-Identifier: LicenseRef-Tarnix
// Sets the registry file and the rights file that the platform layer reads in this process.
#include "cmnsystemfiles.h"

#include "platform.h"
#include "platform_registry.h"

namespace tarnix_cmn_4_4
{

void setRegistryFile(const char* path)
{
    tarnix_platform::setRegistryFile(path);
}

void setRightsFile(const char* path)
{
    tarnix_platform::setRightsFile(path);
}

} // namespace tarnix_cmn_4_4
