// SPDX-License-Identifier: LicenseRef-Tarnix
// Fuzzer of configuration files and of the registry, which has the same format. After an even first
// byte the input is a file, in which each byte 2 becomes a number, and each byte 3 a newline. After
// an odd one each three lines are a section, a name and a value to set, and the file is what the
// store exports. No value of the file may get lost in an import and an export without having been
// reported, and kept in a copy; and what was exported once is exported the same again.
#include "cmnconfiguration.h"
#include "cmnpathtool.h"
#include "cmnstringtool.h"
#include "cmnsystemfiles.h"
#include "fuzzbounds.h"
#include "platform_settings.h"
#include "support/scratchdirectory.h"

#include <cstring>
#include <set>
#include <sstream>

using namespace tarnix_cmn_4_4;

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

// How many lines of a file are values, but for those that were reported.
static long valuesOf(const std::string& file, const std::set<std::size_t>& reported)
{
    std::istringstream lines(file);
    std::size_t number = 0;
    long values = 0;
    for (std::string line; std::getline(lines, line);) {
        line.erase(0, line.find_first_not_of(" \t\r"));
        const bool isValue = std::strchr("[;#", line.c_str()[0]) == nullptr; // nor an empty line
        values += reported.count(++number) == 0 && isValue ? 1 : 0;
    }
    return values;
}

static std::vector<std::string> sortedLines(const ScratchDirectory& directory)
{
    std::vector<std::string> lines = directory.readLines("store.conf");
    std::sort(lines.begin(), lines.end());
    return lines;
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
        require(CCmnPathTool::getInstallPath(installed) == 0 && // which ends with its line
                    installed == value.substring(0, value.find(L'\r')),
                "the registry has the value of the store");
    require(config.exportConfig() == 0, "a store can be exported");
    require(directory.read("store.conf.bad") == (problems > 0 ? file : ""),
            "a copy of a file with problems is kept");
    if (config.getLastError().getCode() != 0) {
        require(problems > 0, "a failed import has a reason");
        return problems;
    }
    file.erase(0, file.rfind("\xEF\xBB\xBF", 0) == 0 ? 3 : 0);
    require(problems > reported.size() || // not all are listed
                valuesOf(directory.read("store.conf"), {}) >= valuesOf(file, reported),
            "each value is there, or reported");
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
    const std::vector<std::string> exported = sortedLines(directory);
    require(nothingIsLost(directory, directory.read("store.conf")) == 0 || problems > 0,
            "an exported file has no problems"); // a path that is not UTF-8 becomes several lines
    require(problems > 0 || sortedLines(directory) == exported, "it is the same");
}
