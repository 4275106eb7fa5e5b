// The trace log: its states, where its settings come from, and what stands in its file.
#include "cmnsmartptr.h"
#include "cmntracelog.h"
#include "platform_file.h"
#include "scratch.h"

#include <fcntl.h>

#include <clocale>
#include <regex>

using namespace tarnix_cmn_4_4;

namespace
{

using LogPtr = CCmnSmartPtr<CCmnTraceLog, CCmnDefaultAllocator<CCmnTraceLog>>;

const char* const kConf = "ConfigFiles/t.conf";

struct TraceLog : testing::Test {
    TraceLog()
    {
        for (const char* directory : {"Orvane/Stellgard", "x", "ConfigFiles"})
            scratch.makeDirectory(directory);
        scratch.setRegistry(scratch.path(), scratch.path());
    }

    // What a call printed, and then what it wrote, with "@" for each time.
    template <typename Call>
    std::string outputOf(const Call& call)
    {
        testing::internal::CaptureStdout();
        call(log.get());
        const std::string text = testing::internal::GetCapturedStdout() + scratch.read(file);
        std::remove(scratch.path(file).c_str());
        static const std::regex time("\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d\\.\\d{6} ");
        return std::regex_replace(text, time, "@");
    }
    std::string start(const std::wstring& dir = L"", const wchar_t* name = L"", int first = 1,
                      bool toStdout = false)
    {
        return outputOf(
            [&](auto* made) { made->initialize(L"t", dir.c_str(), name, first, toStdout); });
    }
    template <typename Argument = const char*>
    std::string traced(int lineLevel, const char* format, Argument argument = {})
    {
        return outputOf([&](CCmnTraceLog* used) { used->trace(lineLevel, format, argument); });
    }
    int level()
    {
        int found = 0;
        log.get()->GetTraceLevels(found);
        return found;
    }

