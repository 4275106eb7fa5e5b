// SPDX-License-Identifier: LicenseRef-Tarnix
/// @file
/// Files that no child inherits, that are appended to with one system call, and that are replaced
/// as a whole. Paths are in the encoding of the file system. Any number of threads and processes
/// may use the same file at once.
#ifndef TARNIX_PLATFORM_FILE_H
#define TARNIX_PLATFORM_FILE_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>

namespace tarnix_platform
{

struct TxFileClose {
    void operator()(std::FILE* file) const { std::fclose(file); }
};
using TxFile = std::unique_ptr<std::FILE, TxFileClose>;

/// Opens a regular file for reading. Null if it cannot be opened, with errno, or is not a regular
/// file, with errno 0; a named pipe without a writer does not block.
TxFile TxOpenFile(const char* path);

/// What became of a line.
enum class TxAppended {
    whole, ///< it is in the file
    lost,  ///< it is not, but the file ends as a line does
    cut,   ///< it is not, and the file ends within it
};

/// Opens the file, creating it if it is missing, appends the line with one system call, and closes
/// it: the lines of several writers never mix. If only a part of the line fits on the disk, the
/// last byte of that part becomes a newline. Unless the result is `whole`, errno has the reason.
/// With no bytes the call only checks that the file can be opened for reading and writing.
TxAppended TxAppendToFile(const char* path, const char* line, std::size_t size);

/// Numbers that differ between two calls if the file has been changed or replaced between them.
using TxFileVersion = std::array<std::int64_t, 5>;

/// Sets `version`; false, with the reason in errno, if there is no such file. `isSettled` is false
/// if the last change is so recent that another one need not show in the numbers.
bool TxGetFileVersion(const char* path, TxFileVersion& version, bool& isSettled);

/// A temporary file that replaces another once it is complete: at each moment the name leads to the
/// complete old file or the complete new one, however many read and replace it at that time.
///
/// The new file gets the mode of the old one, its extended attributes of the user (user.*), and,
/// where the user may change owners, its owner. A symbolic link is kept: the file that it leads to
/// is replaced.
///
/// There is no temporary file if the replacement would lose something (the old file is not a
/// regular file, the user may not write it, or it has an ACL), or if none can be created. Without
/// one, and after a failed commit, the caller writes the old file in place, unless mustKeepOld is
/// true.
class TxReplacement
{
public:
    explicit TxReplacement(const char* path);
    ~TxReplacement(); ///< removes the temporary file unless it has replaced the old one
    TxReplacement(const TxReplacement&) = delete;
    TxReplacement& operator=(const TxReplacement&) = delete;

    /// Whether there is a temporary file to write to.
    explicit operator bool() const;

    /// The path of the temporary file. If there is an old file, nobody but the owner can read the
    /// temporary one before it gets the mode of the old one.
    const std::string& path() const;

    /// Writes to the temporary file. False on failure: mustKeepOld is then true.
    bool write(const char* bytes, std::size_t size);

    /// Replaces the old file. False on failure, for example if the name is a mount point, or if the
    /// sticky bit of the directory lets only the file's owner replace it.
    bool commit();

    /// False: the caller may write the old file in place, for example if only the directory
    /// prevented the replacement. True: it must not. The disk may be full, for example: writing in
    /// place would empty the file first, and then fail in the same way.
    bool mustKeepOld() const;

private:
    struct State;
    const std::unique_ptr<State> m_State;
};

} // namespace tarnix_platform

namespace tarnix_cmn_4_4
{

using tarnix_platform::TxAppended;
using tarnix_platform::TxAppendToFile;
using tarnix_platform::TxFile;
using tarnix_platform::TxFileVersion;
using tarnix_platform::TxGetFileVersion;
using tarnix_platform::TxOpenFile;
using tarnix_platform::TxReplacement;

} // namespace tarnix_cmn_4_4

#endif
