// The configuration store: its current section, its error records, its file.
#include "cmnconfiguration.h"
#include "cmnpathtool.h"
#include "cmnsystemfiles.h"
#include "platform_settings.h"
#include "support/repeat.h"
#include "support/scratchdirectory.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

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

struct LineCase {
    const char* lines; // after the section [a]
    const char* reason = nullptr;
    std::size_t line = 2;
    std::string exported = "[a]\n";
    bool isImported = true;
};

TEST(Configuration, LinesThatAreNotReadAreReportedAndKept)
{
    const std::string x = "[a]\n\"x\"=\"1\"\n";
    const char* const noValue = "value is neither a quoted text, nor dword: or hex:";
    const char* const notUtf8 = "text is not UTF-8";
    const char* const badNumber = "dword: needs 1 to 8 hexadecimal digits";
    const LineCase cases[] = {
        {"\"x\"=\"1\"", nullptr, 0, x},
        {" \t\n;x\n#x\n ; x\n\"x\"=\"1\" ; x\r\n[A] # x\n", nullptr, 0, x},
        {"\"x\"=hex:00 fF  ; c\ny=#+12\n", nullptr, 0,
         "[a]\n\"y\"=dword:0000000c\n\"x\"=hex:00,ff\n"},
        {"\"x\"=hex:00 \n\"y\"=dword: 0x00000000C ; c\n", nullptr, 0,
         "[a]\n\"y\"=dword:0000000c\n\"x\"=hex:00\n"},
        {"\"y\"=dword:C, ; c\n", "text after the number", 2, "[a]\n\"y\"=dword:0000000c\n"},
        {"\"x\" \"1\"\n", "no '=' after the name", 2, x},
        {"\"x\" \"b\"=\"1\"\n", "no '=' after the name"},
        {" ; \"x\"=\"1\"\n ;]=\"x\n\t#x=#1\n"},
        {"\"x\"=\"1\" ; \"2\"\n", "quote and comment before the last quote, read as text", 2,
         "[a]\n\"x\"=\"1\" ; \"2\"\n"},
        {"x=\"1 #\n", "comment in the form name=\"text, read as text", 2, "[a]\n\"x\"=\"1 #\"\n"},
        {"\"x\"=\"\xE9\"\n", notUtf8, 2, "[a]\n\"x\"=\"\xE9\"\n"},
        {"\xED\xA0\x80=\"1\n", notUtf8, 2, "[a]\n\"\xED\xA0\x80\"=\"1\"\n"},
        {"[\xF4\x90\x80\x80]\n", notUtf8, 2, "[\xF4\x90\x80\x80]\n[a]\n"},
        {"\"x\"=\"\xC3\xA4\xF0\x9F\x98\x80\" ; \xE9\n", nullptr, 0,
         "[a]\n\"x\"=\"\xC3\xA4\xF0\x9F\x98\x80\"\n"},
        {"x=\"1\r\n", nullptr, 0, x},
        {"x=\"1\"\n", "closing quote in the form name=\"text"},
        {"x=5\n", noValue},
        {"x=#4294967296\n", "number is not decimal, or has more than 32 bits"},
        {"x\n", "neither a section, a value nor a comment"},
        {" [b]\n\"x\"=\"1\"\n", "neither a section, a value nor a comment", 2, x},
        {"\"x\"=5\n", noValue},
        {"\"x\"=DWORD:5\n", noValue},
        {"\"x\" = \"1\"\n", "no '=' after the name"},
        {"\"x=5\n", "name without a closing quote"},
        {"\"x\"=\"1\n", "text without a closing quote", 2, x},
        {"\"x\"=\"1\" y\n", "text after the closing quote", 2, x},
        {"\"x\"=dword:zz\n", badNumber},
        {"\"x\"=dword:123456789\n", badNumber},
        {"\"x\"=dword:5x\n", badNumber},
        {"\"x\"=hex:0\n", "hex: needs pairs of hexadecimal digits, separated by commas"},
        {"\"X\"=\"2\"\n\"x\"=\"1\"\n", "second value of this name, replaces the first", 3,
         "[a]\n\"X\"=\"1\"\n"},
        {"\"x\\y\"=\"1\"\n", "name that the store refuses", 2, "[a]\n", false},
        {"[b]c]\n", "section name that the store refuses", 2, "[a]\n", false},
        {"[b\n", "section without a closing bracket", 2, "[a]\n", false},
    };
    for (const LineCase& row : cases) {
        SCOPED_TRACE(row.lines);
        const ScratchDirectory scratch;
        const std::string file =
            std::string(row.reason ? "" : "\xEF\xBB\xBF") + "[a]\n" + row.lines;
        scratch.write("f", file);
        CCmnConfiguration config;
        EXPECT_EQ(config.importConfig(scratch.widePath().c_str(), L"f") == 0, row.isImported);
        EXPECT_EQ(config.getImportProblemCount(), row.reason ? 1U : 0U);
        for (const SCmnImportProblem& problem : config.getImportProblems()) {
            EXPECT_EQ(problem.line, row.line);
            EXPECT_STREQ(problem.reason, row.reason);
        }
        EXPECT_EQ(config.exportConfig(), 0);
        EXPECT_EQ(scratch.read("f"), row.exported);
        EXPECT_EQ(scratch.read("f.bad"), row.reason ? file : "");
        EXPECT_EQ(config.getKeptCopy(), row.reason ? scratch.path("f.bad") : "");
    }
}

