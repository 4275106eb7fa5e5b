// The configuration store: current section, records of failures, what comes back from its file.
#include "cmnconfiguration.h"
#include "scratch.h"

#include <cerrno>
#include <set>
#include <sys/xattr.h>

using namespace tarnix_cmn_4_4;

namespace
{

TEST(Configuration, CurrentSectionMovesOnlyWithSuccess)
{
    CCmnConfiguration config;
    EXPECT_NE(config.setIntegerValue(L"n", 1), 0);
    EXPECT_NE(config.exportConfig(), 0); // there is no file
    ACE_Configuration_Section_Key first, second;
    ASSERT_EQ(config.openSection(L"First\\Inner", second, 1), 0);
    ASSERT_EQ(config.openSection(L"First", first, 0), 0);
    ACE_Configuration_Section_Key kept = second;
    EXPECT_NE(config.openSection(L"First\\Inner\\None", kept, 0), 0);
    EXPECT_EQ(config.setIntegerValue(L"n", 7), 0); // in First
    EXPECT_EQ(config.openSection(kept, L"Deeper", kept, 1), 0);
    EXPECT_EQ(config.openSection(first, L"Inner", second, 0), 0);
    EXPECT_EQ(config.enumerateSections(), std::vector<tstr>{L"Deeper"});
    EXPECT_EQ(config.enumerateSections(second), config.enumerateSections());
    std::set<std::wstring> made, listed;
    for (int i = 0; i < 40; ++i) {
        made.insert(L"inner" + std::to_wstring(i));
        config.openSection(second, (L"inner" + std::to_wstring(i)).c_str(), kept, 1);
    }
    for (const tstr& name : config.enumerateSections(second))
        listed.insert(name.c_str());
    made.insert(L"Deeper");
    EXPECT_EQ(listed, made);
    EXPECT_EQ(config.openSection(first, L"Inner", second, 0), 0);
    unsigned int number = 5;
    EXPECT_TRUE(config.getIntegerValue(L"n", number) != 0 && number == 5);
    EXPECT_TRUE(config.getIntegerValue(L"First", L"n", number) == 0 && number == 7);
    tstr value = L"old";
    EXPECT_NE(config.getStringValue(L"First", L"n", value), 0);   // a number is no text
    EXPECT_NE(config.getStringValue(L"Made", L"none", value), 0); // makes the section
    EXPECT_STREQ(value.c_str(), L"old");
    EXPECT_EQ(config.openSection(L"Made", second, 0), 0);
}

TEST(Configuration, TextIsKeptAsUtf8WhateverTheLocale)
{
    CCmnConfiguration config;
    const tstr text = L"\xE4\x4E2D\U0001F600";
    ACE_Configuration_Section_Key key;
    EXPECT_EQ(config.openSection(text.c_str(), key, 1), 0);
    EXPECT_EQ(config.setStringValue(text.c_str(), text), 0);
    EXPECT_NE(config.setStringValue(L"surrogate", L"\xD800"), 0);
    unsigned int number = 0;
    EXPECT_TRUE(config.setIntegerValue(L"\xD800", 1) && config.getIntegerValue(L"\xD800", number));
    tstr part;
    config.setStringValue(L"part", tstr(L"abcdef", 3, nullptr, false)); // not terminated there
    EXPECT_TRUE(config.getStringValue(L"part", part) == 0 && part == tstr(L"abc"));
    ACE_TString stored;
    config.configHeap().get_string_value(key, "\xC3\xA4\xE4\xB8\xAD\xF0\x9F\x98\x80", stored);
    EXPECT_STREQ(stored.c_str(), "\xC3\xA4\xE4\xB8\xAD\xF0\x9F\x98\x80");
    tstr value;
    EXPECT_EQ(config.getStringValue(text.c_str(), text.c_str(), value), 0);
    EXPECT_EQ(value, text);
    EXPECT_EQ(config.enumerateSections(config.configHeap().root_section()).at(0), text);
    // Bytes that are no text fail to be read, and do not read as an empty text.
    config.configHeap().set_string_value(key, "latin", ACE_TString("\xE4"));
    EXPECT_NE(config.getStringValue(L"latin", value), 0);
    EXPECT_EQ(value, text);
}

TEST(Configuration, FailedImportsLeaveARecordAndGoodOnesMerge)
{
    const Scratch scratch;
    scratch.write("bad", "[S]\n\"both\"=\"a\"\n\"onlyA\"=\"a\"\n[Bad\n");
    scratch.write("wide", "\"a\"=\"" + std::string(16 * 1024 * 1024, 'a') + "\"\n");
    std::string sections;
    for (int i = 0; i < 50001; ++i)
        sections += "[a]\n";
    scratch.write("many", sections);
    scratch.write("good", "; comment\n[S]\n\"both\"=\"b\"\n");
    const std::tuple<std::wstring, const wchar_t*, const wchar_t*> cases[] = {
        {scratch.wide("none/"), L"x", L"Configuration path verification failed"},
        {scratch.wide(), L"x", L"Configuration path succeeded but no configuration file exists."},
        {scratch.wide(), nullptr, L"Import of configuration file failed."}, // a directory
        {scratch.wide(), L"bad", L"Import of configuration file failed."},
        {scratch.wide(), L"wide", L"Import of configuration file failed."},
        {scratch.wide(), L"many", L"Import of configuration file failed."}};
    CCmnConfiguration config;
    const CCmnError& record = config.getLastError();
    for (const auto& [path, file, message] : cases) {
        const int code = config.importConfig(path.c_str(), file);
        EXPECT_TRUE(code != 0 && record.getCode() == code);
        EXPECT_STREQ(record.getMessage(), message);
        EXPECT_STREQ(record.getFile(), L"cmn\\src\\cmnconfiguration");
        EXPECT_STREQ(record.getFunction(), L"tarnix_cmn_4_4::CCmnConfiguration::importConfig");
        EXPECT_GT(record.getLine(), 0);
    }
    EXPECT_EQ(config.importConfig(scratch.wide().c_str(), L"good"), 0);
    EXPECT_NE(record.getCode(), 0); // success clears nothing
    tstr both, onlyA;               // which was before the fault
    config.getStringValue(L"S", L"both", both);
    config.getStringValue(L"S", L"onlyA", onlyA);
    EXPECT_EQ(both + onlyA, tstr(L"ba"));
    // What no import would take does not replace what one has taken.
    ACE_Configuration_Section_Key section;
    config.openSection(L"S", section, 0);
    config.setStringValue(L"wide", std::wstring(16 * 1024 * 1024, L'a').c_str());
    EXPECT_NE(config.exportConfig(), 0);
    EXPECT_EQ(scratch.read("good"), "; comment\n[S]\n\"both\"=\"b\"\n");
}

// Files that are made in the directory from now on may be read and written by user 61001. False
// where the file system has no access lists.
bool setDefaultList(const std::string& directory)
{
    constexpr std::uint16_t owner = 1, user = 2, group = 4, mask = 16, other = 32;
    constexpr std::uint32_t none = 0xFFFFFFFF;
    const struct {
        std::uint32_t version = 2;
        struct {
            std::uint16_t tag, rights;
            std::uint32_t id;
        } entries[5] = {{owner, 7, none},
                        {user, 6, 61001},
                        {group, 5, none},
                        {mask, 7, none},
                        {other, 0, none}};
    } list;
    return setxattr(directory.c_str(), "system.posix_acl_default", &list, sizeof list, 0) == 0;
}

TEST(Configuration, ExportsFollowLinksAndKeepRights)
{
    namespace fs = std::filesystem;
    for (const bool isThere : {false, true}) {
        const Scratch scratch;
        scratch.makeDirectory("d");
        fs::create_symlink("d/file", scratch.path("near"));
        fs::create_symlink(scratch.path("near"), scratch.path("far"));
        if (isThere) {
            scratch.write("d/file", "[old]\n");
            fs::permissions(scratch.path("d/file"), fs::perms(0642));
        }
        EXPECT_TRUE(setDefaultList(scratch.path("d")) || errno == ENOTSUP);
        CCmnConfiguration config(scratch.wide().c_str(), L"far", false);
        ACE_Configuration_Section_Key section;
        config.openSection(L"new", section, 1);
        EXPECT_EQ(config.exportConfig(), 0);
        EXPECT_EQ(scratch.read("d/file"), "[new]\n");
        EXPECT_EQ(std::distance(fs::directory_iterator(scratch.path("d")), {}), 1);
        EXPECT_TRUE(fs::is_symlink(scratch.path("near")) && fs::is_symlink(scratch.path("far")));
        EXPECT_TRUE(!isThere ||
                    fs::status(scratch.path("d/file")).permissions() == fs::perms(0642));
        EXPECT_TRUE(!isThere || getxattr(scratch.path("d/file").c_str(), "system.posix_acl_access",
                                         nullptr, 0) < 0);
    }
}

} // namespace
