// SPDX-License-Identifier: LicenseRef-Tarnix
// The configuration store: its current section, its error records, its file.
#include "cmnconfiguration.h"
#include "platform_settings.h"
#include "support/fixture.h"
#include "support/repeat.h"
#include "support/scratchdirectory.h"

#include <sys/xattr.h>

using namespace tarnix_cmn_4_4;
namespace fs = std::filesystem;

namespace
{

// Gives the file or directory an ACL by which user 61001 may read and write: its version, then
// entries of permissions, kind and id. False if the file system has none.
bool setAcl(const std::string& path, const char* kind)
{
    const std::uint32_t list[] = {2,   7 << 16 | 1,  ~0U, 6 << 16 | 2, 61001, 5 << 16 | 4,
                                  ~0U, 7 << 16 | 16, ~0U, 32,          ~0U};
    return ::setxattr(path.c_str(), kind, list, sizeof list, 0) == 0;
}

struct stat statusOf(const std::string& path)
{
    struct stat info = {};
    ::stat(path.c_str(), &info);
    return info;
}

std::string problemsOf(const CCmnConfiguration& config)
{
    std::string all;
    for (const SCmnImportProblem& problem : config.getImportProblems())
        all += (all.empty() ? "" : "; ") + std::to_string(problem.line) + ": " + problem.reason;
    return all;
}

// Runs checks in a child process, which may limit or lock itself.
void inChild(const std::function<void()>& checks)
{
    const pid_t child = forkChild([&] { return checks(), !testing::Test::HasFailure(); });
    EXPECT_EQ(waitForChild(child), 0);
}

// The store and its file "f" in a directory.
struct Configuration : LeakCheck {
    int importText(const std::string& text)
    {
        scratch.write("f", text);
        return config.importConfig(directory.c_str(), L"f");
    }
    std::string exported()
    {
        EXPECT_EQ(config.exportConfig(), 0);
        return scratch.read("f");
    }
    int open(const wchar_t* path, int create = 0) { return config.openSection(path, key, create); }
    unsigned int numberOf(const wchar_t* section, const wchar_t* name)
    {
        unsigned int number = 0;
        config.getIntegerValue(section, name, number);
        return number;
    }

