// The trace log: its states, the sources of its settings, and the content of its file.
#include "cmnsmartptr.h"
#include "cmntracelog.h"
#include "support/scratchinstallation.h"

#include <gtest/gtest.h>

#include <sys/resource.h>

#include <cerrno>
#include <clocale>
#include <csignal>
#include <regex>

using namespace tarnix_cmn_4_4;

namespace
{

const char* const kConf = "ConfigFiles/t.conf";

struct TraceLog : testing::Test {
    TraceLog()
    {
        for (const char* directory : {"Orvane/Stellgard", "x", "ConfigFiles"})
            scratch.makeDirectory(directory);
    }

    // What was printed since the capture began and what was written, with "@" for each time stamp.
    std::string output()
    {
        const std::string text = testing::internal::GetCapturedStdout() + scratch.read(file);
        std::remove(scratch.path(file).c_str());
        static const std::regex time("\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d\\.\\d{6} ");
        return std::regex_replace(text, time, "@");
    }
    std::string start(const std::wstring& dir = L"", const wchar_t* name = L"", int first = 1,
                      bool toStdout = false)
    {
        testing::internal::CaptureStdout();
        log.get()->initialize(L"t", dir.c_str(), name, first, toStdout);
        return output();
    }
    template <typename Argument = const char*>
    std::string traced(int lineLevel, const char* format, Argument argument = {})
    {
        testing::internal::CaptureStdout();
        log.get()->trace(lineLevel, format, argument);
        return output();
    }
    int level()
    {
        int found = 0;
        log.get()->GetTraceLevels(found);
        return found;
    }

