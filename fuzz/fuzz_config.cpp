// Fuzzer of configuration files and of the registry, which has the same format. With an even first
// byte the input is the file; with an odd one its lines, three and three, are a section, a name and
// a value to set. What the store holds then must come back from the file that it is exported to.
#include "cmnconfiguration.h"
#include "cmnpathtool.h"
#include "cmnstringtool.h"
#include "cmnutf8.h"
#include "fuzzinput.h"
#include "platform_registry.h"

#include <ace/Configuration_Import_Export.h>
#include <sstream>

using namespace tarnix_cmn_4_4;

namespace
{

using Lines = std::vector<std::string>;

tstr wideText(const std::string& utf8)
{
    tstr wide;
    utf8ToWide(utf8, wide);
    return wide;
}

// The lines of the exported file. Only where ACE cannot export the store is
// it refused, and then the old file stays.
bool exported(CCmnConfiguration& config, const std::string& path, Lines& lines)
{
    const auto read = [&path] {
        std::ostringstream text;
        text << std::ifstream(path, std::ios::binary).rdbuf();
        return text.str();
    };
    const std::string old = read();
    if (config.exportConfig() != 0) {
        ACE_Registry_ImpExp bare(config.configHeap());
        require(bare.export_config((path + ".bare").c_str()) != 0, "an export");
        require(read() == old, "the old file");
        return false;
    }
    std::istringstream text(read());
    for (std::string line; std::getline(text, line);)
        lines.push_back(line);
    return true;
}

// Whether the file reads as what was written. The store also takes what it does not carry: a slash
// in a section, a quote in a name, a value outside of the sections. A quote in a text it carries,
// but that is not told apart here.
bool isCarried(const Lines& lines)
{
    bool inSection = false;
    for (const std::string& line : lines) {
        const auto quotes = std::count(line.begin(), line.end(), '"');
        const bool isSection = line[0] == '[' && line.find('/') == std::string::npos;
        const bool isValue =
            inSection && line[0] == '"' && (quotes == 2 || (quotes == 4 && line.back() == '"'));
        if (!line.empty() && !isSection && !isValue)
            return false;
        inSection = inSection || isSection;
    }
    return true;
}

void setValues(CCmnConfiguration& config, FuzzInput& input)
{
    for (int i = 0; i < 20; ++i) {
        const tstr section = wideText(input.until('\n')), name = wideText(input.until('\n'));
        const std::string value = input.until('\n');
        ACE_Configuration_Section_Key key;
        config.openSection(section.c_str(), key, 1);
        if (value.substr(0, 1) != "#")
            config.setStringValue(name.c_str(), wideText(value));
        else
            config.setIntegerValue(name.c_str(), CCmnStringTool::str2uint(value.substr(1)));
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static const FuzzDirectory directory;
    FuzzInput input(data, size);
    CCmnConfiguration config(directory.wide().c_str(), L"store.conf", false), back;
    std::string text = FuzzInput(data, size).rest();
    if (input.byte() % 2 == 0) {
        text = input.expanded(65536);
        directory.write("store.conf", text);
        TxSetRegistryFile(directory.path("store.conf").c_str());
        config.importConfig(directory.wide().c_str(), L"store.conf");
        ACE_Configuration_Section_Key key;
        tstr value, path;
        const int code = CCmnPathTool::getInstallPath(path);
        if (config.openSection(L"SOFTWARE\\Brenholt\\Tarnix", key, 0) == 0 &&
            config.getStringValue(L"InstallDir64", value) == 0)
            require(code == 0 && path == value, "the registry's value");
    } else {
        setValues(config, input);
    }
    // Too many levels of all sections together are refused.
    if (std::count(text.begin(), text.end(), '\\') + std::count(text.begin(), text.end(), '/') >
        500)
        return 0;
    Lines first, second;
    if (!exported(config, directory.path("store.conf"), first))
        return 0;
    const int code = back.importConfig(directory.wide().c_str(), L"store.conf");
    if (!isCarried(first))
        return 0;
    require(code == 0, "an import of what was exported");
    require(exported(back, directory.path("store.conf"), second), "an export of what was imported");
    std::sort(first.begin(), first.end()); // the store has an order of its own
    std::sort(second.begin(), second.end());
    require(first == second, "what was exported");
    return 0;
}