    const ScratchDirectory scratch;
    const std::wstring directory = scratch.widePath();
    CCmnConfiguration config{directory.c_str(), L"f", false};
    ACE_Configuration_Section_Key key;
};

TEST_F(Configuration, Sections)
{
    CCmnConfiguration fresh;
    EXPECT_STREQ(config.getLastError().getMessage(), L""); // nothing was imported
    EXPECT_EQ(fresh.getImportProblemCount(), 0U);
    EXPECT_EQ(fresh.exportConfig(), -1);           // no file is set
    EXPECT_NE(config.setIntegerValue(L"n", 1), 0); // no section is open
    EXPECT_EQ(open(L"First\\Inner", 1), 0);
    const ACE_Configuration_Section_Key inner = key;
    EXPECT_EQ(open(L"First"), 0);
    EXPECT_EQ(open(L"First\\Inner\\None"), -1);
    EXPECT_EQ(config.openSection(ACE_Configuration_Section_Key(), L"a", key, 1), -1);
    for (const wchar_t* name : {L"", L"\\a", L"First\\", L"First\\\\Inner", L"\xD800"}) {
        EXPECT_EQ(open(name, 1), -1) << std::wstring(name);
        EXPECT_EQ(config.removeSection(name, true), -1) << std::wstring(name);
    }
    EXPECT_EQ(config.setIntegerValue(L"n", 7), 0); // in First
    EXPECT_EQ(numberOf(L"First", L"n"), 7U);
    std::vector<tstr> made;
    for (int i = 0; i < 40; ++i)
        config.openSection(inner, made.emplace_back(std::to_wstring(i).c_str()).c_str(), key, 1);
    EXPECT_EQ(open(L"First\\Inner"), 0);
    const std::vector<tstr> listed = config.enumerateSections();
    EXPECT_EQ(config.enumerateSections(inner), listed);
    EXPECT_TRUE(std::is_permutation(made.begin(), made.end(), listed.begin(), listed.end()));
}

TEST_F(Configuration, Values)
{
    const tstr text = L"\xE4\x4E2D\U0001F600"; // stored as UTF-8 in every locale
    open(text.c_str(), 1);
    config.setIntegerValue(L"n", 7);
    EXPECT_EQ(config.setStringValue(text.c_str(), text), 0);
    EXPECT_EQ(config.setStringValue(L"empty", L""), 0);
    config.setStringValue(L"part", tstr(L"abcdef", 3, nullptr, false)); // not terminated there
    for (const auto& [name, stored] : {std::pair(text, text), {L"empty", L""}, {L"part", L"abc"}}) {
        tstr value = L"old";
        EXPECT_EQ(config.getStringValue(text.c_str(), name.c_str(), value), 0);
        EXPECT_STREQ(value.c_str(), stored.c_str());
    }
    EXPECT_EQ(config.enumerateValues().size(), 4U);
    tstr value = L"old";
    unsigned int number = 5;
    config.configHeap().set_string_value(key, "latin", ACE_TString("\xE4"));
    EXPECT_NE(config.getStringValue(L"latin", value), 0); // it does not read as empty
    EXPECT_NE(config.getStringValue(L"n", value), 0);     // a number is not a text
    EXPECT_NE(config.getStringValue(L"Text", L"none", value), 0);
    EXPECT_NE(config.getIntegerValue(L"Number", L"none", number), 0);
    EXPECT_EQ(open(L"Text"), 0); // created by the call
    EXPECT_EQ(open(L"Number"), 0);
    EXPECT_NE(config.setStringValue(L"surrogate", L"\xD800"), 0);
    EXPECT_NE(config.setStringValue(L"\xD800", L""), 0);
    EXPECT_NE(config.setIntegerValue(L"\xD800", 1), 0);
    EXPECT_NE(config.getStringValue(L"\xD800", value), 0);
    EXPECT_NE(config.getIntegerValue(L"\xD800", number), 0);
    EXPECT_NE(config.removeValue(L"\xD800"), 0);
    EXPECT_STREQ(value.c_str(), L"old");
    EXPECT_EQ(number, 5U);
}

TEST_F(Configuration, FailedImportsLeaveARecordAndGoodOnesMerge)
{
    const std::string good = "; comment\n[S]\n\"both\"=dword:2\n";
    scratch.write("good", good);
    scratch.write("bad", "[S]\n\"both\"=dword:1\n\"onlyBad\"=dword:1\n[Bad\n");
    ::mkfifo(scratch.path("pipe").c_str(), 0600);
    ::mknod(scratch.path("socket").c_str(), S_IFSOCK | 0600, 0);
    const struct {
        const char *directory, *file, *problem;
        const wchar_t* message = L"Import of configuration file failed.";
    } cases[] = {
        {"", "bad", "4: section without a closing bracket"},
        {"", "pipe", "0: file refused: not a regular file"},
        {"", "socket", "0: No such device or address"},
        {"none/", "bad", "", L"Configuration path verification failed"},
        {"", "none", "", L"Configuration path succeeded but no configuration file exists."},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.file);
        const CCmnError& record = config.getLastError();
        const int code = config.importConfig(scratch.widePath(row.directory).c_str(),
                                             fs::path(row.file).wstring().c_str());
        EXPECT_NE(code, 0);
        EXPECT_EQ(record.getCode(), code);
        EXPECT_STREQ(record.getMessage(), row.message);
        EXPECT_EQ(problemsOf(config), row.problem);
        EXPECT_EQ(config.getImportProblemCount(), *row.problem != '\0' ? 1U : 0U);
    }
    EXPECT_NE(config.takeImportReport().find("': 1 problem: No such device"), std::string::npos);
    scratch.write("none", "x\n"); // not the file that had problems
    EXPECT_EQ(config.exportConfig(), 0);
    EXPECT_EQ(config.getKeptCopy(), "");
    EXPECT_EQ(config.importConfig(directory.c_str(), L"good"), 0);
    EXPECT_NE(config.getLastError().getCode(), 0); // success clears nothing
    EXPECT_EQ(numberOf(L"S", L"both"), 2U);
    EXPECT_EQ(numberOf(L"S", L"onlyBad"), 1U); // it precedes the syntax error
    // An export that no import would accept does not replace the file.
    config.setStringValue(L"wide", std::wstring(16 << 20, L'a').c_str());
    EXPECT_EQ(config.exportConfig(), -1);
    EXPECT_EQ(scratch.read("good"), good);
}

