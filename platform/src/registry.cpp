// The registry over a text file.
#include "platform_registry.h"

#include <ace/Configuration_Import_Export.h>
#include <unicode/unistr.h>

#include <climits>
#include <cstring>
#include <mutex>
#include <new>
#include <string>

namespace tarnix_platform
{

namespace
{

constexpr std::size_t kMapSize = 16;
constexpr int kFailed = -1;

// Both are constant initialised and run nothing at unloading, so the registry works at any moment
// of the process. A path that is too long for the system keeps one byte too many here, and so stays
// a path that cannot be opened.
std::mutex g_pathMutex;
char g_path[PATH_MAX + 1];

std::string registryFile()
{
    const std::lock_guard<std::mutex> guard(g_pathMutex);
    return g_path[0] ? g_path : TARNIX_REGISTRY_FILE;
}

// This layer stands below the library's own conversions.
std::string toUtf8(const wchar_t* wide)
{
    icu::UnicodeString text;
    for (; (wide != nullptr) && *wide; ++wide) {
        text.append(static_cast<UChar32>(*wide));
    }
    std::string utf8;
    return text.toUTF8String(utf8);
}

// What is not UTF-8 comes out with U+FFFD in it.
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
    const std::lock_guard<std::mutex> guard(g_pathMutex);
    const std::size_t length = path != nullptr ? ::strnlen(path, PATH_MAX) : 0;
    std::memcpy(g_path, path != nullptr ? path : "", length);
    g_path[length] = '\0';
}

ACE_Configuration_Win32Registry::ACE_Configuration_Win32Registry(HKEY hive)
{
    auto heap = std::make_unique<ACE_Configuration_Heap>();
    if (hive != HKEY_LOCAL_MACHINE || heap->open(kMapSize) != 0) {
        return;
    }
    const std::string file = registryFile();
    if (TxMayImport(file.c_str())) {
        ACE_Registry_ImpExp(*heap).import_config(file.c_str());
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
    ACE_Configuration_Section_Key opened;
    if (!m_Heap || m_Heap->open_section(base, toUtf8(subSection).c_str(), false, opened) != 0) {
        return kFailed;
    }
    result = opened;
    return 0;
}

int ACE_Configuration_Win32Registry::get_string_value(const ACE_Configuration_Section_Key& key,
                                                      const wchar_t* name,
                                                      ACE_String_Base<wchar_t>& value)
{
    ACE_TString stored;
    if (!m_Heap || m_Heap->get_string_value(key, toUtf8(name).c_str(), stored) != 0) {
        return kFailed;
    }
    const std::wstring text = fromUtf8(stored.c_str());
    value = ACE_String_Base<wchar_t>(text.c_str());
    if (value.length() != text.size()) {
        throw std::bad_alloc(); // the string itself does not tell
    }
    return 0;
}

} // namespace tarnix_platform
