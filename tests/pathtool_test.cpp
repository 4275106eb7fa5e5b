// Where things lie, and the registry behind that.
#include "cmnpathtool.h"
#include "scratch.h"

using namespace tarnix_cmn_4_4;

namespace
{

tstr text(const std::wstring& wide)
{
    return tstr(wide.c_str());
}

TEST(PathTool, FilesUnderTheInstallDirectory)
{
    const Scratch scratch;
    scratch.makeDirectory("inst");
    scratch.setRegistry(scratch.path("inst/"), "");
    const struct {
        int (*info)(const tstr&, tstr&, tstr&);
        const char* directory;
        const wchar_t* file;
    } kinds[] = {
        {CCmnPathTool::getTraceFileInfo, "inst/Logs/", L"abc.log"},
        {CCmnPathTool::getConfigFileInfo, "inst/ConfigFiles/", L"abc.conf"},
        {CCmnPathTool::getMessageFileInfo, "inst/Messages/", L"libabc"},
    };
    for (const auto& kind : kinds) {
        tstr dir = L"replaced";
        tstr file;
        EXPECT_EQ(kind.info(L"abc", dir, file), 0);
        EXPECT_STREQ(dir.c_str(), scratch.wide(kind.directory).c_str());
        EXPECT_STREQ(file.c_str(), kind.file);
        EXPECT_TRUE(std::filesystem::is_directory(scratch.path(kind.directory)));
    }
}

TEST(PathTool, WithoutARegistryTheCallersTextStaysInFront)
{
    const Scratch scratch;
    TxSetRegistryFile(scratch.path("missing").c_str());
    tstr dir = text(scratch.wide());
    tstr file;
    EXPECT_EQ(CCmnPathTool::getTraceFileInfo(L"n", dir, file), 0);
    EXPECT_STREQ(dir.c_str(), scratch.wide("Logs/").c_str());
    EXPECT_EQ(CCmnPathTool::verify(dir.c_str()), 0);

    tstr untouched = L"old";
    EXPECT_NE(CCmnPathTool::getInstallPath(untouched), 0);
    EXPECT_NE(CCmnPathTool::getProgramFilesDir(untouched), 0);
    EXPECT_STREQ(untouched.c_str(), L"old");
    EXPECT_EQ(CCmnSGDConfiguration::getTraceConfigFileInfo(untouched, file), 0);
    EXPECT_STREQ(untouched.c_str(), L"old/Orvane/Stellgard/");
    EXPECT_STREQ(file.c_str(), L"sgdlog.conf");

    dir = text(scratch.wide("no/parent/")); // only the last level is made
    CCmnPathTool::getTraceFileInfo(L"n", dir, file);
    EXPECT_NE(CCmnPathTool::verify(dir.c_str()), 0);
}

TEST(PathTool, Verify)
{
    const Scratch scratch;
    scratch.write("file", "");
    EXPECT_EQ(CCmnPathTool::verify(scratch.wide("file").c_str()), 0);
    EXPECT_NE(CCmnPathTool::verify(scratch.wide("none").c_str()), 0);
    EXPECT_NE(CCmnPathTool::verify((scratch.wide() + L"\xE4").c_str()), 0);
    EXPECT_NE(CCmnPathTool::verify(nullptr), 0);
}

TEST(PathTool, SiblingLevel)
{
    const Scratch scratch;
    const std::string key = "Default.DiagnosticLevel";
    const struct {
        std::string content;
        int result;
        int level;
    } cases[] = {
        {"", 1, -1},
        {"x\n# " + key + " =  -2 and more", 0, -2},
        {key + "=3\n" + key + "=4\n", 0, 3},
        {key + "\n" + key + "=4\n", 1, -1},
        {"=a " + key + "=4\n", 1, -1},
        {"=5 " + key + "=4\n", 0, 5},
        {key + "=x4\n", 1, -1},
        {std::string(254, '=') + key + "=6\n", 0, 6}, // the rest of a line is a line
        {std::string(254 - key.size() - 1, ' ') + key + "=6\n", 1, -1}, // cut behind its '='
        {std::string(240, ' ') + key + "=6\n", 1, -1},                  // cut within the key
    };
    tstr dir = text(scratch.wide());
    tstr file = L"sgdlog.conf";
    int level = -1;
    EXPECT_EQ(CCmnSGDConfiguration::getTraceLevel(dir, file, level), 26);
    EXPECT_EQ(level, -1);
    for (const auto& c : cases) {
        scratch.write("sgdlog.conf", c.content);
        level = -1;
        EXPECT_EQ(CCmnSGDConfiguration::getTraceLevel(dir, file, level), c.result) << c.content;
        EXPECT_EQ(level, c.level) << c.content;
    }
}

TEST(Registry, ReadsItsFileAnewAndMakesNothing)
{
    const Scratch scratch;
    scratch.setRegistry("/a\xC3\xA4\xF0\x9F\x98\x80/", "/p");
    ACE_Configuration_Win32Registry old(HKEY_LOCAL_MACHINE);
    scratch.write("registry.conf", "[SOFTWARE\\Brenholt\\Tarnix]\n\"InstallDir64\"=dword:1\n");

    ACE_Configuration_Section_Key key;
    tstr value = L"old";
    ASSERT_EQ(old.open_section(old.root_section(), L"SOFTWARE\\Brenholt\\Tarnix", 0, key), 0);
    EXPECT_NE(old.open_section(old.root_section(), L"SOFTWARE\\New", 1, key), 0);
    EXPECT_NE(old.get_string_value(key, L"Other", value), 0);
    EXPECT_STREQ(value.c_str(), L"old");
    EXPECT_EQ(old.get_string_value(key, L"InstallDir64", value), 0);
    EXPECT_STREQ(value.c_str(), L"/a\xE4\U0001F600/");

    EXPECT_NE(CCmnPathTool::getInstallPath(value), 0); // a number now
    EXPECT_STREQ(value.c_str(), L"/a\xE4\U0001F600/");

    ACE_Configuration_Win32Registry other(HKEY{1});
    EXPECT_NE(other.open_section(other.root_section(), L"SOFTWARE", 0, key), 0);
    TxSetRegistryFile(std::string(5000, '/').c_str()); // too long for the system
    EXPECT_NE(CCmnPathTool::getInstallPath(value), 0);
}

} // namespace
