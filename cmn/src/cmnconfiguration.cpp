// CCmnConfiguration: the store, its file and its current section.
#include "cmnconfiguration.h"

#include "cmnpathtool.h"
#include "cmnstringtool.h"
#include "cmntstr.h"
#include "cmnutf8.h"
#include "platform_file.h"
#include "platform_registry.h"

#include <ace/Configuration_Import_Export.h>

namespace tarnix_cmn_4_4
{
namespace
{

constexpr std::size_t kMapSize = 16;
constexpr int kFailed = -1; // the code that the ACE store returns for a failure

CCmnError failure(int code, const wchar_t* message, int line, const wchar_t* function)
{
    return CCmnError(code, message, L"cmn\\src\\cmnconfiguration", line, function);
}

// Whether a section of the path has an empty name. The store would create such a section, but then
// every export fails.
bool hasEmptyPart(const std::string& path)
{
    return path.empty() || path.back() == '\\' || path.find("\\\\") != std::string::npos;
}

constexpr const wchar_t* kConstructor = L"tarnix_cmn_4_4::CCmnConfiguration::CCmnConfiguration";
constexpr const wchar_t* kImport = L"tarnix_cmn_4_4::CCmnConfiguration::importConfig";

// Makes room for one more text. If the vector grew by itself it would copy the texts, and a copy of
// an ACE string does not report a failed allocation.
void grow(std::vector<tstr>& texts)
{
    if (texts.size() < texts.capacity()) {
        return;
    }
    std::vector<tstr> grown;
    grown.reserve(2 * texts.size() + 8);
    for (tstr& text : texts) {
        grown.emplace_back().swap(text);
    }
    texts.swap(grown);
}

} // namespace

CCmnConfiguration::CCmnConfiguration()
{
    openHeap();
}

CCmnConfiguration::CCmnConfiguration(const wchar_t* path, const wchar_t* file, bool import)
{
    openHeap();
    if (import) {
        importConfig(path, file);
    } else {
        setFile(path, file);
    }
}

void CCmnConfiguration::openHeap()
{
    const int code = m_Heap.open(kMapSize);
    m_Opened = code == 0;
    if (!m_Opened) {
        m_LastError.setError(
            failure(code, L"Failed to open configuration heap", __LINE__, kConstructor));
    }
}

void CCmnConfiguration::setFile(const wchar_t* path, const wchar_t* file)
{
    // Sets all three members or none, so that they name the same file even after a failed
    // allocation.
    tstr newPath;
    tstr newFile;
    tstr fullPath;
    assign(newPath, path);
    assign(newFile, file);
    assign(fullPath, newPath, newFile);
    m_Path.swap(newPath);
    m_File.swap(newFile);
    m_FullPath.swap(fullPath);
}

// If the file exists, its directory exists too, and one check is enough. This holds only if m_Path
// ends with a separator: otherwise m_Path is not the directory of the file.
int CCmnConfiguration::verifyFile()
{
    const std::size_t length = m_Path.length();
    const int missingFile = CCmnPathTool::verify(m_FullPath.c_str());
    if (missingFile == 0 && length > 0 && m_Path[length - 1] == L'/') {
        return 0;
    }
    if (const int code = CCmnPathTool::verify(m_Path.c_str())) {
        m_LastError.setError(
            failure(code, L"Configuration path verification failed", __LINE__, kImport));
        return code;
    }
    if (missingFile != 0) {
        m_LastError.setError(
            failure(missingFile, L"Configuration path succeeded but no configuration file exists.",
                    __LINE__, kImport));
    }
    return missingFile;
}

int CCmnConfiguration::importConfig(const wchar_t* path, const wchar_t* file)
{
    setFile(path, file);
    if (const int code = verifyFile()) {
        return code;
    }
    const std::string fullPath = CCmnStringTool::tstr2str(m_FullPath);
    ACE_Registry_ImpExp importer(m_Heap);
    const bool allowed = m_Opened && TxMayImport(fullPath.c_str());
    if (const int code = allowed ? importer.import_config(fullPath.c_str()) : kFailed) {
        m_LastError.setError(
            failure(code, L"Import of configuration file failed.", __LINE__, kImport));
        return code;
    }
    return 0;
}

int CCmnConfiguration::exportConfig()
{
    if (!m_Opened) {
        return kFailed;
    }
    const std::string path = CCmnStringTool::tstr2str(m_FullPath);
    ACE_Registry_ImpExp exporter(m_Heap);
    TxReplacement replacement(path.c_str());
    if (replacement) {
        // The code also reports failed writes, and a failure to close the file.
        if (const int code = exporter.export_config(replacement.path().c_str())) {
            return code;
        }
        if (!TxMayImport(replacement.path().c_str())) {
            return kFailed; // importConfig would reject the file
        }
        if (replacement.commit()) {
            return 0;
        }
    }
    if (replacement.mustKeepOld()) {
        return kFailed;
    }
    return exporter.export_config(path.c_str());
}

std::vector<tstr> CCmnConfiguration::enumerateSections(const ACE_Configuration_Section_Key& section)
{
    std::vector<tstr> names;
    ACE_TString name;
    for (int i = 0; m_Opened && m_Heap.enumerate_sections(section, i, name) == 0; ++i) {
        grow(names);
        utf8ToWide(name.c_str(), names.emplace_back());
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
    if (!storeText(name, key) || hasEmptyPart(key)) {
        return kFailed;
    }
    // The store sets its output at each step along the path, even if a later step fails.
    ACE_Configuration_Section_Key opened;
    if (const int code = m_Heap.open_section(base, key.c_str(), create != 0, opened)) {
        return code;
    }
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
    if (!storeText(name, key)) {
        return kFailed;
    }
    return m_Heap.set_integer_value(m_Section, key.c_str(), value);
}

int CCmnConfiguration::getIntegerValue(const wchar_t* name, unsigned int& value)
{
    std::string key;
    if (!storeText(name, key)) {
        return kFailed;
    }
    unsigned int stored = 0;
    if (const int code = m_Heap.get_integer_value(m_Section, key.c_str(), stored)) {
        return code;
    }
    value = stored;
    return 0;
}

int CCmnConfiguration::setStringValue(const wchar_t* name, const tstr& value)
{
    std::string key;
    std::string text;
    // Goes through tstr2wstr, because a tstr that does not own its memory need not be terminated.
    if (!storeText(name, key) || !storeText(CCmnStringTool::tstr2wstr(value).c_str(), text)) {
        return kFailed;
    }
    return m_Heap.set_string_value(m_Section, key.c_str(), ACE_TString(text.c_str()));
}

int CCmnConfiguration::getStringValue(const wchar_t* name, tstr& value)
{
    std::string key;
    if (!storeText(name, key)) {
        return kFailed;
    }
    ACE_TString stored;
    if (const int code = m_Heap.get_string_value(m_Section, key.c_str(), stored)) {
        return code;
    }
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
