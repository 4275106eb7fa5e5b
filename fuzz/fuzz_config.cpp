// Fuzzer of configuration files and of the registry, which has the same format. After an even first
// byte the input is a file, in which each byte 2 becomes a number, and each byte 3 a newline: no
// setting may get lost without having been reported, and kept in a copy. After an odd one each
// three lines are a section, a name and a value to set: what the store accepts must survive an
// export and an import.
#include "cmnconfiguration.h"
#include "cmnpathtool.h"
#include "cmnstringtool.h"
#include "cmnsystemfiles.h"
#include "fuzzbounds.h"
#include "platform_settings.h"
#include "support/scratchdirectory.h"

#include <ace/Configuration_Import_Export.h>

#include <map>
#include <set>
#include <sstream>

using namespace tarnix_cmn_4_4;
using Lines = std::multiset<std::string>;

static void setValues(CCmnConfiguration& config, FuzzInput& input)
{
    const auto next = [&input] {
        return CCmnStringTool::ustr2tstr(CCmnStringTool::str2ustr(input.until('\n')));
    };
    for (unsigned int i = 1; i <= 20; ++i) {
        const tstr section = next(), name = next(), value = next();
        ACE_Configuration_Section_Key key;
        config.openSection(section.c_str(), key, 1);
        config.setStringValue(name.c_str(), value);
        config.setIntegerValue((name + L"#").c_str(), UINT32_MAX / i);
    }
}

static std::string fileOf(FuzzInput& input)
{
    std::string file;
    unsigned int numbers = 0;
    for (const char c : input.expanded(8000))
        if (c == '\2')
            file += std::to_string(numbers++);
        else
            file += c == '\3' ? '\n' : c;
    return file;
}

// The lines of an exported file, or none if they are ambiguous. The store accepts what the format
// cannot represent: a slash in a section, a quote in a name, a value outside all sections. A quote
// in a text is representable, but is not distinguished here; with a comment after it, it is
// reported.
static Lines exportedLines(const ScratchDirectory& directory)
{
    Lines lines; // the store does not keep the order
    for (const std::string& line : directory.readLines("store.conf")) {
        const auto quotes = std::count(line.begin(), line.end(), '"');
        const bool isSection = line[0] == '[' && line.find('/') == std::string::npos;
        const bool isValue = !lines.empty() && line[0] == '"' &&
                             (quotes == 2 || (quotes == 4 && line.back() == '"' &&
                                              line.find_first_of(";#") == line.npos));
        if (isSection || isValue)
            lines.insert(line);
        else if (!line.empty())
            return {};
    }
    return lines;
}

static std::string lower(std::string text)
{
    std::transform(text.begin(), text.end(), text.begin(), ::tolower);
    return text;
}

// The path as ACE reads it, in lower case; empty if there is none.
static std::string pathOf(const std::string& line)
{
    std::string path;
    for (const char c : line.substr(1, line.rfind(']') - 1))
        if (c != '\\' && c != '/')
            path += c;
        else if (!path.empty() && path.back() != '\\')
            path += '\\';
    return lower(path.substr(0, path.find_last_not_of('\\') + 1));
}

// Of what follows the equal sign, in one form for all spellings.
static std::string valueOf(const std::string& text, bool isOldForm)
{
    const auto number = [&](std::size_t at, int base) {
        return '=' + std::to_string(std::strtoul(text.c_str() + at, nullptr, base));
    };
    if (text[0] == '"' && isOldForm)
        return text.substr(0, text.find_last_not_of('\r') + 1);
    if (text[0] == '"')
        return text.substr(0, text.rfind('"'));
    if (text[0] == '#')
        return number(1, 10);
    if (text.rfind("dword:", 0) == 0)
        return number(6, 16);
    std::string bytes = lower(text.substr(0, text.find_first_of(";#")));
    std::replace_if(bytes.begin(), bytes.end(), ::isblank, ',');
    return bytes.substr(0, bytes.find_last_of("0123456789abcdef:") + 1);
}

