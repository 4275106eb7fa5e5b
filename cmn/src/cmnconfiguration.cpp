// SPDX-License-Identifier: LicenseRef-Tarnix
// CCmnConfiguration: the store, its file and its current section.
#include "cmnconfiguration.h"

#include "cmnpathtool.h"
#include "cmnstringtool.h"
#include "cmntstr.h"
#include "cmnutf8.h"
#include "platform_settings.h"

#include <ace/Configuration_Import_Export.h>

#include <utility>

namespace tarnix_cmn_4_4
{
namespace
{

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

// The vector has its size from the start. If it grew it would copy the texts, and a copy of an ACE
// string does not report a failed allocation.
std::vector<tstr> wideNames(const std::vector<std::string>& names)
{
    std::vector<tstr> wide(names.size());
    auto next = wide.begin();
    for (const std::string& name : names) {
        utf8ToWide(name, *next++);
    }
    return wide;
}

std::string reportText(const std::string& path, const SCmnImportProblem& first, std::size_t count)
{
    std::string text = "settings '" + path + "': " + std::to_string(count) + " problem" +
                       (count == 1 ? ": " : "s, first: ");
    if (first.line != 0) {
        text += "line " + std::to_string(first.line) + ": ";
    }
    return text + first.reason;
}

} // namespace

struct CCmnConfiguration::State {
    explicit State(ACE_Configuration_Heap& heap) : names(heap) {}