    const ScratchInstallation scratch;
    std::string file = "Logs/t.log";
    CCmnSmartPtr<CCmnTraceLog, CCmnDefaultAllocator<CCmnTraceLog>> log{true};
};

TEST_F(TraceLog, SettingsFromTheFileTheArgumentsAndTheSibling)
{
    const struct {
        const char *conf, *sibling, *dir; // the directory is in the scratch directory
        const wchar_t* file;
        bool toStdout, isCopied;
        int atStart, then;
        const char *log, *confThen;
    } cases[] = {
        {"LEVEL\"=dword:5", "=0", "", L"", false, false, 1, 5, "Logs/t.log", "FILE\"=\"t.log"},
        {"LEVEL\"=dword:0", "=3", "", L"", false, false, 3, 0, "Logs/t.log", "OUT\"=dword:0"},
        {"FILE\"=\"f\"", "", "", L"", true, true, 0, 9, "Logs/f", "OUT\"=dword:00000001"},
        {"STDOUT\"=dword:1", "", "", L"x", false, true, 0, 9, "Logs/t.log", "L\"=dword:00000009"},
        {"STDOUT\"=dword:0", "=-7", "y", L"", true, true, 0, 9, "Logs/t.log", ""},
        {"STDOUT\"=dword:1", "", "x", L"\u00FC", false, false, 1, 9, "x/\xC3\xBC",
         "OUT\"=dword:00000000"}};
    std::setlocale(LC_ALL, "C.UTF-8"); // a name beyond ASCII needs it
    for (const auto& c : cases) {
        scratch.write(kConf, std::string("[DEBUG_TRACE_INFO]\n\"TRACE") + c.conf + "\n");
        scratch.write("Orvane/Stellgard/sgdlog.conf",
                      std::string("Default.DiagnosticLevel") + c.sibling);
        log = decltype(log)(true);
        file = c.log;
        start(*c.dir ? scratch.widePath(c.dir) : L"", c.file, 9, c.toStdout);
        EXPECT_EQ(level(), c.atStart) << c.conf;
        EXPECT_EQ(traced(c.then, "in"), c.isCopied ? "t:@in\n@in\n" : "@in\n") << c.conf;
        EXPECT_EQ(traced(c.then + 1, "out"), "") << c.conf;
        EXPECT_NE(scratch.read(kConf).find(c.confThen), std::string::npos) << c.conf;
    }
    std::setlocale(LC_ALL, "C");
}

TEST_F(TraceLog, AChangedStoreAppliesToTheNextLine)
{
    const auto expectLevels = [&](int atOnce, int later) {
        EXPECT_EQ(level(), atOnce);
        EXPECT_EQ(traced(later + 1, "out"), "") << later;
        EXPECT_EQ(level(), later);
        EXPECT_EQ(traced(later, "%s", "in"), log.get()->isInitialized() ? "@in\n" : "") << later;
    };
    expectLevels(12345, 1); // not initialised; creates a section without values
    start(L"", L"", 5);
    expectLevels(0, 5);
    scratch.write(kConf, "[DEBUG_TRACE_INFO]\n\"TRACELEVEL\"=dword:4\n");
    log.get()->UpdateTraceLevelFromConfigFile(); // reads the store, in spite of its name
    expectLevels(5, 5);
    tstr dir, name;
    int given = 3;
    log.get()->loadFromConfigFile(dir, name, given);
    expectLevels(5, 4);
    std::filesystem::remove_all(scratch.path("ConfigFiles"));
    scratch.write("ConfigFiles", "a file");
    EXPECT_NE(log.get()->updateConfigFile(dir, name, 3), 0);
    expectLevels(4, 3); // the store has changed even so
}

TEST_F(TraceLog, UnusableFilesAndTexts)
{
    scratch.makeDirectory("Logs/t.log");
    const std::string dir = scratch.path("Logs/");
    EXPECT_EQ(start(L"", L"", 1, true), "[CCmnTraceLog] Error: Tracefile [" + dir +
                                            "/t.log] initialization failed.[t.log][" + dir + "]\n");
    EXPECT_EQ(traced(1, "lost"), "");
    file = "x/f";
    EXPECT_EQ(start(scratch.widePath("x"), L"f"), "");
    for (const std::size_t length : {1U, 1022U, 1023U, 1024U, 100000U}) {
        const std::string text(length - 1, 'x');
        EXPECT_EQ(traced(1, "%s9", text.c_str()), "@" + text + "9\n") << length;
    }
    EXPECT_EQ(traced(1, nullptr) + traced(1, ""), "");
    EXPECT_EQ(traced(1, "%s", ""), "@\n");
    EXPECT_EQ(traced(1, "cut%crest", 0), "@cut\n");
    EXPECT_EQ(traced(1, "name %ls", L"\x4E2D"), "@name %ls\n"); // not representable in the C locale
    EXPECT_NE(start(scratch.widePath(), L"x", 1, true), "");
    EXPECT_EQ(traced(1, "copy"), "t:@copy\n"); // it stays initialised
    EXPECT_EQ(log.get()->getLostLines(), 1u);
    EXPECT_EQ(log.get()->getLastWriteError(), EISDIR);
    // The name is not representable in the locale, so there is no configuration file either.
    log.get()->initialize(L"\xE4", scratch.widePath("x").c_str(), L"f", 1, true);
    EXPECT_EQ(traced(1, "x"), "\xC3\xA4:@x\n@x\n");
}

// Lines that do not fit. The limit stands for a full disk.
TEST_F(TraceLog, ACutLineEndsAsALine)
{
    start();
    rlimit limit{};
    getrlimit(RLIMIT_FSIZE, &limit);
    const rlim_t most = std::exchange(limit.rlim_cur, 40);
    const auto handler = std::signal(SIGXFSZ, SIG_IGN);
    setrlimit(RLIMIT_FSIZE, &limit);
    for (const char* line : {"a text that is cut", "no room"}) // after 27 bytes for the time
        log.get()->trace(1, "%s", line);
    limit.rlim_cur = most;
    setrlimit(RLIMIT_FSIZE, &limit);
    std::signal(SIGXFSZ, handler);
    EXPECT_EQ(traced(1, "room again"), "@a text that \n@room again\n");
    EXPECT_EQ(log.get()->getLostLines(), 2u);
    EXPECT_EQ(log.get()->getLastWriteError(), EFBIG);
}

void forward(CCmnTraceLog& log, int level, const char* format, ...)
{
    std::va_list args;
    va_start(args, format);
    log.vtrace(level, format, args);
    va_end(args);
}

TEST_F(TraceLog, VtraceFiltersAndFormats)
{
    start();
    forward(*log.get(), 2, "%d", 2);
    forward(*log.get(), 1, "%d%s", 1, "a");
    forward(*log.get(), 2, "%d", 2);
    EXPECT_EQ(traced(1, "b"), "@1a\n@b\n");
}

TEST_F(TraceLog, RefreshFollowsTheSettingsFile)
{
    using Failure = SCmnTraceRefresh::Failure;
    EXPECT_EQ(log.get()->refresh().failure, Failure::notInitialized);
    scratch.makeDirectory("Logs/t.log"); // initialize cannot open it
    start();
    std::filesystem::remove(scratch.path("Logs/t.log"));
    const auto levelOf = [](char digit) {
        return std::string("\"TRACELEVEL\"=dword:") + digit + "\n";
    };
    const auto copyOf = [](char digit) {
        return std::string("\"TRACESTDOUT\"=dword:") + digit + "\n";
    };
    const std::string dir = "\"TRACEFILE\"=\"f\"\n\"TRACEDIR\"=\"" + scratch.path();
    const struct {
        std::string name, settings; // "-" for an unchanged file
        const char *makes, *file;   // a directory; where lines go then
        int level, error;
        Failure failure;
        bool levelChanged, placeChanged, copyChanged;
    } cases[] = {
        {"opens now", "-", "Logs", "Logs/t.log", 1, 0, Failure::none, false, false, false},
        {"level", levelOf('3'), "x", "Logs/t.log", 3, 0, Failure::none, true, false, false},
        {"place", dir + "x\"\n", "x", "x/f", 3, 0, Failure::none, false, true, false},
        {"unusable", dir + "y\"\n" + levelOf('2'), "x", "x/f", 2, ENOENT, Failure::unusableFile,
         true, false, false},
        {"usable now", "-", "y", "y/f", 2, 0, Failure::none, false, true, false},
        {"no values", "", "x", "y/f", 2, 0, Failure::none, false, false, false},
        {"harmful", levelOf('7') + std::string(9, '\0') + "\n", "x", "y/f", 2, 0,
         Failure::unreadableSettings, false, false, false},
        {"copy", copyOf('1'), "x", "y/f", 2, 0, Failure::none, false, false, true},
        {"copy stays", copyOf('0'), "x", "y/f", 2, 0, Failure::none, false, false, false},
        {"no file", "", "x", "y/f", 2, ENOENT, Failure::noSettings, false, false, false}};
    for (const auto& c : cases) {
        if (c.settings != "-")
            scratch.write(kConf, "[DEBUG_TRACE_INFO]\n" + c.settings);
        if (c.failure == Failure::noSettings)
            std::filesystem::remove(scratch.path(kConf));
        scratch.makeDirectory(c.makes);
        const SCmnTraceRefresh found = log.get()->refresh();
        EXPECT_EQ(found.failure, c.failure) << c.name;
        EXPECT_EQ(found.error, c.error) << c.name;
        EXPECT_EQ(found.level, c.levelChanged) << c.name;
        EXPECT_EQ(found.place, c.placeChanged) << c.name;
        EXPECT_EQ(found.toStdout, c.copyChanged) << c.name;
        file = c.file;
        EXPECT_NE(traced(c.level, "in"), "") << c.name;
        EXPECT_EQ(traced(c.level + 1, "out"), "") << c.name;
        EXPECT_EQ(level(), c.level) << c.name;
    }
    EXPECT_STREQ(log.get()->getTracePath().c_str(), scratch.widePath("y/f").c_str());
}

} // namespace

