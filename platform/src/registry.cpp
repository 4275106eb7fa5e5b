// SPDX-License-Identifier: LicenseRef-Tarnix
// The registry, kept in a text file.
#include "pathsetting.h"
#include "platform_registry.h"
#include "platform_settings.h"

#include <ace/Configuration_Import_Export.h>
#include <unicode/unistr.h>

#include <algorithm>
#include <new>
#include <string>

namespace tarnix_platform
{

namespace
{

constexpr int kFailed = -1;

PathSetting g_registryFile;

// Converted here, because the layer must not use the library's conversions.
std::string toUtf8(const wchar_t* wide)
{
    icu::UnicodeString text;
    for (; (wide != nullptr) && *wide; ++wide) {
        text.append(static_cast<UChar32>(*wide));
    }
    std::string utf8;
    return text.toUTF8String(utf8);
}

// Bytes that are not UTF-8 become U+FFFD.
std::wstring fromUtf8(const char* utf8)
{
    const icu::UnicodeString text = icu::UnicodeString::fromUTF8(utf8);
    std::wstring wide;
    for (std::int32_t i = 0; i < text.length(); i = text.moveIndex32(i, 1)) {
        wide += static_cast<wchar_t>(text.char32At(i));
    }
    return wide;
}

} // namespace

void setRegistryFile(const char* path)
{
    g_registryFile.set(path);
}

ACE_Configuration_Win32Registry::ACE_Configuration_Win32Registry(HKEY hive)
{
    auto heap = std::make_unique<ACE_Configuration_Heap>();
    if (hive != HKEY_LOCAL_MACHINE || heap->open() != 0) {
        return;
    }
    const std::string file = g_registryFile.pathOr(TARNIX_REGISTRY_FILE);
    m_Names = std::make_unique<TxSectionNames>(*heap);
    const TxSettingsImport import(file.c_str(), *m_Names);
    if (import) {
        ACE_Registry_ImpExp(*heap).import_config(import.path());
    }
    m_Heap = std::move(heap);
}

ACE_Configuration_Win32Registry::~ACE_Configuration_Win32Registry() = default;

ACE_Configuration_Section_Key ACE_Configuration_Win32Registry::root_section() const
{
    return m_Heap ? m_Heap->root_section() : ACE_Configuration_Section_Key();
}

int ACE_Configuration_Win32Registry::open_section(const ACE_Configuration_Section_Key& base,
                                                  const wchar_t* subSection, int /*create*/,
                                                  ACE_Configuration_Section_Key& result)
{
    const std::string path = toUtf8(subSection);
    return m_Heap && !path.empty() ? m_Names->open(base, path, false, result) : kFailed;
}

int ACE_Configuration_Win32Registry::get_string_value(const ACE_Configuration_Section_Key& key,
                                                      const wchar_t* name,
                                                      ACE_String_Base<wchar_t>& value)
{
    ACE_TString stored;
    if (!m_Heap || m_Heap->get_string_value(key, toUtf8(name).c_str(), stored) != 0) {
        return kFailed;
    }
    // A value whose closing quote is missing contains its newline. It must not become a part of
    // the name of a directory.
    std::wstring text = fromUtf8(stored.c_str());
    text.erase(std::min(text.find_first_of(L"\r\n"), text.size()));
    value = ACE_String_Base<wchar_t>(text.c_str());
    if (value.length() != text.size()) {
        throw std::bad_alloc(); // the string of ACE does not report it
    }
    return 0;
}

} // namespace tarnix_platform
