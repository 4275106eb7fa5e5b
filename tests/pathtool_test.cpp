// Where things lie, and the registry behind that.
#include "cmnpathtool.h"
#include "scratch.h"

using namespace tarnix_cmn_4_4;

namespace
{

TEST(PathTool, FilesUnderTheInstallDirectory)
{
    const Scratch scratch;
    scratch.setRegistry(scratch.path(), "");
    const std::tuple<int (*)(const tstr&, tstr&, tstr&), const char*, const wchar_t*> kinds[] = {
        {CCmnPathTool::getTraceFileInfo, "Logs/", L"abc.log"},
        {CCmnPathTool::getConfigFileInfo, "ConfigFiles/", L"abc.conf"},
        {CCmnPathTool::getMessageFileInfo, "Messages/", L"libabc"}};
    for (const auto& [info, directory, name] : kinds) {
        tstr dir = L"replaced", file;
        EXPECT_EQ(info(L"abc", dir, file), 0);
        EXPECT_STREQ(dir.c_str(), scratch.wide(directory).c_str());
        EXPECT_STREQ(file.c_str(), name);
        EXPECT_TRUE(std::filesystem::is_directory(scratch.path(directory)));
    }
}

TEST(PathTool, WithoutARegistryTheCallersTextStaysInFront)
{
    const Scratch scratch;
    TxSetRegistryFile(scratch.path("missing").c_str());
    for (const std::string parent : {"", "none/"}) { // only the last level is made
        tstr dir = scratch.wide(parent).c_str(), file;
        CCmnPathTool::getTraceFileInfo(L"n", dir, file);
        EXPECT_STREQ(dir.c_str(), scratch.wide(parent + "Logs/").c_str());
        EXPECT_EQ(CCmnPathTool::verify(dir.c_str()) == 0, parent.empty());
    }
    tstr kept = L"old", file;
    EXPECT_NE(CCmnPathTool::getInstallPath(kept), 0);
    EXPECT_EQ(CCmnSGDConfiguration::getTraceConfigFileInfo(kept, file), 0);
    EXPECT_EQ(kept + file, tstr(L"old/Orvane/Stellgard/sgdlog.conf"));
    EXPECT_NE(CCmnPathTool::verify(L"/\xE4"), 0);
    EXPECT_NE(CCmnPathTool::verify(nullptr), 0);
}

TEST(PathTool, SiblingLevel)
{
    const Scratch scratch;
    const std::string key = "Default.DiagnosticLevel", four = key + "=4\n";
    const auto level = [&scratch](const std::string& content) {
        scratch.write("sgdlog.conf", content);
        tstr dir = scratch.wide().c_str(), file = L"sgdlog.conf";
        int found = -1;
        const int result = CCmnSGDConfiguration::getTraceLevel(dir, file, found);
        EXPECT_EQ(result, found == -1) << content;
        return found;
    };
    EXPECT_EQ(level("x\n# " + key + " =  -2 and more"), -2);
    EXPECT_EQ(level(key + "=3\n" + four), 3);
    EXPECT_EQ(level("=5 " + four), 5);
    EXPECT_EQ(level(std::string(254, '=') + four), 4); // the rest of a line is a line
    // The last two: cut behind its '=', and within the key.
    for (const std::string& content :
         {std::string(), key + "\n" + four, "=a " + four, std::string(253 - key.size(), ' ') + four,
          std::string(240, ' ') + four})
        EXPECT_EQ(level(content), -1) << content;
}

TEST(Registry, ReadsItsFileAnewAndMakesNothing)
{
    const Scratch scratch;
    scratch.setRegistry("/a\xC3\xA4\xF0\x9F\x98\x80/", "/p");
    ACE_Configuration_Win32Registry old(HKEY_LOCAL_MACHINE), other(HKEY{1});
    scratch.write("registry.conf", "[SOFTWARE\\Brenholt\\Tarnix]\n\"InstallDir64\"=dword:1\n");
    ACE_Configuration_Section_Key key;
    tstr value = L"old";
    EXPECT_NE(other.open_section(other.root_section(), L"SOFTWARE", 0, key), 0);
    EXPECT_NE(old.open_section(old.root_section(), L"SOFTWARE\\New", 1, key), 0);
    ASSERT_EQ(old.open_section(old.root_section(), L"SOFTWARE\\Brenholt\\Tarnix", 0, key), 0);
    EXPECT_NE(old.get_string_value(key, L"Other", value), 0);
    EXPECT_NE(CCmnPathTool::getInstallPath(value), 0); // a number now
    TxSetRegistryFile(std::string(5000, '/').c_str()); // too long for the system
    EXPECT_NE(CCmnPathTool::getInstallPath(value), 0);
    EXPECT_STREQ(value.c_str(), L"old");
    old.get_string_value(key, L"InstallDir64", value);
    EXPECT_STREQ(value.c_str(), L"/a\xE4\U0001F600/");
}

} // namespace