TEST_F(Configuration, FilesThatWouldHarmAreRefused)
{
    const std::string line = ';' + std::string((16 << 20) - 1, 'x'); // as long as it may be
    const std::string largest = repeated(line + '\n', 3) + ';' + line.substr(5) + '\n';
    std::string values = "[s]\n", flat, sections;
    const std::string name(249, 'n'), path = '\\' + name + '\\' + name + '\\' + name;
    for (int i = 10000; i < 40000; ++i) {
        const std::string number = std::to_string(i);
        // Values and flat sections are in one hash bucket, the others in many.
        values += '"' + number + name + "aq"[i % 2] + "\"=\"\"\n";
        flat += '[' + name + number + "aq"[i % 2] + "]\n";
        sections += i < 21000 ? '[' + number.substr(0, 3) + path + number.substr(3) + "]\n" : "";
    }
    const std::string levels = '[' + repeated("s\\", 127) + 's';
    const struct {
        const char* name;
        std::string file;
        std::size_t problems = 0; // that are listed
        const char* last = "";
    } cases[] = {
        {"largest", largest},
        {"larger", largest + ';', 1, "file refused: cannot be read, or is larger than 64 MiB"},
        {"longer line", line + 'x', 1, "file refused: line of more than 16 MiB"},
        {"deepest", levels + "]\n"},
        {"deeper", levels + "\\s]\n", 1, "file refused: section more than 128 levels deep"},
        {"most sections", repeated("[a]\n", 50000)},
        {"more", repeated("[a]\n", 50001), 1, "file refused: more than 50000 levels of sections"},
        {"8 zeros", "[a]\n" + std::string(1, '\0') + '\n' + std::string(7, '\0'), 2, "zero byte"},
        {"9 zeros", std::string(9, '\0'), 2, "file refused: more than 8 zero bytes"},
        {"many values", "[s]\n" + repeated("\"n\"=\"\"\n", 100000), 1000,
         "second value of this name, replaces the first"},
        {"values of one bucket", values, 1, "file refused: too many names for one section or file"},
        {"sections of one bucket", flat, 1, "file refused: too many names for one section or file"},
        {"sections of many buckets", sections},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.name);
        CCmnConfiguration store;
        scratch.write("f", row.file);
        const bool isRefused = std::strncmp(row.last, "file", 4) == 0;
        EXPECT_EQ(store.importConfig(directory.c_str(), L"f"), isRefused ? -1 : 0);
        EXPECT_EQ(store.getImportProblems().size(), row.problems);
        EXPECT_STREQ(row.problems > 0 ? store.getImportProblems().back().reason : "", row.last);
    }
}

