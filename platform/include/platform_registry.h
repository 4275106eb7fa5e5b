/// @file
/// The machine's registry, of which one text file holds the values.
///
/// @verbatim
///   [SOFTWARE\Brenholt\Tarnix]
///   "InstallDir64"="/opt/tarnix/"
///   [SOFTWARE\Microsoft\Windows\CurrentVersion]
///   "ProgramFilesDir"="/opt"
/// @endverbatim
///
/// That is the format of ACE_Registry_ImpExp, in UTF-8. Every line, the last one too, ends with a
/// line end; a last line without one is not read. Nothing is read behind a line that cannot be
/// parsed. The file is named when the library is built, or by the process with setRegistryFile.
#ifndef TARNIX_PLATFORM_REGISTRY_H
#define TARNIX_PLATFORM_REGISTRY_H

#include <ace/Configuration.h>
#include <ace/SString.h>

#include <cstdint>
#include <memory>

namespace tarnix_platform
{

/// A hive. Only that of the machine holds anything.
enum class HKEY : std::uintptr_t {};
/// The machine's hive.
constexpr HKEY HKEY_LOCAL_MACHINE{0x80000002};

/// From now on registry objects of this process read the file `path`, in the encoding of the file
/// system; null or an empty text goes back to the one that was built in. The text is copied. Any
/// thread may call; objects that exist are not affected.
void setRegistryFile(const char* path);

/// False for a file that ACE_Registry_ImpExp may not be given. It doubles its buffer at each zero
/// byte and for a long line, until the size wraps and it writes behind the buffer; the room for a
/// section grows with the square of its depth, and the export goes down by recursion. So a file is
/// refused that holds more than 8 zero bytes, a line of more than 16 MiB, a section more than 128
/// levels deep or more than 50000 levels of sections in all. So is whatever is not a plain file,
/// which may have no end. A file that is not there passes. The import opens the path again: this is
/// no defence against somebody who writes the file meanwhile.
bool TxMayImport(const char* path);

/// Read only. Each object loads the file when it is made, and sees no later change. A file that is
/// not there is an empty registry. One object belongs to one thread at a time.
class ACE_Configuration_Win32Registry
{
public:
    /// Loads the file; it is closed again.
    explicit ACE_Configuration_Win32Registry(HKEY hive);
    ~ACE_Configuration_Win32Registry();
    ACE_Configuration_Win32Registry(const ACE_Configuration_Win32Registry&) = delete;
    ACE_Configuration_Win32Registry& operator=(const ACE_Configuration_Win32Registry&) = delete;

    /// The key from which paths start.
    ACE_Configuration_Section_Key root_section() const;

    /// `sub_section` is a path with backslashes. Returns 0, or non-zero with `result` untouched if
    /// there is no such key: `create` is ignored, nothing is ever made.
    int open_section(const ACE_Configuration_Section_Key& base, const wchar_t* subSection,
                     int create, ACE_Configuration_Section_Key& result);

    /// Returns 0, or non-zero with `value` untouched if there is no string of that name.
    int get_string_value(const ACE_Configuration_Section_Key& key, const wchar_t* name,
                         ACE_String_Base<wchar_t>& value);

private:
    std::unique_ptr<ACE_Configuration_Heap> m_Heap; ///< null: an empty registry
};

} // namespace tarnix_platform

namespace tarnix_cmn_4_4
{

using tarnix_platform::ACE_Configuration_Win32Registry;
using tarnix_platform::HKEY;
using tarnix_platform::HKEY_LOCAL_MACHINE;
using tarnix_platform::TxMayImport;

} // namespace tarnix_cmn_4_4

#endif