TEST_F(TraceLog, ProblemsOfTheSettingsAreReportedAndKept)
{
    const std::string section = "[DEBUG_TRACE_INFO]\n\"TRACELEVEL\"=dword:00000005\n";
    const std::string conf = scratch.path(kConf);
    const struct {
        std::string file;
        const char* line; // after the path
        int level;
    } cases[] = {
        {"\xEF\xBB\xBF" + section, "", 5},
        {section + "port=5",
         ": 1 problem: line 3: value is neither a quoted text, nor dword: or hex:", 5},
        {"[other\nx\n" + section, ": 2 problems, first: line 1: section without a closing bracket",
         1},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.file);
        scratch.write(kConf, row.file);
        std::remove((conf + ".bad").c_str());
        CCmnSmartPtr<CCmnTraceLog, CCmnDefaultAllocator<CCmnTraceLog>> fresh{true};
        fresh.get()->initialize(L"t", L"", L"", 1, false);
        const bool isReported = *row.line != '\0';
        const std::string name = "settings '" + conf + '\'';
        const std::string report =
            isReported ? name + row.line + "; copy kept in '" + conf + ".bad'" : "";
        scratch.write(kConf, "[DEBUG_TRACE_INFO]\nx\n");
        for (int read = 0; read < 2; ++read) // reported once
            fresh.get()->refresh();
        EXPECT_EQ(fresh.get()->takeSettingsReport(),
                  report + (isReported ? "; " : "") + name +
                      ": 1 problem: line 2: neither a section, a value nor a comment");
        fresh.get()->refresh();
        EXPECT_EQ(fresh.get()->takeSettingsReport(), "");
        EXPECT_EQ(scratch.read(kConf + std::string(".bad")), isReported ? row.file : "");
        fresh.get()->trace(row.level, "passes");
        fresh.get()->trace(row.level + 1, "does not");
        testing::internal::CaptureStdout();
        EXPECT_EQ(output(), "@passes\n");
    }
}