TEST_F(Configuration, LinesThatAreNotReadAreReportedAndKept)
{
    const std::string x = "[a]\n\"x\"=\"1\"\n", none = "[a]\n";
    const std::string badNumber = "2: dword: needs 1 to 8 hexadecimal digits";
    const std::string noValue = "2: value is neither a quoted text, nor dword: or hex:";
    const std::string noEqualSign = "2: no '=' after the name", notUtf8 = "2: text is not UTF-8";
    const struct {
        std::string lines, exported, problem = ""; // the lines follow the section [a]
        bool isImported = true;
    } cases[] = {
        {" \t\n;x\n#x\n ; x\n ; \"y\"=\"1\"\n ;]=\"y\n\t#y=#1\n\"x\"=\"1\" ; x\r\n[A] # x\n", x},
        {"\"x\"=hex:00 fF   ; c=#1\n\"y\"=hex:0A,b0\n\"z\"=hex:c0,1D  \n"
         "w=#9 ; \r\xE9\n\"v\"=hex:7f #a",
         "[a]\n\"z\"=hex:c0,1d\n\"y\"=hex:0a,b0\n\"x\"=hex:00,ff\n"
         "\"w\"=dword:00000009\n\"v\"=hex:7f\n"},
        {"\"x\"=\"\xC3\xA4\" \"\xF0\x9F\x98\x80\" ; \xE9\ny=\"1 2\r;\xE9\n\"w\"=dword: +0xC ; c",
         "[a]\n\"y\"=\"1 2\"\n\"x\"=\"\xC3\xA4\" \"\xF0\x9F\x98\x80\"\n\"w\"=dword:0000000c\n"},
        {"\"y\"=dword:0C, ; c\n", "[a]\n\"y\"=dword:0000000c\n", "2: text after the number"},
        {"\"x\" \"1\"\n", x, noEqualSign},
        {"\"x\":\"\"\n", "[a]\n\"x\"=\"\"\n", noEqualSign},
        {"\"x\" \"b\"=\"1\"\n", none, noEqualSign},
        {"\"x\"=\"\" ; \"2\"\n", "[a]\n\"x\"=\"\" ; \"2\"\n",
         "2: quote and comment before the last quote, read as text"},
        {"x=\"1 #\n", "[a]\n\"x\"=\"1 #\"\n", "2: comment in the form name=\"text, read as text"},
        {"\"x\"=\"\xE9\"\n", "[a]\n\"x\"=\"\xE9\"\n", notUtf8},
        {"x=\"\xED\xA0\x80\n", "[a]\n\"x\"=\"\xED\xA0\x80\"\n", notUtf8},
        {"[\xF4\x90\x80\x80]\n", "[\xF4\x90\x80\x80]\n[a]\n", notUtf8},
        {"x=\"\"\n", none, "2: closing quote in the form name=\"text"},
        {"x=\"1\r\"\n", x, "2: text after a carriage return"},
        {"x\"=\"1\n", none, "2: quote in the name"},
        {"x=5\n", none, noValue},
        {"\"x\"=5\n", none, noValue},
        {"x=#1a\n", none, "2: number is not decimal, or has more than 32 bits"},
        {"\rx=\"1\n", none, "2: neither a section, a value nor a comment"},
        {"\"x=5\n", none, "2: name without a closing quote"},
        {"\"x\"=\"1\r\n", x, "2: text without a closing quote"},
        {"\"x\"=\"1\" y\n", x, "2: text after the closing quote"},
        {"\"x\"=dword:123456789\n", none, badNumber},
        {"\"x\"=dword:5x\n", none, badNumber},
        {"\"x\"=hex:0g\n", none, "2: hex: needs pairs of hexadecimal digits, separated by commas"},
        {"\"aLongName\"=\"2\"\n\"AlongName\"=\"1\"\n", "[a]\n\"aLongName\"=\"1\"\n",
         "3: second value of this name, replaces the first"},
        {"\"x[y\"=\"1\"\n", none, "2: name that the store refuses", false},
        {"[b]c]\n", none, "2: section name that the store refuses", false},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.lines);
        const ScratchDirectory place;
        const bool isRead = row.problem.empty();
        const std::string file = (isRead ? "\xEF\xBB\xBF[a]\n" : "[a]\n") + row.lines;
        place.write("f", file);
        CCmnConfiguration store;
        EXPECT_EQ(store.importConfig(place.widePath().c_str(), L"f") == 0, row.isImported);
        EXPECT_EQ(problemsOf(store), row.problem);
        EXPECT_EQ(store.getImportProblemCount(), isRead ? 0U : 1U);
        EXPECT_EQ(store.exportConfig(), 0);
        EXPECT_EQ(place.read("f"), row.exported);
        EXPECT_EQ(place.read("f.bad"), isRead ? "" : file);
    }
}