// The copy is one more than the files that exist, but an equal one counts.
TEST(Configuration, TheFirstCopiesAndTheLatestAreKept)
{
    const ScratchDirectory scratch;
    const auto writeFile = [&](const std::string& text) {
        scratch.write("f", text);
        ::chmod(scratch.path("f").c_str(), 0640);
        CCmnConfiguration config(scratch.widePath().c_str(), L"f", true);
        return config.exportConfig();
    };
    std::filesystem::create_symlink("target", scratch.path("f.bad"));
    EXPECT_EQ(writeFile("x\n"), 0);
    EXPECT_FALSE(std::filesystem::exists(scratch.path("target")));
    EXPECT_EQ(scratch.read("f.bad.1"), "x\n");
    EXPECT_EQ(std::filesystem::status(scratch.path("f.bad.1")).permissions(),
              std::filesystem::perms(0640));
    EXPECT_EQ(writeFile("x\n"), 0);
    EXPECT_EQ(scratch.entries(), 3);
    for (int i = 2; i < 10; ++i)
        EXPECT_EQ(writeFile(std::to_string(i)), 0);
    std::filesystem::remove(scratch.path("f.bad.9"));
    std::filesystem::create_symlink("target", scratch.path("f.bad.9"));
    for (const char* latest : {"y\n", "z\n"}) {
        EXPECT_EQ(writeFile(latest), 0);
        EXPECT_EQ(scratch.read("f.bad.9"), latest);
    }
    EXPECT_EQ(scratch.read("f.bad.8"), "8");
    EXPECT_EQ(scratch.entries(), 11); // no target, and no temporary file
}

TEST(Configuration, ExportsThatFailKeepTheFile)
{
    const std::string problem = "line 1: neither a section, a value nor a comment";
    const struct {
        std::string name;
        mode_t mode;
        rlim_t limit;
        std::string report; // its end
        long entries;
    } cases[] = {
        {std::string(252, 'f'), 0666, RLIM_INFINITY, problem, 1}, // too long for a copy
        {"read-only", 0444, RLIM_INFINITY, problem, 1},
        {"limit", 0666, 4000, problem + "; copy kept in '.*/limit[.]bad'", 2},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.name);
        const ScratchDirectory scratch;
        scratch.write(row.name, "x\n");
        ::chmod(scratch.path().c_str(), 0777);
        ::chmod(scratch.path(row.name).c_str(), row.mode);
        CCmnConfiguration config(scratch.widePath().c_str(),
                                 std::filesystem::path(row.name).wstring().c_str(), true);
        ACE_Configuration_Section_Key section;
        config.openSection(L"a", section, 1);
        config.setStringValue(L"n", std::wstring(8000, L'n').c_str());
        const rlimit limit{row.limit, RLIM_INFINITY};
        EXPECT_EXIT(
            {
                const bool isSet = ::setrlimit(RLIMIT_FSIZE, &limit) == 0 &&
                                   (::geteuid() != 0 || ::seteuid(65534) == 0);
                const bool failed = config.exportConfig() != 0 && config.exportConfig() != 0;
                std::fprintf(stderr, "%s", config.takeImportReport().c_str());
                _exit(isSet && failed ? 0 : 1);
            },
            testing::ExitedWithCode(0), "1 problem: " + row.report + '$');
        EXPECT_EQ(scratch.read(row.name), "x\n");
        EXPECT_EQ(scratch.entries(), row.entries);
    }
}