    Scratch scratch;
    std::string file = "Logs/t.log";
    LogPtr log{true};
};

TEST_F(TraceLog, SettingsOfFileArgumentsAndSibling)
{
    const struct {
        const char *conf, *sibling, *dir; // the directory is under the scratch one
        const wchar_t* file;
        bool toStdout, isCopied;
        int atStart, then;
        const char *log, *confThen;
    } cases[] = {
        {"LEVEL\"=dword:5", "=0", "", L"", false, false, 1, 5, "Logs/t.log", "FILE\"=\"t.log"},
        {"LEVEL\"=dword:0", "=3", "", L"", false, false, 3, 0, "Logs/t.log", "OUT\"=dword:0"},
        {"LEVEL\"=dword:ffffffff", "", "", L"", false, false, 1, -1, "Logs/t.log", ""},
        {"FILE\"=\"f\"", "", "", L"", true, true, 0, 9, "Logs/f", "OUT\"=dword:00000001"},
        {"STDOUT\"=dword:1", "", "", L"x", false, true, 0, 9, "Logs/t.log", "L\"=dword:00000009"},
        {"STDOUT\"=dword:0", "=-7", "y", L"", true, true, 0, 9, "Logs/t.log", ""},
        {"STDOUT\"=dword:1", "", "x", L"g", false, false, 1, 9, "x/g", "OUT\"=dword:00000000"}};
    for (const auto& c : cases) {
        scratch.write(kConf, std::string("[DEBUG_TRACE_INFO]\n\"TRACE") + c.conf + "\n");
        scratch.write("Orvane/Stellgard/sgdlog.conf",
                      std::string("Default.DiagnosticLevel") + c.sibling);
        log = LogPtr(true);
        file = c.log;
        start(*c.dir ? scratch.wide(c.dir) : L"", c.file, 9, c.toStdout);
        EXPECT_EQ(level(), c.atStart) << c.conf;
        EXPECT_EQ(traced(c.then, "in"), c.isCopied ? "t:@in\n@in\n" : "@in\n") << c.conf;
        EXPECT_EQ(traced(c.then + 1, "out"), "") << c.conf;
        EXPECT_NE(scratch.read(kConf).find(c.confThen), std::string::npos) << c.conf;
    }
    std::setlocale(LC_ALL, "C.UTF-8"); // by which a name beyond ASCII goes
    file = "x/\xC3\xBC";
    start(scratch.wide("x"), L"\u00FC");
    EXPECT_EQ(traced(1, "in"), "@in\n");
    std::setlocale(LC_ALL, "C");
    std::filesystem::remove_all(scratch.path("ConfigFiles"));
    scratch.write("ConfigFiles", "a file");
    EXPECT_NE(log.get()->updateConfigFile(L"d", L"f", 4), 0);
    EXPECT_EQ(traced(5, "out"), "");
    EXPECT_EQ(level(), 4);
}

TEST_F(TraceLog, EachChangeOfTheStoreCountsForTheNextLine)
{
    const auto expectLevels = [&](int atOnce, int later) {
        EXPECT_EQ(level(), atOnce);
        EXPECT_EQ(traced(later + 1, "out"), "") << later;
        EXPECT_EQ(level(), later);
        EXPECT_EQ(traced(later, "%s", "in"), log.get()->isInitialized() ? "@in\n" : "") << later;
    };
    expectLevels(12345, 1); // not initialised, which makes a section without values
    start(L"", L"", 5);
    EXPECT_NE(scratch.read(kConf).find("TRACEDIR\"=\"" + scratch.path("Logs/\"\n")),
              std::string::npos);
    expectLevels(0, 5);
    scratch.write(kConf, "[DEBUG_TRACE_INFO]\n\"TRACELEVEL\"=dword:4\n");
    log.get()->UpdateTraceLevelFromConfigFile(); // from the store, in spite of its name
    expectLevels(5, 5);
    tstr dir, name;
    int given = 3;
    log.get()->loadFromConfigFile(dir, name, given);
    expectLevels(5, 4);
    log.get()->updateConfigFile(dir, name, given = 3);
    expectLevels(4, 3);
    start(L"", L"", 9);
    expectLevels(1, 3);
}

TEST_F(TraceLog, FilesThatCannotBeUsed)
{
    scratch.makeDirectory("Logs/t.log/x");
    const std::string dir = scratch.path("Logs/");
    EXPECT_EQ(start(L"", L"", 1, true), "[CCmnTraceLog] Error: Tracefile [" + dir +
                                            "/t.log] initialization failed.[t.log][" + dir + "]\n");
    EXPECT_FALSE(log.get()->isInitialized());
    EXPECT_EQ(traced(1, "lost"), "");
    std::filesystem::remove_all(dir);
    scratch.write(kConf, "[unclosed\n");
    EXPECT_EQ(start(L"", L"", 1, true), "");
    EXPECT_NE(start(scratch.wide(), L"Orvane", 1, true), "");
    EXPECT_TRUE(log.get()->isInitialized()); // for good
    EXPECT_EQ(traced(1, "copy"), "t:@copy\n");
    // The locale cannot express this name, so there is no configuration file either.
    log.get()->initialize(L"\xE4", scratch.wide("Logs").c_str(), L"t.log", 1, true);
    EXPECT_EQ(traced(1, "x"), "\xC3\xA4:@x\n@x\n");
}

TEST_F(TraceLog, Texts)
{
    const TxFile open = TxOpenFile(scratch.path("f").c_str(), "a+");
    EXPECT_EQ(fcntl(fileno(open.get()), F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
    start();
    for (const std::size_t length : {1U, 1022U, 1023U, 1024U, 100000U}) {
        const std::string text(length - 1, 'x');
        EXPECT_EQ(traced(1, "%s9", text.c_str()), "@" + text + "9\n") << length;
    }
    EXPECT_EQ(traced(1, nullptr) + traced(1, ""), "");
    EXPECT_EQ(traced(1, "a\n%s\n", "b%n"), "@a\nb%n\n\n");
    EXPECT_EQ(traced(1, "cut%cbehind", 0), "@cut\n");
    EXPECT_EQ(traced(1, "name %ls", L"\x4E2D"), "@name %ls\n"); // not in the C locale
}

} // namespace
