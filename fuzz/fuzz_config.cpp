// Fuzzer of configuration files and of the registry, which has the same format. After an even first
// byte the input is a file, in which each byte 2 becomes a number, and each byte 3 a newline. After
// an odd one each three lines are a section, a name and a value to set, and the file is what the
// store exports. No setting of the file may get lost in an import and an export without having been
// reported, and kept in a copy.
#include "cmnconfiguration.h"
#include "cmnpathtool.h"
#include "cmnstringtool.h"
#include "cmnsystemfiles.h"
#include "fuzzbounds.h"
#include "platform_settings.h"
#include "support/scratchdirectory.h"

#include <map>
#include <set>
#include <sstream>

using namespace tarnix_cmn_4_4;
using Settings = std::map<std::string, std::string>;

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
        file += c == '\2' ? std::to_string(numbers++) : std::string(1, c == '\3' ? '\n' : c);
    return file;
}

static std::string lower(std::string text)
{
    std::transform(text.begin(), text.end(), text.begin(), ::tolower);
    return text;
}

// The path as ACE reads it; empty if there is none.
static std::string pathOf(const std::string& line)
{
    std::string path;
    for (const char c : line.substr(1, line.rfind(']') - 1))
        if (c != '\\' && c != '/')
            path += c;
        else if (!path.empty() && path.back() != '\\')
            path += '\\';
    return path.substr(0, path.find_last_not_of('\\') + 1);
}

// Of what follows the equal sign, in one form for all spellings.
static std::string valueOf(const std::string& text, bool isOldForm)
{
    if (text[0] == '"')
        return text.substr(0, isOldForm ? text.find_last_not_of('\r') + 1 : text.rfind('"'));
    if (text[0] == '#')
        return std::to_string(std::strtoul(text.c_str() + 1, nullptr, 10));
    if (text.rfind("dword:", 0) == 0)
        return std::to_string(std::strtoul(text.c_str() + 6, nullptr, 16));
    std::string bytes = lower(text.substr(0, text.find_first_of(";#")));
    std::replace_if(bytes.begin(), bytes.end(), ::isblank, ',');
    return bytes.substr(0, bytes.find_last_of("0123456789abcdef:") + 1);
}

// The sections and values of a file, but no values of lines that were reported.
static Settings settingsOf(const std::string& file, const std::set<std::size_t>& reported)
{
    Settings settings;
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
            const std::string path = line.find(']') == line.npos ? "" : lower(pathOf(line));
            if (!path.empty()) // or ACE stays in the section before
                settings[section = path] = "";
            continue;
        }
        const bool isOldForm = line[0] != '"';
        const std::size_t quote = isOldForm ? 0 : line.find('"', 1);
        const std::size_t equal = line.find('=', quote), start = isOldForm ? 0 : 1;
        const std::string name = lower(line.substr(start, (isOldForm ? equal : quote) - start));
        if (isReported) // it may replace one before
            settings.erase(section + '|' + name);
        else
            settings[section + '|' + name] = valueOf(line.substr(equal + 1), isOldForm);
    }
    return settings;
}

// Imports the file, and exports it. Returns the number of its problems.
static std::size_t nothingIsLost(const ScratchDirectory& directory, std::string file)
{
    std::filesystem::remove(directory.path("store.conf.bad"));
    CCmnConfiguration config(directory.widePath().c_str(), L"store.conf", true);
    const std::size_t problems = config.getImportProblemCount();
    std::set<std::size_t> reported;
    for (const SCmnImportProblem& problem : config.getImportProblems())
        reported.insert(problem.line);
    ACE_Configuration_Section_Key key;
    tstr value, installed;
    if (config.openSection(L"SOFTWARE\\Brenholt\\Tarnix", key, 0) == 0 &&
        config.getStringValue(L"InstallDir64", value) == 0)
        require(CCmnPathTool::getInstallPath(installed) == 0 && installed == value,
                "the registry has the value of the store");
    require(config.exportConfig() == 0, "a store can be exported");
    require(directory.read("store.conf.bad") == (problems > 0 ? file : ""),
            "a copy of a file with problems is kept");
    if (config.getLastError().getCode() != 0) {
        require(problems > 0, "a failed import has a reason");
        return problems;
    }
    if (file.rfind("\xEF\xBB\xBF", 0) == 0)
        file.erase(0, 3);
    const Settings now = settingsOf(directory.read("store.conf"), {});
    if (problems == reported.size()) // and all are listed
        for (const auto& setting : settingsOf(file, reported))
            require(std::count(now.begin(), now.end(), setting) == 1, "it is there, or reported");
    return problems;
}

void fuzz(FuzzInput input)
{
    static const ScratchDirectory directory;
    static const std::string path = directory.path("store.conf");
    setRegistryFile(path.c_str());
    if (input.byte() % 2 == 0) {
        directory.write("store.conf", fileOf(input));
    } else {
        CCmnConfiguration config(directory.widePath().c_str(), L"store.conf", false);
        setValues(config, input);
        require(config.exportConfig() == 0, "a store can be exported");
    }
    const std::string text = directory.read("store.conf");
    {
        ACE_Configuration_Heap heap;
        heap.open();
        TxSectionNames names(heap);
        const FuzzBounds bounds(0.1, 1e-6, 1e6, 200, double(text.size()));
        TxSettingsImport(path.c_str(), names);
    }
    // The library refuses too many levels.
    if (std::count(text.begin(), text.end(), '/') > 100 ||
        std::count(text.begin(), text.end(), '\\') > 2000)
        return;
    const std::size_t problems = nothingIsLost(directory, text);
    const std::string exported = directory.read("store.conf");
    require(nothingIsLost(directory, exported) == 0 || problems > 0,
            "an exported file has no problems"); // a path that is not UTF-8 becomes several lines
    require(problems > 0 ||
                settingsOf(directory.read("store.conf"), {}) == settingsOf(exported, {}),
            "it is the same");
}
