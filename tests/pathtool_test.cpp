// Where things lie, and the registry behind that.
#include "cmnpathtool.h"
#include "scratch.h"

using namespace tarnix_cmn_4_4;

namespace
{

TEST(PathTool, FilesUnderTheInstallDirectory)
{
    const Scratch scratch;
    const std::tuple<int (*)(const tstr&, tstr&, tstr&), const char*, const wchar_t*> kinds[] = {
        {CCmnPathTool::getTraceFileInfo, "Logs/", L"abc.log"},
        {CCmnPathTool::getConfigFileInfo, "ConfigFiles/", L"abc.conf"},
        {CCmnPathTool::getMessageFileInfo, "Messages/", L"libabc"}};
    for (const auto& [info, directory, name] : kinds) {
        scratch.setRegistry(scratch.path(), "");
        tstr dir = L"replaced", file;
        EXPECT_EQ(info(L"abc", dir, file), 0);
        EXPECT_STREQ((dir + file).c_str(), (scratch.wide(directory) + name).c_str());
        EXPECT_TRUE(std::filesystem::is_directory(scratch.path(directory)));
        // Without a registry the caller's text stays in front; only the last level is made.
        TxSetRegistryFile(scratch.path("missing").c_str());
        dir = scratch.wide("none/").c_str();
        EXPECT_EQ(info(L"abc", dir, file), 0);
        EXPECT_STREQ(dir.c_str(), scratch.wide(std::string("none/") + directory).c_str());
        EXPECT_NE(CCmnPathTool::verify(dir.c_str()), 0);
    }
    tstr kept = L"old", file;
    EXPECT_NE(CCmnPathTool::getInstallPath(kept), 0);
    EXPECT_EQ(CCmnSGDConfiguration::getTraceConfigFileInfo(kept, file), 0);
    EXPECT_EQ(kept + file, tstr(L"old/Orvane/Stellgard/sgdlog.conf"));
    EXPECT_EQ(CCmnPathTool::verify(L"/"), 0);
    EXPECT_NE(CCmnPathTool::verify(L"/\xE4"), 0);
    EXPECT_NE(CCmnPathTool::verify(nullptr), 0);
}

TEST(PathTool, SiblingLevel)
{
    const Scratch scratch;
    const std::string key = "Default.DiagnosticLevel", four = key + "=4\n";
    const int none = 99;
    const std::pair<std::string, int> cases[] = {
        {"x\n# " + key + " =  -2 and more", -2},
        {key + "=3\n" + four, 3},
        {"=5 " + four, 5},
        {std::string(254, '=') + four, 4},                 // the rest of a line is a line
        {std::string(253 - key.size(), ' ') + four, none}, // cut behind its '='
        {std::string(240, ' ') + four, none},              // and within the key
        {"", none},
        {key + "\n" + four, none},
        {"=a " + four, none}};
    for (const auto& [content, level] : cases) {
        scratch.write("sgdlog.conf", content);
        tstr dir = scratch.wide().c_str(), file = L"sgdlog.conf";
        int found = none;
        EXPECT_EQ(CCmnSGDConfiguration::getTraceLevel(dir, file, found), level == none) << content;
        EXPECT_EQ(found, level) << content;
    }
}

TEST(Registry, ReadsItsFileAnewAndMakesNothing)
{
    const Scratch scratch;
    scratch.setRegistry("/a\xC3\xA4\xF0\x9F\x98\x80/", "");
    ACE_Configuration_Win32Registry old(HKEY_LOCAL_MACHINE), other(HKEY{1});
    ACE_Configuration_Section_Key key;
    tstr value = L"old";
    EXPECT_NE(other.open_section(other.root_section(), L"SOFTWARE", 0, key), 0);
    EXPECT_NE(old.open_section(old.root_section(), L"SOFTWARE\\New", 1, key), 0);
    ASSERT_EQ(old.open_section(old.root_section(), L"SOFTWARE\\Brenholt\\Tarnix", 0, key), 0);
    EXPECT_NE(old.get_string_value(key, L"Other", value), 0);
    TxSetRegistryFile((scratch.path("registry.conf") + std::string(5000, '/')).c_str());
    EXPECT_NE(CCmnPathTool::getInstallPath(value), 0); // too long for the system
    EXPECT_STREQ(value.c_str(), L"old");
    EXPECT_EQ(old.get_string_value(key, L"InstallDir64", value), 0);
    EXPECT_STREQ(value.c_str(), L"/a\xE4\U0001F600/");
}

} // namespace