TEST(Configuration, AStoreCanAlwaysBeExported)
{
    const ScratchDirectory scratch;
    const std::string file = "[SOFTWARE\\x]\n\"n\"=dword:00000001\n[SOFTwARE\\y]\n\"n\"=\"2\"\n";
    scratch.write("f", file);
    CCmnConfiguration config(scratch.widePath().c_str(), L"f", true);
    ACE_Configuration_Section_Key key, deep;
    for (const wchar_t* name : {L"software\\X", L"SOFTwARE\\Bre", L"SoftWARE\\bRE\\z"})
        EXPECT_EQ(config.openSection(name, key, 1), 0) << std::wstring(name);
    EXPECT_EQ(config.openSection(L"Software", key, 0), 0);
    EXPECT_EQ(config.openSection(key, L"BRE\\Z", deep, 0), 0);
    std::wstring path = L"0";
    while (path.size() < 1000)
        path += L"\\" + std::wstring(100, L'p');
    EXPECT_NE(config.openSection(path.c_str(), key, 0), 0);
    EXPECT_EQ(config.openSection(path.c_str(), key, 1), 0);
    EXPECT_EQ(config.setIntegerValue(L"n", 3), 0);
    EXPECT_EQ(config.exportConfig(), 0);
    CCmnConfiguration back(scratch.widePath().c_str(), L"f", true);
    unsigned int value = 0;
    EXPECT_EQ(back.getImportProblemCount(), 0U);
    EXPECT_TRUE(back.getIntegerValue(path.c_str(), L"n", value) == 0 && value == 3);
    const std::string levels = repeated("s\\", 128) + 's'; // an import would refuse it
    EXPECT_NE(back.openSection(std::wstring(levels.begin(), levels.end()).c_str(), key, 1), 0);
}

TEST(Configuration, RemovesValuesAndSections)
{
    const ScratchDirectory scratch;
    CCmnConfiguration config(scratch.widePath().c_str(), L"f", false);
    ACE_Configuration_Section_Key key;
    config.openSection(L"a\\b", key, 1);
    config.openSection(L"a", key, 1);
    config.setIntegerValue(L"n", 1);
    config.setIntegerValue(L"m", 1);
    EXPECT_EQ(config.enumerateValues().size(), 2U);
    EXPECT_EQ(config.removeValue(L"N"), 0);
    EXPECT_NE(config.removeValue(L"n"), 0);
    EXPECT_EQ(config.enumerateValues(), std::vector<tstr>{tstr(L"m")});
    EXPECT_NE(config.removeSection(L"a", false), 0);
    EXPECT_EQ(config.removeSection(L"A\\B", false), 0);
    EXPECT_NE(config.removeSection(L"a\\b", true), 0);
    EXPECT_EQ(config.exportConfig(), 0);
    EXPECT_EQ(scratch.read("f"), "[a]\n\"m\"=dword:00000001\n");
    EXPECT_EQ(config.removeSection(L"a", true), 0);
    EXPECT_NE(config.setIntegerValue(L"n", 1), 0);
    EXPECT_EQ(config.openSection(L"A", key, 1), 0); // the new spelling counts
    EXPECT_EQ(config.exportConfig(), 0);
    EXPECT_EQ(scratch.read("f"), "[A]\n");
}

// Whatever the names that the store had, or that a file had which was not imported.
TEST(Configuration, ImportsFollowTheSpellingOfTheStore)
{
    const std::string good = "[host\\sub]\n\"n\"=dword:00000007\n";
    const std::pair<const char*, std::string> cases[] = {
        {"removed", ""},
        {"refused", "[HOST\\sub]\n" + std::string(9, '\0')},
        {"ended early", "[bad\n[HOST\\sub]\n"},
        {"read", "[Host\\sub]\n"}};
    for (const auto& [name, first] : cases) {
        SCOPED_TRACE(name);
        const ScratchDirectory scratch;
        scratch.write("first", first);
        scratch.write("good", good);
        CCmnConfiguration config;
        ACE_Configuration_Section_Key key;
        config.openSection(L"HOST\\sub", key, 1);
        EXPECT_EQ(config.removeSection(L"HOST", true), 0);
        config.importConfig(scratch.widePath().c_str(), L"first");
        config.openSection(L"host", key, 1);
        EXPECT_EQ(config.importConfig(scratch.widePath().c_str(), L"good"), 0);
        unsigned int number = 0;
        EXPECT_TRUE(config.getIntegerValue(L"host\\SUB", L"n", number) == 0 && number == 7);
    }
}

