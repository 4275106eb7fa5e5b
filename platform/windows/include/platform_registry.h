// SPDX-License-Identifier: LicenseRef-Tarnix
/// @file
/// The machine's registry, read through ACE's class.
/// In the include path it comes before the header of the same name in platform/include.
#ifndef TARNIX_PLATFORM_REGISTRY_H
#define TARNIX_PLATFORM_REGISTRY_H

#include "platform.h"

#include <ace/Configuration.h>
#include <ace/SString.h>

namespace tarnix_platform
{

/// Has no effect: the system keeps the values itself.
inline void setRegistryFile(const char* /*path*/) {}

/// ACE's class, read only and with wide texts.
class ACE_Configuration_Win32Registry : public ::ACE_Configuration_Win32Registry
{
    using Narrow = ::ACE_Configuration_Win32Registry;

public:
    explicit ACE_Configuration_Win32Registry(HKEY hive) : Narrow(hive, KEY_READ) {}

    using Narrow::get_string_value;
    using Narrow::open_section;

    int open_section(const ACE_Configuration_Section_Key& base, const wchar_t* subSection,
                     bool create, ACE_Configuration_Section_Key& result)
    {
        return Narrow::open_section(base, ACE_TEXT_WCHAR_TO_TCHAR(subSection), create, result);
    }

    int get_string_value(const ACE_Configuration_Section_Key& key, const wchar_t* name,
                         ACE_String_Base<wchar_t>& value)
    {
        ACE_TString stored;
        const int code = Narrow::get_string_value(key, ACE_TEXT_WCHAR_TO_TCHAR(name), stored);
        if (code == 0) {
            value = ACE_TEXT_ALWAYS_WCHAR(stored.c_str());
        }
        return code;
    }
};

} // namespace tarnix_platform

namespace tarnix_cmn_4_4
{

using tarnix_platform::ACE_Configuration_Win32Registry;

} // namespace tarnix_cmn_4_4

#endif
