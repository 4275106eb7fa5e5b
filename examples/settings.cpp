// SPDX-License-Identifier: LicenseRef-Tarnix
// Keeps settings in a text file, whose values replace the defaults.
#include "cmnconfiguration.h"
#include "cmnpathtool.h"
#include "cmnstringtool.h"

#include <clocale>
#include <iostream>
#include <string>

using namespace tarnix_cmn_4_4;

namespace
{

constexpr char kUsage[] =
    "usage: settings DIRECTORY/ FILE [SECTION NAME VALUE]...\n"
    "Sets the given values as defaults, imports the file over them, prints the result and writes\n"
    "it back to the file.\n";

// False for a text that is invalid in the locale's encoding: it must not become an empty one.
bool widen(const char* text, std::wstring& wide)
{
    wide = CCmnStringTool::str2wstr(std::string(text));
    return !wide.empty() || *text == '\0';
}

bool setDefault(CCmnConfiguration& settings, char** words)
{
    std::wstring texts[3];
    for (int i = 0; i < 3; ++i) {
        if (!widen(words[i], texts[i])) {
            return false;
        }
    }
    ACE_Configuration_Section_Key section;
    return settings.openSection(texts[0].c_str(), section, 1) == 0 &&
           settings.setStringValue(texts[1].c_str(), CCmnStringTool::wstr2tstr(texts[2])) == 0;
}

std::string printable(const tstr& text)
{
    return CCmnStringTool::ustr2str(CCmnStringTool::tstr2ustr(text));
}

void showValues(CCmnConfiguration& settings, const ACE_Configuration_Section_Key& section,
                const std::string& indent)
{
    ACE_TString key; // names in the heap are UTF-8
    ACE_Configuration::VALUETYPE type = ACE_Configuration::INVALID;
    for (int i = 0; settings.configHeap().enumerate_values(section, i, key, type) == 0; ++i) {
        const tstr name = CCmnStringTool::ustr2tstr(CCmnStringTool::str2ustr(key.c_str()));
        tstr text;
        unsigned int number = 0;
        if (settings.getStringValue(name.c_str(), text) == 0) {
            std::cout << indent << key.c_str() << " = " << printable(text) << '\n';
        } else if (settings.getIntegerValue(name.c_str(), number) == 0) {
            std::cout << indent << key.c_str() << " = " << number << '\n';
        }
    }
}

void show(CCmnConfiguration& settings, const ACE_Configuration_Section_Key& parent,
          const std::string& indent)
{
    for (const tstr& name : settings.enumerateSections(parent)) {
        ACE_Configuration_Section_Key section;
        settings.openSection(parent, name.c_str(), section, 0);
        std::cout << indent << '[' << printable(name) << "]\n";
        showValues(settings, section, indent + "  ");
        show(settings, section, indent + "  ");
    }
}

} // namespace

int main(int argc, char** argv)
{
    std::setlocale(LC_CTYPE, "");
    std::wstring directory;
    std::wstring file;
    if (argc < 3 || argc % 3 != 0 || !widen(argv[1], directory) || !widen(argv[2], file)) {
        std::cerr << kUsage;
        return 2;
    }
    CCmnConfiguration settings;
    for (int at = 3; at < argc; at += 3) {
        if (!setDefault(settings, argv + at)) {
            std::cerr << "settings: cannot set " << argv[at] << ' ' << argv[at + 1] << '\n';
            return 1;
        }
    }
    const int code = settings.importConfig(directory.c_str(), file.c_str());
    for (const SCmnImportProblem& problem : settings.getImportProblems()) {
        std::cerr << "settings: line " << problem.line << ": " << problem.reason << '\n';
    }
    if (code != 0) {
        std::cerr << "settings: "
                  << CCmnStringTool::wstr2str(std::wstring(settings.getLastError().getMessage()))
                  << '\n';
        // An unreadable file must not be overwritten; a missing one is created.
        if (CCmnPathTool::verify((directory + file).c_str()) == 0) {
            return 1;
        }
    }
    show(settings, settings.configHeap().root_section(), "");
    if (settings.exportConfig() != 0) {
        std::cerr << "settings: cannot write " << argv[1] << argv[2] << '\n';
        return 1;
    }
    if (!settings.getKeptCopy().empty()) {
        std::cerr << "settings: the lines above are kept in " << settings.getKeptCopy() << '\n';
    }
    return 0;
}