// The file had a problem, so that a copy of it is kept.
TEST_F(Configuration, ExportsReplaceTheFileOrWriteItOrFail)
{
    SKIP_IF(withoutUsers());
    enum Result { replaced, written, failed };
    constexpr uid_t user = 65534;
    const struct {
        std::string commands; // in the directory of the file
        const char* kept = "f.bad";
        Result result = replaced;
        mode_t mode = 0640; // of the file afterwards, if it is replaced
        uid_t user = ::geteuid();
        rlim_t limit = RLIM_INFINITY;
    } cases[] = {
        {"touch .tarnix-$PPID-0; chmod 4642 f", "f.bad", replaced, 04642}, // left by another
        // The new group gets what others had.
        {"chown 61001:61001 f; chmod 6026 f", "f.bad", replaced, 0666, user},
        {"chown 61001 f; chmod 664 f", "f.bad", replaced, 0664, user}, // of a group that it keeps
        // As many links as the system follows.
        {"mkdir d; mv f d; ln -s d/f 1; for i in $(seq 38); do ln -s $i $((i + 1)); done;"
         " ln -s $PWD/39 f",
         "d/f.bad"},
        {"mkfifo f.bad", "f.bad.1"},
        {"ln f f.bad", "f.bad.1"},
        {"cp f g; ln -s g f.bad", "f.bad.1"},
        {"chown 65534 f; cp f f.bad"},
        {"chown 65534 f; cp f f.bad; chown 65534 f.bad"},
        {"chown 65534 f; cp f f.bad; chown 61001 f.bad", "f.bad.1"},
        {"rm f", "", replaced, 0644},
        {"cp f f.bad; chmod 666 f; chmod 755 .", "f.bad", written, 0, user},
        {"n=$(printf %252s | tr ' ' n); mv f $n; ln -s $n f", "", failed}, // no room for ".bad"
        {"chmod 444 f", "", failed, 0, user},
        {"chmod 222 f", "", failed, 0, user},
        {": limit", "", failed, 0, ::geteuid(), 1},
        {": limit", "f.bad", failed, 0, ::geteuid(), 3},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.commands);
        const ScratchDirectory place;
        const std::string file = place.path("f"),
                          kept = *row.kept == '\0' ? "" : place.path(row.kept);
        place.write("f", "x\n");
        CCmnConfiguration store(place.widePath().c_str(), L"f", true);
        store.openSection(L"a", key, 1);
        inChild([&] {
            ::umask(022);
            const std::string enter = "set -e; cd " + place.path() + "; chmod 777 .; chmod 640 f; ";
            EXPECT_EQ(std::system((enter + row.commands).c_str()), 0);
            const ino_t inode = statusOf(file).st_ino;
            setLimit(RLIMIT_FSIZE, row.limit);
            EXPECT_EQ(::seteuid(row.user), 0);
            EXPECT_EQ(store.exportConfig() == 0, row.result != failed);
            EXPECT_EQ(::seteuid(::getuid()), 0);
            setLimit(RLIMIT_FSIZE, RLIM_INFINITY);
            EXPECT_EQ(place.read("f"), row.result == failed ? "x\n" : "[a]\n");
            EXPECT_EQ(statusOf(file).st_ino == inode, row.result != replaced);
            EXPECT_EQ(store.getKeptCopy(), kept);
            EXPECT_EQ(place.read(row.kept), kept.empty() ? "" : "x\n");
            if (row.result != replaced)
                return;
            EXPECT_EQ(statusOf(file).st_mode & 07777, row.mode);
            EXPECT_EQ(statusOf(kept).st_mode & 07777, kept.empty() ? 0 : row.mode & 0777);
        });
    }
}

// The copy is one more than the files that exist.
TEST_F(Configuration, TheFirstCopiesAndTheLatestAreKept)
{
    const std::string long1 = std::string(10000, 'y') + '1', long2 = std::string(10000, 'y') + '2';
    for (const std::string& text :
         {long1, long2, long2, {"2"}, {"3"}, {"4"}, {"5"}, {"6"}, {"7"}, {"8"}}) {
        EXPECT_EQ(importText(text), 0);
        EXPECT_EQ(config.takeImportReport().find("copy"), std::string::npos);
        for (int i = 0; i < 2; ++i) // the second one has nothing to lose
            EXPECT_EQ(config.exportConfig(), 0);
    }
    EXPECT_EQ(scratch.read("f.bad"), long1);
    EXPECT_EQ(scratch.read("f.bad.1"), long2);
    EXPECT_EQ(scratch.read("f.bad.8"), "8");
    fs::create_symlink("target", scratch.path("f.bad.9"));
    for (const char* latest : {"y\n", "z\n"}) {
        importText(latest);
        EXPECT_EQ(config.exportConfig(), 0);
        EXPECT_EQ(scratch.read("f.bad.9"), latest);
    }
    EXPECT_EQ(scratch.entries(), 11); // no target, and no temporary file
}

