// SPDX-License-Identifier: LicenseRef-Tarnix
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
/// That is the format of ACE_Registry_ImpExp, in UTF-8. A line that cannot be read is skipped, or
/// ends the reading; CCmnConfiguration::importConfig of the same file lists such lines. The path of
/// the file is set when the library is built, or by the process with setRegistryFile. On Windows,
/// the header of the same name in platform/windows/include takes the place of this one.
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

class TxSectionNames;

/// Sets the path of the registry file for this process, in the encoding of the file system; null or
/// "" restores the path that was built in. The text is copied. Any thread may call. Only registry
/// objects that are created afterwards read the file.
void setRegistryFile(const char* path);

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

    /// `subSection` is a path with backslashes, in any case. Returns 0; or non-zero with `result`
    /// unchanged if there is no such key. `create` has no effect: no key is ever created.
    int open_section(const ACE_Configuration_Section_Key& base, const wchar_t* subSection,
                     int create, ACE_Configuration_Section_Key& result);

    /// Returns 0; or non-zero with `value` unchanged if there is no string of that name. A text
    /// ends before its first newline, which it has if its closing quote is missing.
    int get_string_value(const ACE_Configuration_Section_Key& key, const wchar_t* name,
                         ACE_String_Base<wchar_t>& value);

private:
    std::unique_ptr<ACE_Configuration_Heap> m_Heap; ///< null: an empty registry
    std::unique_ptr<TxSectionNames> m_Names;        ///< of the heap
};

} // namespace tarnix_platform

namespace tarnix_cmn_4_4
{

using tarnix_platform::ACE_Configuration_Win32Registry;
using tarnix_platform::HKEY;
using tarnix_platform::HKEY_LOCAL_MACHINE;

} // namespace tarnix_cmn_4_4

#endif
