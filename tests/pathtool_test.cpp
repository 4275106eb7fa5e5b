// SPDX-License-Identifier: LicenseRef-Tarnix
// Paths of the product's files, and the registry that they depend on.
#include "cmnpathtool.h"
#include "support/scratchinstallation.h"

#include <gtest/gtest.h>

#include <sys/stat.h>

using namespace tarnix_cmn_4_4;

TEST(PathTool, PathsFromTheRegistryAndTheSiblingsTraceLevel)
{
    const ScratchInstallation scratch;
    tstr dir = L"replaced", file;
    umask(022);
    EXPECT_EQ(CCmnPathTool::getConfigFileInfo(L"abc", dir, file), 0);
    EXPECT_STREQ((dir + file).c_str(), scratch.widePath("ConfigFiles/abc.conf").c_str());
    EXPECT_EQ(std::filesystem::status(dir.c_str()).permissions(), std::filesystem::perms(0755));
    // Without a registry the caller's text stays as the root; only the last directory is created.
    setRegistryFile((scratch.path("registry.conf") + std::string(5000, '/')).c_str());
    dir = scratch.widePath("none/").c_str();
    EXPECT_EQ(CCmnPathTool::getMessageFileInfo(L"abc", dir, file), 0);
    EXPECT_STREQ((dir + file).c_str(), scratch.widePath("none/Messages/libabc").c_str());
    EXPECT_NE(CCmnPathTool::verify(dir.c_str()), 0);
    tstr kept = L"old";
    EXPECT_EQ(CCmnSGDConfiguration::getTraceConfigFileInfo(kept, file), 0);
    EXPECT_EQ(kept + file, tstr(L"old/Orvane/Stellgard/sgdlog.conf"));
    EXPECT_NE(CCmnPathTool::verify(nullptr), 0);

    scratch.setInstallDirectory("/a\xC3\xA4\xF0\x9F\x98\x80/");
    EXPECT_EQ(CCmnPathTool::getInstallPath(kept), 0);
    for (const char* registry : {"[SOFTWARE\\Brenholt\\Tarnix]\n", "[Other]\n"}) {
        scratch.write("registry.conf", registry); // without the value, or its section
        EXPECT_NE(CCmnPathTool::getInstallPath(kept), 0) << registry;
    }
    EXPECT_STREQ(kept.c_str(), L"/a\xE4\U0001F600/");

    const std::string key = "Default.DiagnosticLevel", four = key + "=4\n";
    const int none = 99;
    const struct {
        std::string content;
        int level;
    } cases[] = {{"x\n# " + key + " =  -2 and more", -2},
                 {key + "=3\n" + four, 3},
                 {"=5 " + four, 5},
                 {std::string(254, '=') + four, 4}, // the rest of a long line counts as a line
                 {key + "\n" + four, none},
                 {"=a " + four, none}};
    dir = scratch.widePath().c_str();
    for (const auto& [content, level] : cases) {
        scratch.write("sgdlog.conf", content); // `file` still has this name
        int found = none;
        EXPECT_EQ(CCmnSGDConfiguration::getTraceLevel(dir, file, found), level == none) << content;
        EXPECT_EQ(found, level) << content;
    }
    int found = none;
    file = L"pipe"; // without a writer
    ASSERT_EQ(mkfifo(scratch.path("pipe").c_str(), 0600), 0);
    EXPECT_EQ(CCmnSGDConfiguration::getTraceLevel(dir, file, found), 26);
}
