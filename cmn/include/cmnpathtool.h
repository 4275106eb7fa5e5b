/// @file
/// Where the product's files lie, and where a sibling product keeps its log configuration.
#ifndef TARNIX_CMNPATHTOOL_H
#define TARNIX_CMNPATHTOOL_H

#include "cmnexport.h"
#include "cmntypes.h"

namespace tarnix_cmn_4_4
{

/// Directories carry their trailing separator, so directory and file name join by concatenation.
/// The program files and the install directory are two registry values (platform_registry.h), read
/// anew by every call. Nothing is kept and nothing throws but exhausted memory; any thread may
/// call.
class TARNIX_CMN_API CCmnPathTool
{
public:
    /// @{
    /// The program files directory, without a trailing separator, and the install directory, with
    /// one. Return 0, or the non-zero code of the registry operation that failed; the output is
    /// then untouched.
    static int getProgramFilesDir(tstr& dir);
    static int getInstallPath(tstr& path);
    /// @}

    /// @{
    /// Where the trace file, the configuration file and the message bundle of a name lie: under the
    /// install directory Logs/ with name.log, ConfigFiles/ with name.conf, Messages/ with libname.
    /// The directory is made if it is missing and its parent exists. Always 0: when the install
    /// directory cannot be read, `dir` keeps what the caller passed and gets the sub-directory
    /// appended, and a directory that cannot be made shows when the file is opened.
    static int getTraceFileInfo(const tstr& name, tstr& dir, tstr& file);
    static int getConfigFileInfo(const tstr& name, tstr& dir, tstr& file);
    static int getMessageFileInfo(const tstr& name, tstr& dir, tstr& file);
    /// @}

    /// 0 if there is a file or directory of that path. A path that is null or that the locale
    /// cannot express does not exist.
    static int verify(const wchar_t* path);
};

/// Where a sibling product keeps its diagnostic level.
class TARNIX_CMN_API CCmnSGDConfiguration
{
public:
    /// Always 0. When the program files directory cannot be read, `dir` keeps what the caller
    /// passed in front of the sub-directory. Nothing is made.
    static int getTraceConfigFileInfo(tstr& dir, tstr& file);

    /// The decimal number behind the first '=' of the first line that holds
    /// "Default.DiagnosticLevel". Returns 0; 26 if the file cannot be opened; 1 if there is no such
    /// line or no number in it. `level` is changed only on 0. A line of more than 254 bytes counts
    /// as several.
    static int getTraceLevel(tstr& dir, tstr& file, int& level);
};

} // namespace tarnix_cmn_4_4

#endif
