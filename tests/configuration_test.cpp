// The configuration store: its current section, its error records, its file.
#include "cmnconfiguration.h"
#include "support/repeat.h"
#include "support/scratchdirectory.h"

#include <gtest/gtest.h>

#include <sys/xattr.h>

#include <algorithm>

using namespace tarnix_cmn_4_4;

TEST(Configuration, SectionsAndTexts)
{
    CCmnConfiguration config;
    EXPECT_NE(config.setIntegerValue(L"n", 1), 0);
    EXPECT_NE(config.exportConfig(), 0); // no file is set
    ACE_Configuration_Section_Key first, inner, last;
    EXPECT_EQ(config.openSection(L"First\\Inner", inner, 1), 0);
    EXPECT_EQ(config.openSection(L"First", first, 0), 0);
    EXPECT_NE(config.openSection(L"First\\Inner\\None", first, 0), 0);
    EXPECT_EQ(config.setIntegerValue(L"n", 7), 0); // in First
    std::vector<tstr> made;
    for (int i = 0; i < 40; ++i)
        config.openSection(inner, made.emplace_back(std::to_wstring(i).c_str()).c_str(), last, 1);
    EXPECT_EQ(config.openSection(first, L"Inner", last, 0), 0);
    const std::vector<tstr> listed = config.enumerateSections();
    EXPECT_EQ(config.enumerateSections(inner), listed);
    EXPECT_TRUE(std::is_permutation(made.begin(), made.end(), listed.begin(), listed.end()));
    unsigned int number = 5;
    EXPECT_TRUE(config.getIntegerValue(L"n", number) != 0 && number == 5);
    EXPECT_TRUE(config.getIntegerValue(L"First", L"n", number) == 0 && number == 7);
    tstr value = L"old";
    EXPECT_NE(config.getStringValue(L"First", L"n", value), 0);   // a number is not a text
    EXPECT_NE(config.getStringValue(L"Made", L"none", value), 0); // creates the section
    EXPECT_STREQ(value.c_str(), L"old");
    EXPECT_EQ(config.openSection(L"Made", last, 0), 0);
    // Text is stored as UTF-8 in every locale. Other bytes fail, and do not read as empty.
    const tstr text = L"\xE4\x4E2D\U0001F600";
    EXPECT_EQ(config.openSection(text.c_str(), last, 1), 0);
    EXPECT_EQ(config.setStringValue(text.c_str(), text), 0);
    EXPECT_EQ(config.getStringValue(text.c_str(), text.c_str(), value), 0);
    config.configHeap().set_string_value(last, "latin", ACE_TString("\xE4"));
    EXPECT_NE(config.getStringValue(L"latin", value), 0);
    EXPECT_EQ(value, text);
    EXPECT_NE(config.setStringValue(L"surrogate", L"\xD800"), 0);
    EXPECT_NE(config.setIntegerValue(L"\xD800", 1), 0);
    config.setStringValue(L"part", tstr(L"abcdef", 3, nullptr, false)); // not terminated there
    EXPECT_TRUE(config.getStringValue(L"part", value) == 0 && value == tstr(L"abc"));
}

TEST(Configuration, FailedImportsLeaveARecordAndGoodOnesMerge)
{
    const ScratchDirectory scratch;
    const std::string wide(16 * 1024 * 1024, 'a'), good = "; comment\n[S]\n\"both\"=\"b\"\n";
    scratch.write("bad", "[S]\n\"both\"=\"a\"\n\"onlyA\"=\"a\"\n[Bad\n");
    scratch.write("wide", "\"a\"=\"" + wide + "\"\n");
    scratch.write("many", repeated("[a]\n", 50001));
    scratch.write("good", good);
    const wchar_t* const failed = L"Import of configuration file failed.";
    const std::tuple<const char*, const wchar_t*, const wchar_t*> cases[] = {
        {"none/", L"x", L"Configuration path verification failed"},
        {"", L"x", L"Configuration path succeeded but no configuration file exists."},
        {"", L"bad", failed},
        {"", L"wide", failed},
        {"", L"many", failed}};
    CCmnConfiguration config;
    const CCmnError& record = config.getLastError();
    for (const auto& [directory, file, message] : cases) {
        const int code = config.importConfig(scratch.widePath(directory).c_str(), file);
        EXPECT_TRUE(code != 0 && record.getCode() == code);
        EXPECT_STREQ(record.getMessage(), message);
        EXPECT_STREQ(record.getFile(), L"cmn\\src\\cmnconfiguration");
        EXPECT_STREQ(record.getFunction(), L"tarnix_cmn_4_4::CCmnConfiguration::importConfig");
    }
    EXPECT_EQ(config.importConfig(scratch.widePath().c_str(), L"good"), 0);
    EXPECT_NE(record.getCode(), 0); // success clears nothing
    tstr both, onlyA;               // it precedes the syntax error
    config.getStringValue(L"S", L"both", both);
    config.getStringValue(L"S", L"onlyA", onlyA);
    EXPECT_EQ(both + onlyA, tstr(L"ba"));
    // An export that no import would accept does not replace the file.
    config.setStringValue(L"wide", std::wstring(wide.begin(), wide.end()).c_str());
    EXPECT_NE(config.exportConfig(), 0);
    EXPECT_EQ(scratch.read("good"), good);
}

TEST(Configuration, ExportsFollowLinksAndKeepPermissions)
{
    namespace fs = std::filesystem;
    // The default ACL for new files: its version, then entries of permissions, kind and id. User
    // 61001 may read and write. A file system without ACLs rejects it, which does no harm.
    const std::uint32_t list[] = {2,   7 << 16 | 1,  ~0U, 6 << 16 | 2, 61001, 5 << 16 | 4,
                                  ~0U, 7 << 16 | 16, ~0U, 32,          ~0U};
    for (const bool exists : {false, true}) {
        const ScratchDirectory scratch;
        const std::string directory = scratch.path("d"), file = directory + "/file";
        scratch.makeDirectory("d");
        fs::create_symlink("d/file", scratch.path("near"));
        fs::create_symlink(scratch.path("near"), scratch.path("far"));
        if (exists) {
            scratch.write("d/file", "[old]\n");
            fs::permissions(file, fs::perms(0642));
        }
        setxattr(directory.c_str(), "system.posix_acl_default", list, sizeof list, 0);
        CCmnConfiguration config(scratch.widePath().c_str(), L"far", false);
        ACE_Configuration_Section_Key section;
        config.openSection(L"new", section, 1);
        EXPECT_EQ(config.exportConfig(), 0);
        EXPECT_EQ(scratch.read("d/file"), "[new]\n");
        EXPECT_EQ(scratch.entries("d"), 1);
        const fs::perms mode = fs::status(file).permissions();
        EXPECT_TRUE(exists ? mode == fs::perms(0642) &&
                                 getxattr(file.c_str(), "system.posix_acl_access", nullptr, 0) < 0
                           : mode != fs::perms::none);
    }
}
