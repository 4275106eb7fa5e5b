// CCmnConfiguration: the store, its file and its current section.
#include "cmnconfiguration.h"

#include "cmnpathtool.h"
#include "cmnstringtool.h"
#include "cmnutf8.h"

#include <ace/Configuration_Import_Export.h>

namespace tarnix_cmn_4_4
{
namespace
{

constexpr std::size_t kMapSize = 16;
constexpr int kFailed = -1; // the store's own code for what it refuses

CCmnError failure(int code, const wchar_t* message, int line, const wchar_t* function)
{
    return CCmnError(code, message, L"cmn\\src\\cmnconfiguration", line, function);
}

constexpr const wchar_t* kConstructor = L"tarnix_cmn_4_4::CCmnConfiguration::CCmnConfiguration";
constexpr const wchar_t* kImport = L"tarnix_cmn_4_4::CCmnConfiguration::importConfig";

} // namespace

CCmnConfiguration::CCmnConfiguration()
{
    openHeap();
}

CCmnConfiguration::CCmnConfiguration(const wchar_t* path, const wchar_t* file, bool import)
{
    openHeap();
    if (import)
        importConfig(path, file);
    else
        setFile(path, file);
}

void CCmnConfiguration::openHeap()
{
    const int code = m_Heap.open(kMapSize);
    m_Opened = code == 0;
    if (!m_Opened)
        m_LastError.setError(
            failure(code, L"Failed to open configuration heap", __LINE__, kConstructor));
}

void CCmnConfiguration::setFile(const wchar_t* path, const wchar_t* file)
{
    m_Path = tstr(path);
    m_File = tstr(file);
    m_FullPath = m_Path + m_File;
}

int CCmnConfiguration::importConfig(const wchar_t* path, const wchar_t* file)
{
    setFile(path, file);
    if (const int code = CCmnPathTool::verify(m_Path.c_str())) {
        m_LastError.setError(
            failure(code, L"Configuration path verification failed", __LINE__, kImport));
        return code;
    }
    if (const int code = CCmnPathTool::verify(m_FullPath.c_str())) {
        m_LastError.setError(
            failure(code, L"Configuration path succeeded but no configuration file exists.",
                    __LINE__, kImport));
        return code;
    }
    const std::string fullPath = CCmnStringTool::tstr2str(m_FullPath);
    ACE_Registry_ImpExp importer(m_Heap);
    if (const int code = m_Opened ? importer.import_config(fullPath.c_str()) : kFailed) {
        m_LastError.setError(
            failure(code, L"Import of configuration file failed.", __LINE__, kImport));
        return code;
    }
    return 0;
}

int CCmnConfiguration::exportConfig()
{
    if (!m_Opened)
        return kFailed;
    const std::string fullPath = CCmnStringTool::tstr2str(m_FullPath);
    return ACE_Registry_ImpExp(m_Heap).export_config(fullPath.c_str());
}

std::vector<tstr> CCmnConfiguration::enumerateSections(const ACE_Configuration_Section_Key& section)
{
    std::vector<tstr> names;
    ACE_TString name;
    for (int i = 0; m_Opened && m_Heap.enumerate_sections(section, i, name) == 0; ++i) {
        names.emplace_back();
        utf8ToWide(name.c_str(), names.back());
    }
    return names;
}

std::vector<tstr> CCmnConfiguration::enumerateSections()
{
    return enumerateSections(m_Section);
}

int CCmnConfiguration::openSection(const ACE_Configuration_Section_Key& base, const wchar_t* name,
                                   ACE_Configuration_Section_Key& result, int create)
{
    std::string key;
    if (!storeText(name, key))
        return kFailed;
    // The store changes its output on the way along a path, also when it fails in the end.
    ACE_Configuration_Section_Key opened;
    if (const int code = m_Heap.open_section(base, key.c_str(), create != 0, opened))
        return code;
    result = opened;
    m_Section = opened;
    return 0;
}

int CCmnConfiguration::openSection(const wchar_t* name, ACE_Configuration_Section_Key& result,
                                   int create)
{
    return openSection(m_Heap.root_section(), name, result, create);
}

ACE_Configuration_Heap& CCmnConfiguration::configHeap()
{
    return m_Heap;
}

int CCmnConfiguration::setIntegerValue(const wchar_t* name, unsigned int value)
{
    std::string key;
    if (!storeText(name, key))
        return kFailed;
    return m_Heap.set_integer_value(m_Section, key.c_str(), value);
}

int CCmnConfiguration::getIntegerValue(const wchar_t* name, unsigned int& value)
{
    std::string key;
    if (!storeText(name, key))
        return kFailed;
    unsigned int stored = 0;
    if (const int code = m_Heap.get_integer_value(m_Section, key.c_str(), stored))
        return code;
    value = stored;
    return 0;
}

int CCmnConfiguration::setStringValue(const wchar_t* name, const tstr& value)
{
    std::string key;
    std::string text;
    if (!storeText(name, key) || !storeText(value.c_str(), text))
        return kFailed;
    return m_Heap.set_string_value(m_Section, key.c_str(), ACE_TString(text.c_str()));
}

int CCmnConfiguration::getStringValue(const wchar_t* name, tstr& value)
{
    std::string key;
    if (!storeText(name, key))
        return kFailed;
    ACE_TString stored;
    if (const int code = m_Heap.get_string_value(m_Section, key.c_str(), stored))
        return code;
    return utf8ToWide(stored.c_str(), value) ? 0 : kFailed;
}

int CCmnConfiguration::getStringValue(const wchar_t* section, const wchar_t* name, tstr& value)
{
    ACE_Configuration_Section_Key key;
    const int code = openSection(section, key, 1);
    return code != 0 ? code : getStringValue(name, value);
}

int CCmnConfiguration::getIntegerValue(const wchar_t* section, const wchar_t* name,
                                       unsigned int& value)
{
    ACE_Configuration_Section_Key key;
    const int code = openSection(section, key, 1);
    return code != 0 ? code : getIntegerValue(name, value);
}

bool CCmnConfiguration::storeText(const wchar_t* text, std::string& utf8) const
{
    return m_Opened && wideToUtf8(text, utf8);
}

} // namespace tarnix_cmn_4_4
