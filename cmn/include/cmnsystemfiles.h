/// @file
/// Which files stand for the system's registry and for its accounts' rights.
#ifndef TARNIX_CMNSYSTEMFILES_H
#define TARNIX_CMNSYSTEMFILES_H

#include "cmnexport.h"

namespace tarnix_cmn_4_4
{

/// From now on this process reads the two registry values, which say where the install tree and the
/// programs are, from the file `path`, in the encoding of the file system. Null or an empty text
/// goes back to the file that was named when the library was built (/etc/tarnix/registry.conf). The
/// text is copied; any thread may call. Whether the file can be read shows when a value is wanted.
///
/// The format is that of the configuration files:
/// @verbatim
///   [SOFTWARE\Brenholt\Tarnix]
///   "InstallDir64"="/opt/tarnix/"
///   [SOFTWARE\Microsoft\Windows\CurrentVersion]
///   "ProgramFilesDir"="/opt"
/// @endverbatim
TARNIX_CMN_API void setRegistryFile(const char* path);

/// From now on this process reads and changes the accounts' rights in the file `path`, a line
/// "account right" for each. Null or an empty text goes back to the file that was named when the
/// library was built (/var/lib/tarnix/rights). The text is copied; any thread may call. Runs that
/// are in progress are affected: name the file before the first run as another user.
TARNIX_CMN_API void setRightsFile(const char* path);

} // namespace tarnix_cmn_4_4

#endif