// The sections and values of a file, whose lines in `reported` need not survive.
static std::map<std::string, std::string> settingsOf(const std::string& file,
                                                     const std::set<std::size_t>& reported)
{
    std::map<std::string, std::string> settings;
    std::string section;
    std::istringstream lines(file);
    std::size_t number = 0;
    for (std::string line; std::getline(lines, line);) {
        const bool isReported = reported.count(++number) > 0;
        const std::size_t first = line.find_first_not_of(" \t\r");
        if (first == line.npos || line[first] == ';' || line[first] == '#' ||
            line.find('\0') != line.npos)
            continue;
        if (line[0] == '[') {
            const std::string path = pathOf(line);
            if (path.empty() || line.find(']') == line.npos)
                continue; // ACE stays in the section before
            section = path;
            settings[section] = "";
            continue;
        }
        const bool isOldForm = line[0] != '"';
        const std::size_t equal = line.find('=', isOldForm ? 0 : line.find('"', 1));
        const std::size_t end = isOldForm ? equal : line.find('"', 1);
        const std::string name = lower(line.substr(!isOldForm, end - !isOldForm));
        if (!isReported)
            settings[section + '|' + name] = valueOf(line.substr(equal + 1), isOldForm);
        else // it may replace one before
            settings.erase(section + '|' + name);
    }
    return settings;
}

static void nothingIsLost(const ScratchDirectory& directory, const CCmnConfiguration& config,
                          std::string file, bool isImported)
{
    require(directory.read("store.conf.bad") == (config.getImportProblemCount() > 0 ? file : ""),
            "a copy of a file with problems is kept");
    require(isImported || config.getImportProblemCount() > 0, "a failed import has a reason");
    std::set<std::size_t> reported;
    for (const SCmnImportProblem& problem : config.getImportProblems())
        reported.insert(problem.line);
    if (!isImported || config.getImportProblemCount() > reported.size())
        return;
    if (file.rfind("\xEF\xBB\xBF", 0) == 0)
        file.erase(0, 3);
    std::map<std::string, std::string> now = settingsOf(directory.read("store.conf"), {});
    for (const auto& [name, value] : settingsOf(file, reported))
        require(now.count(name) > 0 && now[name] == value, "it is exported, or was reported");
}

void fuzz(FuzzInput input)
{
    static const ScratchDirectory directory;
    static const std::string path = directory.path("store.conf"), bare = directory.path("bare");
    FuzzInput copy = input;
    const bool imports = input.byte() % 2 == 0;
    const std::string text = imports ? fileOf(input) : copy.rest();
    directory.write("store.conf", text);
    std::filesystem::remove(directory.path("store.conf.bad"));
    {
        ACE_Configuration_Heap heap;
        heap.open(16);
        TxSectionNames names(heap);
        const FuzzBounds bounds(0.1, 1e-6, 1e6, 200, double(text.size()));
        TxSettingsImport(path.c_str(), names);
    }
    setRegistryFile(path.c_str());
    CCmnConfiguration config(directory.widePath().c_str(), L"store.conf", imports), back;
    ACE_Configuration_Section_Key key;
    tstr value, installed;
    const int code = CCmnPathTool::getInstallPath(installed);
    const bool isImported = config.getLastError().getCode() == 0;
    if (!imports)
        setValues(config, input);
    else if (config.openSection(L"SOFTWARE\\Brenholt\\Tarnix", key, 0) == 0 &&
             config.getStringValue(L"InstallDir64", value) == 0)
        require(code == 0 && installed == value, "the registry has the value of the store");
    // The library refuses too many levels.
    if (std::count(text.begin(), text.end(), '/') > 100 ||
        std::count(text.begin(), text.end(), '\\') > 2000)
        return;
    require(ACE_Registry_ImpExp(config.configHeap()).export_config(bare.c_str()) == 0 &&
                config.exportConfig() == 0,
            "a store can be exported");
    if (imports)
        nothingIsLost(directory, config, text, isImported);
    const Lines lines = exportedLines(directory);
    if (!imports && lines.empty())
        return;
    std::filesystem::remove(directory.path("store.conf.bad"));
    require(back.importConfig(directory.widePath().c_str(), L"store.conf") == 0, "it is imported");
    require(back.getImportProblemCount() == 0 || config.getImportProblemCount() > 0,
            "without problems"); // a path that is not UTF-8 becomes several lines
    require(back.exportConfig() == 0 && exportedLines(directory) == lines, "it is the same");
}
