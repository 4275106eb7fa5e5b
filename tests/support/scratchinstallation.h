// SPDX-License-Identifier: LicenseRef-Tarnix
// A scratch directory in which the product is installed, as the registry says until the object
// ends.
#ifndef TARNIX_SUPPORT_SCRATCHINSTALLATION_H
#define TARNIX_SUPPORT_SCRATCHINSTALLATION_H

#include "cmnsystemfiles.h"
#include "scratchdirectory.h"

class ScratchInstallation : public ScratchDirectory
{
public:
    ScratchInstallation() { setInstallDirectory(path()); }
    ~ScratchInstallation() { tarnix_cmn_4_4::setRegistryFile(nullptr); }

    // Other products stay in the scratch directory.
    void setInstallDirectory(const std::string& directory) const
    {
        write("registry.conf", "[SOFTWARE\\Brenholt\\Tarnix]\n\"InstallDir64\"=\"" + directory +
                                   "\"\n[SOFTWARE\\Microsoft\\Windows\\CurrentVersion]\n"
                                   "\"ProgramFilesDir\"=\"" +
                                   path() + "\"\n");
        tarnix_cmn_4_4::setRegistryFile(path("registry.conf").c_str());
    }
};

#endif
