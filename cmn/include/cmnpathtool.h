// SPDX-License-Identifier: LicenseRef-Tarnix
/// @file
/// Where the files of the product are, and where a sibling product keeps its log configuration.
///
/// @code
/// #include "cmnpathtool.h"
/// #include "cmnstringtool.h"
/// #include <iostream>
///
/// using namespace tarnix_cmn_4_4;
/// tstr directory, file;
/// CCmnPathTool::getConfigFileInfo(L"server", directory, file);
/// const std::string path = CCmnStringTool::tstr2str(directory + file);
/// std::cout << path << '\n'; // prints ConfigFiles/server.conf
/// @endcode
///
/// On a system with an installed product, the install directory comes first.
#ifndef TARNIX_CMNPATHTOOL_H
#define TARNIX_CMNPATHTOOL_H

#include "cmnexport.h"
#include "cmntypes.h"

namespace tarnix_cmn_4_4
{

/// Directories end with a separator, so that directory and file name can be concatenated. The
/// program files directory and the install directory are two registry values (see setRegistryFile),
/// which every call reads again. The functions keep no state, may be called from any thread, and
/// throw only when an allocation fails.
class TARNIX_CMN_API CCmnPathTool
{
public:
    /// @{
    /// Set the output to the program files directory, without a trailing separator, or to the
    /// install directory, with one. Return 0, or the non-zero code of the failed registry
    /// operation; the output is then unchanged.
    static int getProgramFilesDir(tstr& dir);
    static int getInstallPath(tstr& path);
    /// @}

    /// @{
    /// Where the trace file, the configuration file and the message bundle with a name are. Below
    /// the install directory these are Logs/NAME.log, ConfigFiles/NAME.conf and Messages/libNAME.
    /// The directory is created if it is missing and its parent exists. Always return 0. If the
    /// install directory is not known, the sub-directory is appended to what the caller passed in
    /// `dir`. If the directory cannot be created, opening the file will fail.
    static int getTraceFileInfo(const tstr& name, tstr& dir, tstr& file);
    static int getConfigFileInfo(const tstr& name, tstr& dir, tstr& file);
    static int getMessageFileInfo(const tstr& name, tstr& dir, tstr& file);
    /// @}

    /// Returns 0 if the path names an existing file or directory. A path that is null, or not
    /// representable in the locale's encoding, does not exist.
    static int verify(const wchar_t* path);
};

/// Where a sibling product keeps its diagnostic level.
class TARNIX_CMN_API CCmnSGDConfiguration
{
public:
    /// Sets `dir` and `file` and always returns 0. If the program files directory is not known, the
    /// sub-directory is appended to what the caller passed in `dir`. Creates nothing.
    static int getTraceConfigFileInfo(tstr& dir, tstr& file);

    /// Reads the decimal number after the first '=' of the first line that contains
    /// "Default.DiagnosticLevel". Returns 0 for success, 26 if the file cannot be opened, 1 if
    /// there is no such line or it has no number. `level` is changed only on success. A line of
    /// more than 254 bytes counts as several lines.
    static int getTraceLevel(tstr& dir, tstr& file, int& level);
};

} // namespace tarnix_cmn_4_4

#endif