    TxSectionNames names;
    std::vector<SCmnImportProblem> problems;
    std::size_t problemCount = 0;
    bool mustKeepCopy{}; ///< an export would lose lines of the file
    std::string copy;    ///< the path of the last copy
    std::string report;
    std::string reportedCopy; ///< of the file that the report is about
};

CCmnConfiguration::CCmnConfiguration() : m_State(std::make_unique<State>(m_Heap))
{
    openHeap();
}

CCmnConfiguration::CCmnConfiguration(const wchar_t* path, const wchar_t* file, bool import)
    : m_State(std::make_unique<State>(m_Heap))
{
    openHeap();
    if (import) {
        importConfig(path, file);
    } else {
        setFile(path, file);
    }
}

CCmnConfiguration::~CCmnConfiguration() = default;

void CCmnConfiguration::openHeap()
{
    const int code = m_Heap.open();
    m_Opened = code == 0;
    if (!m_Opened) {
        m_LastError.setError(
            failure(code, L"Failed to open configuration heap", __LINE__, kConstructor));
    }
}

void CCmnConfiguration::setFile(const wchar_t* path, const wchar_t* file)
{
    // Sets both members or none, so that they name the same file even after a failed allocation.
    tstr newPath;
    tstr fullPath;
    assign(newPath, path);
    assign(fullPath, path, file);
    m_Path.swap(newPath);
    m_FullPath.swap(fullPath);
    m_State->problems.clear();
    m_State->problemCount = 0;
    m_State->mustKeepCopy = false;
}

int CCmnConfiguration::verifyFile()
{
    const wchar_t* message = L"Configuration path verification failed";
    int code = CCmnPathTool::verify(m_Path.c_str());
    if (code == 0) {
        message = L"Configuration path succeeded but no configuration file exists.";
        code = CCmnPathTool::verify(m_FullPath.c_str());
    }
    if (code != 0) {
        m_LastError.setError(failure(code, message, __LINE__, kImport));
    }
    return code;
}

int CCmnConfiguration::importConfig(const wchar_t* path, const wchar_t* file)
{
    setFile(path, file);
    if (const int code = verifyFile()) {
        return code;
    }
    const int code = m_Opened ? importFile() : kFailed;
    if (code != 0) {
        m_LastError.setError(
            failure(code, L"Import of configuration file failed.", __LINE__, kImport));
    }
    return code;
}

int CCmnConfiguration::importFile()
{
    m_State->mustKeepCopy = true; // also if an allocation fails
    const std::string path = CCmnStringTool::tstr2str(m_FullPath);
    TxSettingsImport file(path.c_str(), m_State->names);
    const int code = file ? ACE_Registry_ImpExp(m_Heap).import_config(file.path()) : kFailed;
    TxImportReport& report = file.report();
    if (file && code != 0 && !report.endsEarly) {
        report.add(0, "the store cannot take the whole file");
    }
    std::vector<SCmnImportProblem> problems;
    for (const auto& problem : report.problems) {
        problems.push_back({problem.line, problem.reason});
    }
    m_State->problems = std::move(problems);
    m_State->problemCount = report.count;
    if (report.count != 0) {
        m_State->report = reportText(path, m_State->problems.front(), report.count);
        m_State->reportedCopy.clear();
    } else {
        m_State->mustKeepCopy = false;
    }
    return code;
}

const std::vector<SCmnImportProblem>& CCmnConfiguration::getImportProblems() const
{
    return m_State->problems;
}

std::size_t CCmnConfiguration::getImportProblemCount() const
{
    return m_State->problemCount;
}

std::string CCmnConfiguration::getKeptCopy() const
{
    return m_State->copy;
}

std::string CCmnConfiguration::takeImportReport()
{
    if (!m_State->report.empty() && !m_State->reportedCopy.empty()) {
        m_State->report += "; copy kept in '" + m_State->reportedCopy + '\'';
    }
    return std::exchange(m_State->report, std::string());
}

int CCmnConfiguration::exportConfig()
{
    if (!m_Opened) {
        return kFailed;
    }
    const std::string path = CCmnStringTool::tstr2str(m_FullPath);
    TxSettingsExport file(path.c_str());
    if (m_State->mustKeepCopy) {
        if (!TxKeepCopy(path.c_str(), m_State->copy)) {
            return kFailed;
        }
        m_State->reportedCopy = m_State->copy;
    }
    // The code also reports failed writes, and a failure to close the file.
    if (const int code = ACE_Registry_ImpExp(m_Heap).export_config(file.path())) {
        return code;
    }
    if (!file.commit()) {
        return kFailed;
    }
    m_State->mustKeepCopy = false;
    return 0;
}

std::vector<tstr> CCmnConfiguration::enumerateSections(const ACE_Configuration_Section_Key& section)
{
    std::vector<std::string> names;
    ACE_TString name;
    for (int i = 0; m_Opened && m_Heap.enumerate_sections(section, i, name) == 0; ++i) {
        names.emplace_back(name.c_str());
    }
    return wideNames(names);
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
    ACE_Configuration_Section_Key opened;
    if (const int code = m_State->names.open(base, key, create != 0, opened)) {
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

std::vector<tstr> CCmnConfiguration::enumerateValues()
{
    std::vector<std::string> names;
    ACE_TString name;
    ACE_Configuration::VALUETYPE type = ACE_Configuration::INVALID;
    for (int i = 0; m_Opened && m_Heap.enumerate_values(m_Section, i, name, type) == 0; ++i) {
        names.emplace_back(name.c_str());
    }
    return wideNames(names);
}

int CCmnConfiguration::removeValue(const wchar_t* name)
{
    std::string key;
    return storeText(name, key) ? m_Heap.remove_value(m_Section, key.c_str()) : kFailed;
}

int CCmnConfiguration::removeSection(const wchar_t* name, bool recursive)
{
    std::string path;
    if (!storeText(name, path) || hasEmptyPart(path)) {
        return kFailed;
    }
    return m_State->names.remove(path, recursive);
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
    return m_Heap.get_integer_value(m_Section, key.c_str(), value);
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
    const int code = openSection(section, key, true);
    return code != 0 ? code : getStringValue(name, value);
}

int CCmnConfiguration::getIntegerValue(const wchar_t* section, const wchar_t* name,
                                       unsigned int& value)
{
    ACE_Configuration_Section_Key key;
    const int code = openSection(section, key, true);
    return code != 0 ? code : getIntegerValue(name, value);
}

bool CCmnConfiguration::storeText(const wchar_t* text, std::string& utf8) const
{
    return m_Opened && wideToUtf8(text, utf8);
}

} // namespace tarnix_cmn_4_4
