// The configuration store: current section, records of failures, what comes back from its file.
#include "cmnconfiguration.h"
#include "scratch.h"

#include <csignal>
#include <sys/resource.h>

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

void fill(CCmnConfiguration& config, int count, const wchar_t* value)
{
    ACE_Configuration_Section_Key section;
    ASSERT_EQ(config.openSection(L"S", section, 1), 0);
    for (int i = 0; i < count; ++i)
        ASSERT_EQ(config.setStringValue(std::to_wstring(i).c_str(), value), 0);
}

// While no file may be longer than `size`.
int exportWithin(CCmnConfiguration& config, rlim_t size)
{
    rlimit usual = {};
    getrlimit(RLIMIT_FSIZE, &usual);
    const rlimit less = {size, usual.rlim_max};
    setrlimit(RLIMIT_FSIZE, &less);
    const int code = config.exportConfig();
    setrlimit(RLIMIT_FSIZE, &usual);
    return code;
}

TEST(Configuration, ExportsReplaceTheWholeFileOrNothing)
{
    namespace fs = std::filesystem;
    const Scratch scratch;
    scratch.makeDirectory("d");
    const fs::perms mode = fs::perms(0642);
    std::signal(SIGXFSZ, SIG_IGN);
    fs::create_symlink("d/file", scratch.path("near"));
    fs::create_symlink(scratch.path("near"), scratch.path("far"));
    for (const bool isThere : {false, true}) {
        for (const wchar_t* name : {L"d/file", L"near", L"far"}) {
            const std::string old = isThere ? "[old]\n" : "";
            fs::remove(scratch.path("d/file"));
            if (isThere) {
                scratch.write("d/file", old);
                fs::permissions(scratch.path("d/file"), mode);
            }
            CCmnConfiguration config(scratch.wide().c_str(), name, false);
            fill(config, 1000, L"some text");
            for (const rlim_t limit : {0U, 100U, 10000U}) { // in the first, in a later write
                EXPECT_NE(exportWithin(config, limit), 0) << name << limit;
                EXPECT_EQ(scratch.read("d/file"), old) << name << limit;
            }
            EXPECT_EQ(fs::exists(scratch.path("d/file")), isThere);
            EXPECT_EQ(config.exportConfig(), 0) << name;
            EXPECT_GT(scratch.read("d/file").size(), 10000U) << name;
            EXPECT_EQ(std::distance(fs::directory_iterator(scratch.path("d")), {}), 1);
            EXPECT_TRUE(fs::is_symlink(scratch.path("near")) &&
                        fs::is_symlink(scratch.path("far")));
            EXPECT_TRUE(!isThere || fs::status(scratch.path("d/file")).permissions() == mode);
        }
    }
    std::signal(SIGXFSZ, SIG_DFL);
}

TEST(Configuration, ReadersOfAFileThatSeveralExportFindItWhole)
{
    const Scratch scratch;
    onThreads(4, [&](int writer) {
        const std::wstring value(10, static_cast<wchar_t>(L'a' + writer));
        CCmnConfiguration config(scratch.wide().c_str(), L"c", false);
        fill(config, 1000 + writer, value.c_str());
        for (int i = 0; i < 20; ++i) {
            ASSERT_EQ(config.exportConfig(), 0);
            CCmnConfiguration other(scratch.wide().c_str(), L"c", true);
            tstr first, last;
            ASSERT_EQ(other.getStringValue(L"S", L"0", first), 0);
            ASSERT_EQ(other.getStringValue(L"S", L"999", last), 0);
            ASSERT_EQ(first, last);
        }
    });
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