// Not as root, who may set attributes whatever the mode is.
TEST_F(Configuration, ExportsKeepAttributesAndAcls)
{
    inChild([&] {
        const std::string file = scratch.path("f");
        const uid_t user = ::geteuid() == 0 && withoutUsers().empty() ? 65534 : ::geteuid();
        EXPECT_EQ(::chown(scratch.path().c_str(), user, ::getegid()), 0);
        EXPECT_EQ(::seteuid(user), 0);
        importText("x\n");
        if (::setxattr(file.c_str(), "user.test", "value", 5, 0) != 0 ||
            !setAcl(scratch.path(), "system.posix_acl_default")) // which new files get
            return;
        ::chmod(file.c_str(), 0642);
        EXPECT_EQ(config.exportConfig(), 0);
        EXPECT_LT(::getxattr(file.c_str(), "system.posix_acl_access", nullptr, 0), 0);
        for (const std::string& name : {file, file + ".bad"}) {
            char value[6] = {};
            ::getxattr(name.c_str(), "user.test", value, 5);
            EXPECT_STREQ(value, "value") << name;
            EXPECT_EQ(statusOf(name).st_mode & 0777, 0642U) << name;
        }
        importText("y\n");
        EXPECT_TRUE(setAcl(file, "system.posix_acl_access"));
        const ino_t inode = statusOf(file).st_ino;
        EXPECT_EQ(config.exportConfig(), 0);
        EXPECT_EQ(statusOf(file).st_ino, inode);
        EXPECT_EQ(statusOf(file + ".bad.1").st_mode & 0777, 0700U);
    });
}

TEST_F(Configuration, AStoreCanAlwaysBeExported)
{
    EXPECT_EQ(importText("[SOFTWARE\\x]\n\"n\"=dword:00000001\n[SOFTwARE\\y]\n\"n\"=\"2\"\n"), 0);
    for (const wchar_t* name : {L"software\\X", L"SOFTwARE\\Bre", L"SoftWARE\\bRE\\z"})
        EXPECT_EQ(open(name, 1), 0) << std::wstring(name);
    EXPECT_EQ(open(L"Software"), 0);
    EXPECT_EQ(config.openSection(key, L"BRE\\Z", key, 0), 0);
    // The store makes and removes sections past this object too.
    ACE_Configuration_Heap& heap = config.configHeap();
    ACE_Configuration_Section_Key past;
    EXPECT_EQ(heap.remove_section(heap.root_section(), "SOFTWARE", true), 0);
    EXPECT_EQ(config.openSection(key, L"a", key, 1), -1);
    EXPECT_EQ(open(L"software\\X", 1), 0);
    EXPECT_EQ(heap.open_section(heap.root_section(), "Past", true, past), 0);
    EXPECT_EQ(open(L"PAST\\a", 1), 0);
    EXPECT_EQ(heap.open_section(past, "B", true, key), 0);
    EXPECT_EQ(open(L"Past\\B"), 0);
    const std::wstring path = fs::path('0' + repeated('\\' + std::string(100, 'p'), 10)).wstring();
    EXPECT_EQ(open(path.c_str()), -1);
    EXPECT_EQ(open(path.c_str(), 1), 0);
    config.setIntegerValue(L"a\nb", 3); // is not read back
    config.setIntegerValue(L"n", 3);
    EXPECT_NE(exported().find("\"a\nb\"=dword:"), std::string::npos);
    CCmnConfiguration back(directory.c_str(), L"f", true);
    unsigned int value = 0;
    EXPECT_EQ(back.getIntegerValue(path.c_str(), L"n", value), 0);
    EXPECT_EQ(value, 3U);
    for (const wchar_t* name : {L"software\\X", L"Past\\a"})
        EXPECT_EQ(back.openSection(name, key, 0), 0) << std::wstring(name);
    // An import would refuse more levels.
    const std::wstring deepest = fs::path(repeated("s\\", 127) + 's').wstring();
    EXPECT_EQ(open(deepest.c_str(), 1), 0);
    EXPECT_EQ(open((deepest + L"/s").c_str(), 1), -1);
}

