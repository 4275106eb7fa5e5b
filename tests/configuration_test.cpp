// The configuration store: current section, records of failures, what comes back from its file.
#include "cmnconfiguration.h"
#include "scratch.h"

using namespace tarnix_cmn_4_4;

namespace
{

TEST(Configuration, CurrentSectionMovesOnlyWithSuccess)
{
    CCmnConfiguration config;
    EXPECT_TRUE(config.enumerateSections().empty());
    EXPECT_NE(config.setIntegerValue(L"n", 1), 0);
    EXPECT_NE(config.exportConfig(), 0); // there is no file
    ACE_Configuration_Section_Key first;
    ACE_Configuration_Section_Key second;
    ASSERT_EQ(config.openSection(L"First\\Inner", second, 1), 0);
    ASSERT_EQ(config.openSection(L"First", first, 0), 0);
    ACE_Configuration_Section_Key kept = second;
    EXPECT_NE(config.openSection(L"First\\None", kept, 0), 0);
    EXPECT_NE(config.openSection(nullptr, kept, 1), 0);
    EXPECT_EQ(config.setIntegerValue(L"n", 7), 0); // in First

    ASSERT_EQ(config.openSection(first, L"Inner", second, 0), 0);
    unsigned int number = 0;
    EXPECT_NE(config.getIntegerValue(L"n", number), 0);
    EXPECT_EQ(config.getIntegerValue(L"First", L"n", number), 0);
    EXPECT_EQ(number, 7U);
    EXPECT_EQ(config.openSection(kept, L"Deeper", kept, 1), 0);
    EXPECT_EQ(config.enumerateSections(second).size(), 1U);

    tstr value = L"old";
    EXPECT_NE(config.getStringValue(L"Made", L"none", value), 0); // makes the section
    EXPECT_STREQ(value.c_str(), L"old");
    EXPECT_EQ(config.openSection(L"Made", second, 0), 0);
    EXPECT_NE(config.getStringValue(L"First", L"n", value), 0); // a number is no text
}

TEST(Configuration, FailedImportsLeaveARecord)
{
    const Scratch scratch;
    scratch.write("bad.conf", "[Good]\n\"n\"=dword:00000001\n[Bad\n");
    const struct {
        std::wstring path;
        const wchar_t* file;
        const wchar_t* message;
    } cases[] = {
        {scratch.wide("none/"), L"x", L"Configuration path verification failed"},
        {scratch.wide(), L"x", L"Configuration path succeeded but no configuration file exists."},
        {scratch.wide(), L"bad.conf", L"Import of configuration file failed."},
        {scratch.wide(), nullptr, L"Import of configuration file failed."}, // a directory
    };
    CCmnConfiguration config;
    for (const auto& c : cases) {
        const int code = config.importConfig(c.path.c_str(), c.file);
        EXPECT_NE(code, 0);
        const CCmnError& record = config.getLastError();
        EXPECT_EQ(record.getCode(), code);
        EXPECT_STREQ(record.getMessage(), c.message);
        EXPECT_STREQ(record.getFile(), L"cmn\\src\\cmnconfiguration");
        EXPECT_STREQ(record.getFunction(), L"tarnix_cmn_4_4::CCmnConfiguration::importConfig");
        EXPECT_GT(record.getLine(), 0);
    }
    unsigned int number = 0; // what came before the fault is in the store
    EXPECT_EQ(config.getIntegerValue(L"Good", L"n", number), 0);

    EXPECT_NE(config.importConfig(scratch.wide().c_str(), L"new.conf"), 0);
    EXPECT_EQ(config.exportConfig(), 0);
    EXPECT_EQ(config.importConfig(scratch.wide().c_str(), L"new.conf"), 0);
    EXPECT_STRNE(config.getLastError().getMessage(), L""); // success clears nothing
}

TEST(Configuration, ImportMerges)
{
    const Scratch scratch;
    scratch.write("a.conf", "[S]\n\"both\"=\"a\"\n\"onlyA\"=\"a\"\n");
    scratch.write("b.conf", "; comment\n[S]\n\"both\"=\"b\"\n");
    CCmnConfiguration config(scratch.wide().c_str(), L"a.conf", true);
    EXPECT_EQ(config.importConfig(scratch.wide().c_str(), L"b.conf"), 0);
    tstr value;
    EXPECT_EQ(config.getStringValue(L"S", L"both", value), 0);
    EXPECT_STREQ(value.c_str(), L"b");
    EXPECT_EQ(config.getStringValue(L"S", L"onlyA", value), 0);
}

TEST(Configuration, ComesBackAsItWasSavedInTheCLocale)
{
    const Scratch scratch;
    const std::wstring odd[] = {L"plain",
                                L"\xE4\x4E2D\U0001F600",
                                L"a b=c;#[x]",
                                L"C:\\x\\",
                                L"ends in \"",
                                L"say \"yes\"",
                                L"",
                                L" x\t",
                                std::wstring(100000, L'\xE4')};
    CCmnConfiguration saved(scratch.wide().c_str(), L"c.conf", false);
    ACE_Configuration_Section_Key key;
    ASSERT_EQ(saved.openSection(L"Names \xE4\\\x4E2D", key, 1), 0);
    for (std::size_t i = 0; i < std::size(odd); ++i)
        EXPECT_EQ(saved.setStringValue((L"\xE4" + std::to_wstring(i)).c_str(), odd[i].c_str()), 0);
    EXPECT_EQ(saved.setIntegerValue(L"\x4E2D", 0xFFFFFFFF), 0);
    EXPECT_NE(saved.setStringValue(L"surrogate", L"\xD800"), 0);
    ASSERT_EQ(saved.exportConfig(), 0);

    CCmnConfiguration loaded(scratch.wide().c_str(), L"c.conf", true);
    ASSERT_EQ(loaded.openSection(L"Names \xE4\\\x4E2D", key, 0), 0);
    for (std::size_t i = 0; i < std::size(odd); ++i) {
        tstr value;
        EXPECT_EQ(loaded.getStringValue((L"\xE4" + std::to_wstring(i)).c_str(), value), 0);
        EXPECT_EQ(value, tstr(odd[i].c_str())) << i;
    }
    unsigned int number = 0;
    EXPECT_EQ(loaded.getIntegerValue(L"\x4E2D", number), 0);
    EXPECT_EQ(number, 0xFFFFFFFF);
    const auto sections = loaded.enumerateSections(loaded.configHeap().root_section());
    ASSERT_EQ(sections.size(), 1U);
    EXPECT_STREQ(sections[0].c_str(), L"Names \xE4");

    // Bytes that are no text fail to be read, and do not read as an empty text.
    tstr value = L"old";
    ASSERT_EQ(loaded.configHeap().set_string_value(key, "latin", ACE_TString("\xE4")), 0);
    EXPECT_NE(loaded.getStringValue(L"latin", value), 0);
    EXPECT_STREQ(value.c_str(), L"old");
}

} // namespace
