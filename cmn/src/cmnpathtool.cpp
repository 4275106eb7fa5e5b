// SPDX-License-Identifier: LicenseRef-Tarnix
// CCmnPathTool and CCmnSGDConfiguration: directories under the two root directories in the
// registry.
#include "cmnpathtool.h"

#include "TX_sscanf.h"
#include "cmnstringtool.h"
#include "cmntstr.h"
#include "platform_file.h"
#include "platform_registry.h"

#include <ace/OS_NS_sys_stat.h>
#include <ace/OS_NS_unistd.h>

#include <cstdint>
#include <cstring>

namespace tarnix_cmn_4_4
{
namespace
{

constexpr int kNotOpened = 26;
constexpr int kNotFound = 1;

struct FileKind {
    const wchar_t* directory;
    const wchar_t* prefix;
    const wchar_t* ending;
};
constexpr FileKind kTrace{L"Logs/", L"", L".log"};
constexpr FileKind kConfig{L"ConfigFiles/", L"", L".conf"};
constexpr FileKind kMessage{L"Messages/", L"lib", L""};

int readLocalMachine(const wchar_t* section, const wchar_t* name, tstr& value)
{
    ACE_Configuration_Win32Registry registry(HKEY_LOCAL_MACHINE);
    ACE_Configuration_Section_Key key;
    if (const int code = registry.open_section(registry.root_section(), section, 0, key)) {
        return code;
    }
    return registry.get_string_value(key, name, value);
}

int fileInfo(const FileKind& kind, const tstr& name, tstr& dir, tstr& file)
{
    assign(file, kind.prefix, name, kind.ending); // `file` and `name` may be the same object
    CCmnPathTool::getInstallPath(dir);
    append(dir, kind.directory);
    if (CCmnPathTool::verify(dir.c_str()) != 0) {
        ACE_OS::mkdir(CCmnStringTool::tstr2str(dir).c_str(), 0755);
    }
    return 0;
}

int levelOfLine(const char* line, int& level)
{
    const char* const equals = std::strchr(line, '=');
    const bool isRead = equals != nullptr &&
                        TX_sscanf(equals + 1, "%d", &level, static_cast<int>(sizeof level)) == 1;
    return isRead ? 0 : kNotFound;
}

} // namespace

int CCmnPathTool::getProgramFilesDir(tstr& dir)
{
    return readLocalMachine(L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion", L"ProgramFilesDir",
                            dir);
}

int CCmnPathTool::getInstallPath(tstr& path)
{
    return readLocalMachine(L"SOFTWARE\\Brenholt\\Tarnix", L"InstallDir64", path);
}

int CCmnPathTool::getTraceFileInfo(const tstr& name, tstr& dir, tstr& file)
{
    return fileInfo(kTrace, name, dir, file);
}

int CCmnPathTool::getConfigFileInfo(const tstr& name, tstr& dir, tstr& file)
{
    return fileInfo(kConfig, name, dir, file);
}

int CCmnPathTool::getMessageFileInfo(const tstr& name, tstr& dir, tstr& file)
{
    return fileInfo(kMessage, name, dir, file);
}

int CCmnPathTool::verify(const wchar_t* path)
{
    const std::wstring wide = path != nullptr ? path : L"";
    return ACE_OS::access(CCmnStringTool::wstr2str(wide).c_str(), F_OK);
}

int CCmnSGDConfiguration::getTraceConfigFileInfo(tstr& dir, tstr& file)
{
    CCmnPathTool::getProgramFilesDir(dir);
    append(dir, L"/Orvane/Stellgard/");
    assign(file, L"sgdlog.conf");
    return 0;
}

int CCmnSGDConfiguration::getTraceLevel(tstr& dir, tstr& file, int& level)
{
    tstr path;
    assign(path, dir, file);
    const TxFile config = TxOpenFile(CCmnStringTool::tstr2str(path).c_str());
    if (!config) {
        return kNotOpened;
    }
    char line[UINT8_MAX];
    while (std::fgets(line, sizeof line, config.get()) != nullptr) {
        if (std::strstr(line, "Default.DiagnosticLevel") != nullptr) {
            return levelOfLine(line, level);
        }
    }
    return kNotFound;
}

} // namespace tarnix_cmn_4_4