TEST(Configuration, ExpensiveFilesAreRefused)
{
    std::string values = "[s]\n", sections;
    for (int i = 0; i < 49000; ++i) {
        values += '"' + std::to_string(i) + "a\"=\"\"\n"; // one hash bucket
        sections += '[' + std::to_string(i) + "aaa]\n";
    }
    const std::string ordinary = "[s]\n" + repeated("\"n\"=\"\"\n", 100000);
    const std::string name(255, 'p');
    const std::string longPath =
        "[" + repeated(name + '\\', 127) + name + "]\n" + repeated("a=\"\n", 2100000);
    const std::tuple<std::string, bool, std::size_t> cases[] = {
        {values, false, 1}, {sections, false, 1}, {longPath, false, 1000}, {ordinary, true, 1000}};
    for (const auto& [file, isImported, problems] : cases) {
        SCOPED_TRACE(file.substr(0, 20));
        const ScratchDirectory scratch;
        scratch.write("f", file);
        CCmnConfiguration config;
        EXPECT_EQ(config.importConfig(scratch.widePath().c_str(), L"f") == 0, isImported);
        EXPECT_EQ(config.getImportProblems().size(), problems);
        EXPECT_STREQ(config.getImportProblems().back().reason,
                     isImported ? "second value of this name, replaces the first"
                                : "file refused: too many names for one section or file");
    }
}

TEST(Configuration, ExportsKeepTheUsersAttributes)
{
    const ScratchDirectory scratch;
    scratch.write("f", "bad\n");
    const std::string file = scratch.path("f");
    if (setxattr(file.c_str(), "user.test", "value", 5, 0) != 0)
        GTEST_SKIP() << "no attributes on this file system";
    EXPECT_EQ(CCmnConfiguration(scratch.widePath().c_str(), L"f", true).exportConfig(), 0);
    for (const std::string& name : {file, file + ".bad"}) {
        char value[5] = {};
        EXPECT_EQ(getxattr(name.c_str(), "user.test", value, sizeof value), 5) << name;
        EXPECT_EQ(std::string(value, sizeof value), "value") << name;
    }
}

TEST(Configuration, TheRegistryReadsTheSame)
{
    const ScratchDirectory scratch;
    scratch.write("f", "\xEF\xBB\xBF[Software\\Brenholt\\Tarnix]\n\"InstallDir64\"=\"/opt/");
    setRegistryFile(scratch.path("f").c_str());
    tstr directory;
    EXPECT_EQ(CCmnPathTool::getInstallPath(directory), 0);
    EXPECT_STREQ(directory.c_str(), L"/opt/");
    setRegistryFile(nullptr);
}

// As a child would that another thread starts while ACE has the file open.
TEST(Configuration, NobodyReadsTheCopyAfterTheImport)
{
    const ScratchDirectory scratch;
    scratch.write("f", "[a]\n");
    ACE_Configuration_Heap heap;
    heap.open(16);
    TxSectionNames names(heap);
    auto file = std::make_unique<TxSettingsImport>(scratch.path("f").c_str(), names);
    const int descriptor = open(file->path(), O_RDONLY);
    char bytes[2] = {};
    EXPECT_EQ(read(descriptor, bytes, 1), 1);
    file.reset();
    EXPECT_EQ(pread(descriptor, bytes, 1, 0), 0);
    close(descriptor);
}

// In such a directory there is no /proc, and ACE gets the file itself.
TEST(Configuration, WithoutProc)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "needs root";
    const ScratchDirectory scratch;
    scratch.write("f", "[a]\n\"x\"=\"1\"\n\"y\"=\"2\"");
    EXPECT_EXIT(
        {
            CCmnConfiguration config;
            const bool inside = chroot(scratch.path().c_str()) == 0 && chdir("/") == 0;
            const bool isRead = inside && config.importConfig(L"/", L"f") == 0 &&
                                config.getImportProblemCount() == 1;
            std::fprintf(stderr, "%s", isRead ? config.getImportProblems()[0].reason : "failed");
            _exit(config.exportConfig());
        },
        testing::ExitedWithCode(0), "last line without a newline");
    EXPECT_EQ(scratch.read("f"), "[a]\n\"x\"=\"1\"\n");
    EXPECT_EQ(scratch.read("f.bad"), "[a]\n\"x\"=\"1\"\n\"y\"=\"2\"");
}