TEST_F(Configuration, RemovesValuesAndSections)
{
    open(L"a\\b", 1);
    open(L"a", 1);
    config.setIntegerValue(L"n", 1);
    config.setIntegerValue(L"m", 1);
    EXPECT_EQ(config.removeValue(L"N"), 0);
    EXPECT_NE(config.removeValue(L"n"), 0);
    EXPECT_EQ(config.enumerateValues(), std::vector<tstr>{tstr(L"m")});
    EXPECT_NE(config.removeSection(L"a", false), 0);
    EXPECT_EQ(config.removeSection(L"A\\B", false), 0);
    EXPECT_NE(config.removeSection(L"a\\b", true), 0);
    EXPECT_EQ(exported(), "[a]\n\"m\"=dword:00000001\n");
    EXPECT_EQ(config.removeSection(L"a", true), 0);
    EXPECT_NE(config.setIntegerValue(L"n", 1), 0);
    EXPECT_EQ(open(L"A", 1), 0); // the new spelling counts
    EXPECT_EQ(exported(), "[A]\n");
}

// Whatever the names that the store had, or that a file had: one that was refused, ended early or
// was read.
TEST_F(Configuration, ImportsFollowTheSpellingOfTheStore)
{
    const std::string files[] = {"", "[HOST\\sub]\n" + std::string(9, '\0'), "[bad\n[HOST\\sub]\n",
                                 "[Host\\sub]\n"};
    for (const std::string& first : files) {
        SCOPED_TRACE(testing::PrintToString(first));
        open(L"HOST\\sub", 1);
        EXPECT_EQ(config.removeSection(L"HOST", true), 0);
        importText(first);
        open(L"host", 1);
        EXPECT_EQ(importText("[new\\HOST]\n[host\\sub]\n\"n\"=dword:00000007\n"), 0);
        EXPECT_NE(exported().find("[new\\HOST]"), std::string::npos);
        EXPECT_EQ(numberOf(L"host\\SUB", L"n"), 7U);
        EXPECT_EQ(config.removeSection(L"host", true), 0);
    }
}

// As a child would that another thread starts while ACE has the file open. In a process without
// standard descriptors the copy does not take their place.
TEST_F(Configuration, NobodyReadsTheCopyAfterTheImport)
{
    inChild([&] {
        for (int standard = 0; standard < 3; ++standard)
            ::close(standard);
        EXPECT_EQ(importText("[a]\n"), 0);
        EXPECT_EQ(exported(), "[a]\n");
        TxSectionNames names(config.configHeap());
        auto file = std::make_unique<TxSettingsImport>(scratch.path("f").c_str(), names);
        const int descriptor = ::open(file->path(), O_RDONLY);
        char bytes[2] = {};
        EXPECT_EQ(::read(descriptor, bytes, 1), 1);
        EXPECT_GT(std::stoi(file->path() + std::strlen("/proc/self/fd/")), 2);
        file.reset();
        EXPECT_EQ(::pread(descriptor, bytes, 1, 0), 0);
    });
}

// Below a root directory without /proc. Then ACE gets the file itself.
TEST_F(Configuration, WithoutACopyInMemory)
{
    SKIP_IF(::geteuid() == 0 ? "" : "needs root");
    const struct {
        std::string file, problem, exported;
    } cases[] = {
        {"[a]\n\"x\"=\"1\"", "2: last line without a newline", "[a]\n"},
        {"[a]\n\"x\"=\"1\"\n", "", "[a]\n\"x\"=\"1\"\n"},
        {"[a]\n[A]\n",
         "0: file refused: byte order mark, zero byte or section in other case, and no copy in "
         "memory",
         ""},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.file);
        scratch.write("f", row.file);
        inChild([&] {
            EXPECT_EQ(::chroot(scratch.path().c_str()), 0);
            CCmnConfiguration store(L"/", L"f", true);
            EXPECT_EQ(problemsOf(store), row.problem);
            EXPECT_EQ(store.exportConfig(), 0);
        });
        EXPECT_EQ(scratch.read("f"), row.exported);
    }
}

} // namespace
