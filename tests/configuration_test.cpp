// The configuration store: current section, records of failures, what comes back from its file.
#include "cmnconfiguration.h"
#include "scratch.h"

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
    EXPECT_NE(config.openSection(L"First\\None", kept, 0), 0);
    EXPECT_EQ(config.setIntegerValue(L"n", 7), 0); // in First
    EXPECT_EQ(config.openSection(kept, L"Deeper", kept, 1), 0);
    EXPECT_EQ(config.openSection(first, L"Inner", second, 0), 0);
    EXPECT_EQ(config.enumerateSections(second).size(), 1U);
    unsigned int number = 0;
    EXPECT_NE(config.getIntegerValue(L"n", number), 0);
    EXPECT_TRUE(config.getIntegerValue(L"First", L"n", number) == 0 && number == 7);
    tstr value = L"old";
    EXPECT_NE(config.getStringValue(L"First", L"n", value), 0);   // a number is no text
    EXPECT_NE(config.getStringValue(L"Made", L"none", value), 0); // makes the section
    EXPECT_STREQ(value.c_str(), L"old");
    EXPECT_EQ(config.openSection(L"Made", second, 0), 0);
}

TEST(Configuration, FailedImportsLeaveARecordAndGoodOnesMerge)
{
    const Scratch scratch;
    scratch.write("bad", "[S]\n\"both\"=\"a\"\n\"onlyA\"=\"a\"\n[Bad\n");
    scratch.write("good", "; comment\n[S]\n\"both\"=\"b\"\n");
    const std::tuple<std::wstring, const wchar_t*, const wchar_t*> cases[] = {
        {scratch.wide("none/"), L"x", L"Configuration path verification failed"},
        {scratch.wide(), L"x", L"Configuration path succeeded but no configuration file exists."},
        {scratch.wide(), nullptr, L"Import of configuration file failed."}, // a directory
        {scratch.wide(), L"bad", L"Import of configuration file failed."}};
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
}

TEST(Configuration, ComesBackAsItWasSavedInTheCLocale)
{
    const Scratch scratch;
    const std::wstring longText(100000, L'\xE4');
    const std::wstring odd[] = {
        L"\xE4\x4E2D\U0001F600", L"a b=c;#[x]", L"C:\\\"\\", L"", L" x\t", longText};
    const wchar_t* const section = L"Names \xE4\\\x4E2D";
    CCmnConfiguration saved(scratch.wide().c_str(), L"c.conf", false);
    ACE_Configuration_Section_Key key;
    ASSERT_EQ(saved.openSection(section, key, 1), 0);
    for (std::size_t i = 0; i < std::size(odd); ++i)
        EXPECT_EQ(saved.setStringValue((L"\xE4" + std::to_wstring(i)).c_str(), odd[i].c_str()), 0);
    saved.setIntegerValue(L"n", 0xFFFFFFFF);
    EXPECT_NE(saved.setStringValue(L"surrogate", L"\xD800"), 0);
    ASSERT_EQ(saved.exportConfig(), 0);

    CCmnConfiguration loaded(scratch.wide().c_str(), L"c.conf", true);
    ASSERT_EQ(loaded.openSection(section, key, 0), 0);
    tstr value;
    for (std::size_t i = 0; i < std::size(odd); ++i) {
        EXPECT_EQ(loaded.getStringValue((L"\xE4" + std::to_wstring(i)).c_str(), value), 0);
        EXPECT_EQ(value, tstr(odd[i].c_str())) << i;
    }
    unsigned int number = 0;
    EXPECT_TRUE(loaded.getIntegerValue(L"n", number) == 0 && number == 0xFFFFFFFF);
    const auto sections = loaded.enumerateSections(loaded.configHeap().root_section());
    EXPECT_STREQ(sections.at(0).c_str(), L"Names \xE4");

    // Bytes that are no text fail to be read, and do not read as an empty text.
    ASSERT_EQ(loaded.configHeap().set_string_value(key, "latin", ACE_TString("\xE4")), 0);
    EXPECT_NE(loaded.getStringValue(L"latin", value), 0);
    EXPECT_EQ(value, tstr(longText.c_str()));
}

} // namespace
