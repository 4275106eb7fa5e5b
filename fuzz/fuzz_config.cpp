// Fuzzer of configuration files and of the registry, which has the same format. After an even first
// byte the input is a file; after an odd one each three lines are a section, a name and a value to
// set. The content of the store must survive an export and an import.
#include "cmnconfiguration.h"
#include "cmnpathtool.h"
#include "cmnstringtool.h"
#include "cmnsystemfiles.h"
#include "fuzzinput.h"
#include "support/scratchdirectory.h"

#include <ace/Configuration_Import_Export.h>

#include <set>

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

// The lines of an exported file, or none if they are ambiguous. The store accepts what the format
// cannot represent: a slash in a section, a quote in a name, a value outside all sections. A quote
// in a text is representable, but is not distinguished here.
static std::multiset<std::string> exportedLines(const ScratchDirectory& directory)
{
    std::multiset<std::string> lines; // the store does not keep the order
    for (const std::string& line : directory.readLines("store.conf")) {
        const auto quotes = std::count(line.begin(), line.end(), '"');
        const bool isSection = line[0] == '[' && line.find('/') == std::string::npos;
        const bool isValue = !lines.empty() && line[0] == '"' &&
                             (quotes == 2 || (quotes == 4 && line.back() == '"'));
        if (isSection || isValue)
            lines.insert(line);
        else if (!line.empty())
            return {};
    }
    return lines;
}

void fuzz(FuzzInput input)
{
    static const ScratchDirectory directory;
    static const std::string path = directory.path("store.conf"), bare = directory.path("bare");
    FuzzInput copy = input;
    const bool imports = input.byte() % 2 == 0;
    const std::string text = imports ? input.expanded(65536) : copy.rest();
    directory.write("store.conf", text);
    setRegistryFile(path.c_str());
    CCmnConfiguration config(directory.widePath().c_str(), L"store.conf", imports), back;
    ACE_Configuration_Section_Key key;
    tstr value, installed;
    const int code = CCmnPathTool::getInstallPath(installed);
    if (!imports)
        setValues(config, input);
    else if (config.openSection(L"SOFTWARE\\Brenholt\\Tarnix", key, 0) == 0 &&
             config.getStringValue(L"InstallDir64", value) == 0)
        require(code == 0 && installed == value, "the registry has the value of the store");
    // The library refuses too many levels in all sections together.
    if (std::count_if(text.begin(), text.end(), [](char c) { return c == '\\' || c == '/'; }) > 500)
        return;
    // Otherwise it refuses only what ACE cannot export, and then keeps the old file.
    const bool good = ACE_Registry_ImpExp(config.configHeap()).export_config(bare.c_str()) == 0;
    require((config.exportConfig() == 0) == good &&
                (good || std::filesystem::file_size(path) == text.size()),
            "an export succeeds, or keeps the old file");
    const std::multiset<std::string> lines = exportedLines(directory);
    if (!good || lines.empty())
        return;
    require(back.importConfig(directory.widePath().c_str(), L"store.conf") == 0, "it is imported");
    require(back.exportConfig() == 0 && exportedLines(directory) == lines, "it is the same");
}
