// Fuzzer of configuration files and of the registry, which has the same format. With an even first
// byte the input is the file; with an odd one its lines, three and three, are a section, a name and
// a value to set. What the store holds then must come back from the file that it is exported to.
#include "cmnconfiguration.h"
#include "cmnpathtool.h"
#include "cmnstringtool.h"
#include "cmnutf8.h"
#include "fuzzinput.h"
#include "platform_registry.h"

#include <map>

using namespace tarnix_cmn_4_4;
using Type = ACE_Configuration::VALUETYPE;

namespace
{

// The path of each section, and behind it "]" and a value's name: the value as text.
struct Content {
    std::map<std::string, std::string> texts;
    bool carried = true;       // by the file format
    std::ptrdiff_t levels = 0; // of all sections; a file with too many is refused
};

tstr wideText(const std::string& utf8)
{
    tstr wide;
    utf8ToWide(utf8, wide);
    return wide;
}

// A value of the current section, whose key is given too.
std::string readValue(CCmnConfiguration& config, const ACE_Configuration_Section_Key& key,
                      const std::string& name, Type type)
{
    ACE_Configuration_Heap& heap = config.configHeap();
    if (type == ACE_Configuration::STRING) {
        ACE_TString stored;
        tstr text;
        require(heap.get_string_value(key, name.c_str(), stored) == 0, "a stored text");
        const tstr wide = wideText(name); // empty if it is not UTF-8
        require((wide.empty() && !name.empty()) || config.getStringValue(wide.c_str(), text) != 0 ||
                    text == wideText(stored.c_str()),
                "a text");
        return stored.c_str();
    }
    if (type == ACE_Configuration::INTEGER) {
        unsigned int number = 0;
        require(heap.get_integer_value(key, name.c_str(), number) == 0, "a stored number");
        return std::to_string(number);
    }
    void* bytes = nullptr;
    std::size_t length = 0;
    require(heap.get_binary_value(key, name.c_str(), bytes, length) == 0, "stored bytes");
    const std::unique_ptr<char[]> owner(static_cast<char*>(bytes));
    return std::string(owner.get(), length);
}

void readSection(CCmnConfiguration& config, const ACE_Configuration_Section_Key& key,
                 const std::string& path, Content& content)
{
    ACE_Configuration_Heap& heap = config.configHeap();
    content.texts[path];
    content.levels += std::count(path.begin(), path.end(), '\\');
    ACE_TString found;
    Type type{};
    for (int i = 0; heap.enumerate_values(key, i, found, type) == 0; ++i) {
        const std::string name = found.c_str(), value = readValue(config, key, name, type);
        content.texts[path + "]" + name] = value;
        content.carried =
            content.carried && !path.empty() && name.find_first_of("\"\n") == std::string::npos &&
            (type == ACE_Configuration::BINARY || value.find('\n') == std::string::npos);
    }
    for (int i = 0; heap.enumerate_sections(key, i, found) == 0; ++i) {
        const std::string name = found.c_str();
        const tstr wide = wideText(name);
        ACE_Configuration_Section_Key inner;
        content.carried = content.carried && name.find_first_of("/\n") == std::string::npos;
        if (wide.empty()) // no UTF-8
            continue;
        require(config.openSection(key, wide.c_str(), inner, 0) == 0, "a section");
        readSection(config, inner, path + "\\" + name, content);
    }
}

Content readAll(CCmnConfiguration& config)
{
    Content content;
    readSection(config, config.configHeap().root_section(), "", content);
    return content;
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

void compareRegistry(CCmnConfiguration& config)
{
    ACE_Configuration_Section_Key key;
    tstr value, path;
    const int code = CCmnPathTool::getInstallPath(path);
    if (config.openSection(L"SOFTWARE\\Brenholt\\Tarnix", key, 0) == 0 &&
        config.getStringValue(L"InstallDir64", value) == 0)
        require(code == 0 && path == value, "the registry's value");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static const FuzzDirectory directory;
    FuzzInput input(data, size);
    CCmnConfiguration config(directory.wide().c_str(), L"store.conf", false), back;
    if (input.byte() % 2 == 0) {
        directory.write("store.conf", input.expanded(65536));
        TxSetRegistryFile(directory.path("store.conf").c_str());
        config.importConfig(directory.wide().c_str(), L"store.conf");
        compareRegistry(config);
    } else {
        setValues(config, input);
    }
    const Content content = readAll(config);
    require(config.exportConfig() == 0, "an export");
    const int code = back.importConfig(directory.wide().c_str(), L"store.conf");
    require(!content.carried || content.levels > 50000 ||
                (code == 0 && readAll(back).texts == content.texts),
            "what was exported");
    return 0;
}
