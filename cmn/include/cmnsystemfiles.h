// SPDX-License-Identifier: LicenseRef-Tarnix
/// @file
/// Sets the files that hold the registry values and the rights of accounts.
#ifndef TARNIX_CMNSYSTEMFILES_H
#define TARNIX_CMNSYSTEMFILES_H

#include "cmnexport.h"

namespace tarnix_cmn_4_4
{

/// Sets the file from which the calling process reads the two registry values: the install
/// directory and the program files directory. `path` is in the encoding of the file system; it is
/// copied. Null or an empty text means the file that was set when the library was built
/// (/etc/tarnix/registry.conf). A path of 4096 bytes or more cannot be opened. May be called from
/// any thread. The file is not opened here but when a value is read.
///
/// The format is that of the configuration files; nothing after a line that cannot be parsed is
/// read:
/// @verbatim
///   [SOFTWARE\Brenholt\Tarnix]
///   "InstallDir64"="/opt/tarnix/"
///   [SOFTWARE\Microsoft\Windows\CurrentVersion]
///   "ProgramFilesDir"="/opt"
/// @endverbatim
TARNIX_CMN_API void setRegistryFile(const char* path);

/// Sets the file in which the calling process reads and changes the rights of accounts. The file
/// has a line "account right" for each right; lines of another form are kept. `path` is absolute;
/// it is copied. Null or an empty text means the file that was set when the library was built
/// (/var/lib/tarnix/rights). With a relative path, or one of 4096 bytes or more, no account has a
/// right, and none can be added. May be called from any thread. A run that has added its right
/// removes it from the file that it was added to, whatever is set since.
///
/// A change locks the file PATH.lock, so several processes can use one file, and replaces the file
/// as a whole, so that a crash or a full disk loses no line. A right that a process adds has the
/// mark "#added PID START IMAGE BOOT" at the end of its line, and ends with that process. A file or
/// a directory that others may write is refused, and so is a symbolic link at the path.
TARNIX_CMN_API void setRightsFile(const char* path);

} // namespace tarnix_cmn_4_4

#endif
