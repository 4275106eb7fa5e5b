// Keeps settings in a text file: defaults of the program, with what the file says over them.
#include "cmnconfiguration.h"
#include "cmnstringtool.h"

#include <clocale>
#include <iostream>
#include <string>

using namespace tarnix_cmn_4_4;

namespace
{

constexpr char usage[] =
    "usage: settings DIRECTORY/ FILE [SECTION NAME VALUE]...\n"
    "Takes the values given as defaults, merges the file over them, shows the outcome and writes\n"
    "it back to the file.\n";

std::wstring wide(const char* text)
{
    return CCmnStringTool::str2wstr(std::string(text));
}

bool setDefault(CCmnConfiguration& settings, char** words)
{
    ACE_Configuration_Section_Key section;
    return settings.openSection(wide(words[0]).c_str(), section, 1) == 0 &&
           settings.setStringValue(wide(words[1]).c_str(), CCmnStringTool::str2tstr(words[2])) == 0;
}

void show(CCmnConfiguration& settings, const ACE_Configuration_Section_Key& parent,
          const std::string& indent)
{
    for (const tstr& name : settings.enumerateSections(parent)) {
        ACE_Configuration_Section_Key section;
        settings.openSection(parent, name.c_str(), section, 0);
        std::cout << indent << '[' << CCmnStringTool::tstr2str(name) << "]\n";
        ACE_TString key; // names in the heap are UTF-8
        ACE_Configuration::VALUETYPE type = ACE_Configuration::INVALID;
        ACE_Configuration_Heap& heap = settings.configHeap();
        for (int i = 0; heap.enumerate_values(section, i, key, type) == 0; ++i) {
            tstr value;
            if (settings.getStringValue(CCmnStringTool::str2tstr(key.c_str()).c_str(), value) ==
                0) {
                std::cout << indent << "  " << key.c_str() << " = "
                          << CCmnStringTool::tstr2str(value) << '\n';
            }
        }
        show(settings, section, indent + "  ");
    }
}

} // namespace

int main(int argc, char** argv)
{
    std::setlocale(LC_ALL, "");
    if (argc < 3 || argc % 3 != 0) {
        std::cerr << usage;
        return 2;
    }
    CCmnConfiguration settings;
    for (int at = 3; at < argc; at += 3) {
        if (!setDefault(settings, argv + at)) {
            std::cerr << "settings: cannot set " << argv[at] << ' ' << argv[at + 1] << '\n';
            return 1;
        }
    }
    if (settings.importConfig(wide(argv[1]).c_str(), wide(argv[2]).c_str()) != 0) {
        std::wcerr << L"settings: " << settings.getLastError().getMessage() << L'\n';
    }
    show(settings, settings.configHeap().root_section(), "");
    if (settings.exportConfig() != 0) {
        std::cerr << "settings: cannot write " << argv[1] << argv[2] << '\n';
        return 1;
    }
    return 0;
}
