/// @file
/// The machine's registry. One text file holds its values.
///
/// @verbatim
///   [SOFTWARE\Brenholt\Tarnix]
///   "InstallDir64"="/opt/tarnix/"
///   [SOFTWARE\Microsoft\Windows\CurrentVersion]
///   "ProgramFilesDir"="/opt"
/// @endverbatim
///
/// That is the format of ACE_Registry_ImpExp, in UTF-8. A last line without a newline is not read.
/// Nothing is read after a line that cannot be parsed. The path of the file is set when the library
/// is built, or by the process with setRegistryFile. On Windows, the header of the same name in
/// platform/windows/include takes the place of this one.
#ifndef TARNIX_PLATFORM_REGISTRY_H
#define TARNIX_PLATFORM_REGISTRY_H

#include <ace/Configuration.h>
#include <ace/SString.h>

#include <cstdint>
#include <memory>

namespace tarnix_platform
{

/// A hive. All but HKEY_LOCAL_MACHINE, that of the machine, are empty.
enum class HKEY : std::uintptr_t {};
constexpr HKEY HKEY_LOCAL_MACHINE{0x80000002};

/// Sets the path of the registry file for this process, in the encoding of the file system; null or
/// "" restores the path that was built in. The text is copied. Any thread may call. Only registry
/// objects that are created afterwards read the file.
void setRegistryFile(const char* path);

/// Whether ACE_Registry_ImpExp can import the file without harm. It doubles its buffer at each zero
/// byte and for a long line, until the size wraps and it writes past the end of the buffer; the
/// memory for a section grows with the square of its depth, and the export is recursive. So the
/// result is false for a file with more than 8 zero bytes, a line of more than 16 MiB, a section
/// more than 128 levels deep, or more than 50000 levels of sections in all; and for anything but a
/// regular file, which may have no end. It is true for a file that does not exist. The import opens
/// the path again: this is no defence against somebody who writes the file meanwhile.
bool TxMayImport(const char* path);

/// Read only. Each object loads the file when it is created, and sees no later change. If there is
/// no file, the registry is empty. Only one thread at a time may use an object.
class ACE_Configuration_Win32Registry
{
public:
    /// Loads the file and closes it.
    explicit ACE_Configuration_Win32Registry(HKEY hive);
    ~ACE_Configuration_Win32Registry();
    ACE_Configuration_Win32Registry(const ACE_Configuration_Win32Registry&) = delete;
    ACE_Configuration_Win32Registry& operator=(const ACE_Configuration_Win32Registry&) = delete;

    /// The key from which paths start.
    ACE_Configuration_Section_Key root_section() const;

    /// `subSection` is a path with backslashes. Returns 0; or non-zero with `result` unchanged if
    /// there is no such key. `create` has no effect: no key is ever created.
    int open_section(const ACE_Configuration_Section_Key& base, const wchar_t* subSection,
                     int create, ACE_Configuration_Section_Key& result);

    /// Returns 0; or non-zero with `value` unchanged if there is no string of that name.
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
