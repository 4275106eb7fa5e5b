/// @file
/// Files as the logic wants them: never inherited by a child, appended to in one piece, replaced
/// whole. Paths are in the encoding of the file system. Any number of threads and processes may use
/// the same file at once.
#ifndef TARNIX_PLATFORM_FILE_H
#define TARNIX_PLATFORM_FILE_H

#include <cstddef>
#include <cstdio>
#include <memory>
#include <string>

namespace tarnix_platform
{

struct TxFileClose {
    void operator()(std::FILE* file) const { std::fclose(file); }
};
using TxFile = std::unique_ptr<std::FILE, TxFileClose>;

/// fopen, but with a descriptor that no child inherits. Null when the file cannot be opened.
TxFile TxOpenFile(const char* path, const char* mode);

/// Opens the file, which is made when it is missing, writes the bytes behind its end with one call
/// of the system, and closes it: the lines of several writers never mix. What no longer fits on the
/// disk is lost. False if the file can not be opened for reading and writing; so with no bytes it
/// tells whether the file can be had.
bool TxAppendToFile(const char* path, const char* bytes, std::size_t size);

/// A file beside another, which takes its place when it is complete: at each moment the name leads
/// to the whole old file or the whole new one, however many read it and replace it at that time.
///
/// The new file has the rights and, where the user may give files away, the owner of the old one. A
/// link stays a link: the file that it leads to is replaced. What cannot be replaced without a loss
/// is left alone: what is no plain file, what must not be written, and a file with an access list.
class TxReplacement
{
public:
    explicit TxReplacement(const char* path);
    ~TxReplacement(); ///< removes a file that did not take its place
    TxReplacement(const TxReplacement&) = delete;
    TxReplacement& operator=(const TxReplacement&) = delete;

    /// Whether there is a file to write to.
    explicit operator bool() const;

    /// Where to write. Nobody else may look into it before it has the rights of the old file.
    const std::string& path() const;

    /// Takes the place of the old file. False where the name is a mount of its own, and in a
    /// directory where everybody may make files and only owners may replace them.
    bool take();

    /// It failed, and not because of the directory: then the old file must not be written over
    /// either, for it would be emptied first.
    bool mustKeepOld() const;

private:
    struct State;
    const std::unique_ptr<State> m_State;
};

} // namespace tarnix_platform

namespace tarnix_cmn_4_4
{

using tarnix_platform::TxAppendToFile;
using tarnix_platform::TxFile;
using tarnix_platform::TxOpenFile;
using tarnix_platform::TxReplacement;

} // namespace tarnix_cmn_4_4

#endif
