// SPDX-License-Identifier: LicenseRef-Tarnix
// The trace log: its states, the sources of its settings, and the content of its file.
#include "cmnsmartptr.h"
#include "cmntracelog.h"
#include "support/brief.h"
#include "support/fixture.h"
#include "support/scratchinstallation.h"
#include "support/testlocale.h"

#include <sys/syscall.h>

#include <cerrno>
#include <csignal>
#include <regex>

static bool g_isRewritable = true; // whether bytes of a file can be replaced

extern "C" ssize_t pwrite(int fd, const void* data, std::size_t size, off_t at)
{
    return g_isRewritable ? syscall(SYS_pwrite64, fd, data, size, at) : (errno = EIO, -1);
}

using namespace tarnix_cmn_4_4;

namespace
{

const char* const conf = "ConfigFiles/t.conf";
const std::string section = "[DEBUG_TRACE_INFO]\n";
const wchar_t* const byDefault = L"";

// The log "t" of an installation with a sibling product.
struct TraceLog : LeakCheck {
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
    std::string start(const std::wstring& dir = byDefault, const wchar_t* name = byDefault,
                      int first = 1, bool toStdout = false)
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
    // With these settings, as after a new start of the process.
    void restart(const std::string& settings, const std::string& siblingLevel = "")
    {
        scratch.write(conf, section + settings);
        scratch.write("Orvane/Stellgard/sgdlog.conf", "Default.DiagnosticLevel" + siblingLevel);
        log = decltype(log)(true);
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

TEST_F(TraceLog, TheLevelIsThatOfTheFileOrOfTheSibling)
{
    // Later the level is that of the file, to which the argument was added.
    const std::tuple<const char*, const char*, int, int> cases[] = {
        {"\"TRACELEVEL\"=dword:5\n", "=0", 1, 5},
        {"\"TRACELEVEL\"=dword:0\n", "=3", 3, 0},
        {"", "=-7", 0, 9},
    };
    for (const auto& [settings, sibling, atStart, later] : cases) {
        SCOPED_TRACE(std::string(settings) + sibling);
        restart(settings, sibling);
        start(byDefault, byDefault, 9);
        EXPECT_EQ(level(), atStart);
        EXPECT_EQ(traced(later, "in"), "@in\n");
        EXPECT_EQ(traced(later + 1, "out"), "");
    }
}

TEST_F(TraceLog, TheFileIsThatOfTheSettingsOrOfTheArguments)
{
    const TestLocale locale("C.UTF-8"); // a name beyond ASCII needs it
    // The settings, the directory in the scratch directory, the name; the file, what is stored.
    const std::tuple<const char*, const char*, const wchar_t*, const char*, const char*> cases[] = {
        {"\"TRACELEVEL\"=dword:9\n\"TRACESTDOUT\"=dword:0\n", "", byDefault, "Logs/t.log",
         "\"TRACEFILE\"=\"t.log\""},
        {"\"TRACEFILE\"=\"f\"\n\"TRACESTDOUT\"=dword:0\n", "", byDefault, "Logs/f",
         "\"TRACELEVEL\"=dword:00000009"},
        {"\"TRACEFILE\"=\"f\"\n", "y", byDefault, "Logs/f", "\"TRACEFILE\"=\"f\""},
        {"", "", L"x", "Logs/t.log", "\"TRACESTDOUT\"=dword:00000000"},
        {"\"TRACEFILE\"=\"f\"\n", "x", L"\u00FC", "x/\xC3\xBC", "\"TRACEFILE\"=\"\xC3\xBC\""},
        {"\"other\"=\"value\"\n", "x", L"f", "x/f", "\"other\"=\"value\""},
    };
    for (const auto& [settings, dir, name, written, stored] : cases) {
        SCOPED_TRACE(std::string(settings) + written);
        restart(settings);
        file = written;
        start(*dir != '\0' ? scratch.widePath(dir) : byDefault, name, 9);
        EXPECT_EQ(traced(9, "in"), "@in\n");
        EXPECT_NE(scratch.read(conf).find(stored), std::string::npos) << stored;
    }
}

TEST_F(TraceLog, LinesAreCopiedIfTheSettingsOrTheArgumentsSaySo)
{
    // A name with a directory replaces the settings.
    const std::tuple<const char*, bool, const wchar_t*, bool> cases[] = {
        {"", true, byDefault, true},
        {"\"TRACESTDOUT\"=dword:0\n", true, byDefault, true},
        {"\"TRACESTDOUT\"=dword:1\n", false, byDefault, true},
        {"\"TRACESTDOUT\"=dword:2\n", false, byDefault, false},
        {"\"TRACESTDOUT\"=dword:1\n", false, L"f", false},
    };
    file = "x/f";
    for (const auto& [settings, argument, name, isCopied] : cases) {
        SCOPED_TRACE(std::string(settings) + (argument ? "true" : "false"));
        restart(settings + ("\"TRACEFILE\"=\"f\"\n\"TRACEDIR\"=\"" + scratch.path("x\"\n")));
        start(*name != L'\0' ? scratch.widePath("x") : byDefault, name, 1, argument);
        EXPECT_EQ(traced(1, "in"), isCopied ? "t:@in\n@in\n" : "@in\n");
    }
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
    start(byDefault, byDefault, 5);
    expectLevels(0, 5);
    scratch.write(conf, section + "\"TRACELEVEL\"=dword:4\n");
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
    EXPECT_EQ(start(byDefault, byDefault, 1, true), "[CCmnTraceLog] Error: Tracefile [" + dir +
                                                        "/t.log] initialization failed.[t.log][" +
                                                        dir + "]\n");
    EXPECT_EQ(traced(1, "lost"), "");
    file = "x/f";
    EXPECT_EQ(start(scratch.widePath("x"), L"f"), "");
    for (const std::size_t length : {1U, 1024U, BUFSIZ - 1U, BUFSIZ + 0U, 100000U}) {
        const std::string text(length - 1, 'x');
        EXPECT_EQ(brief(traced(1, "%s9", text.c_str())), brief("@" + text + "9\n"));
    }
    EXPECT_EQ(traced(1, nullptr) + traced(1, ""), "");
    EXPECT_EQ(traced(1, "%s", "") + traced(1, "cut%crest", 0), "@\n@cut\n");
    EXPECT_EQ(traced(1, "name %ls", L"\x4E2D"), "@name %ls\n"); // not representable in the C locale
    EXPECT_NE(start(scratch.widePath(), L"x", 1, true), "");
    EXPECT_EQ(traced(1, "copy"), "t:@copy\n"); // it stays initialised
    EXPECT_EQ(log.get()->getLostLines(), 1u);
    EXPECT_EQ(log.get()->getLastWriteError(), EISDIR);
    // The name is not representable in the locale, so there is no configuration file either.
    log.get()->initialize(L"\xE4", scratch.widePath("x").c_str(), L"f", 1, true);
    EXPECT_EQ(traced(1, "x"), "\xC3\xA4:@x\n@x\n");
}

// Lines that do not fit. The limit stands for a full disk. The second cut line cannot be ended at
// once: the next line does it.
TEST_F(TraceLog, ACutLineEndsAsALine)
{
    start();
    EXPECT_EQ(log.get()->getLastWriteError(), 0);
    const auto handler = std::signal(SIGXFSZ, SIG_IGN);
    for (const char* cut : {"@a text that \n", "@a text that i\n"}) {
        setLimit(RLIMIT_FSIZE, 40);
        for (const char* line : {"a text that is cut", "no room"}) // after 27 bytes for the time
            log.get()->trace(1, "%s", line);
        setLimit(RLIMIT_FSIZE, RLIM_INFINITY);
        EXPECT_EQ(traced(1, "room again"), std::string(cut) + "@room again\n");
        g_isRewritable = false;
    }
    g_isRewritable = true;
    std::signal(SIGXFSZ, handler);
    scratch.write(file, "of another writer");
    EXPECT_EQ(traced(1, "whole"), "of another writer@whole\n");
    EXPECT_EQ(log.get()->getLostLines(), 4u);
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
    scratch.write(file, "of another writer");
    EXPECT_EQ(level(), 0); // there were no settings
    forward(*log.get(), 2, "%d", 2);
    forward(*log.get(), 1, "%d%s", 1, "a");
    forward(*log.get(), 2, "%d", 2);
    EXPECT_EQ(traced(1, "b"), "of another writer@1a\n@b\n");
}

TEST_F(TraceLog, RefreshFollowsTheSettingsFile)
{
    using Refresh = SCmnTraceRefresh;
    using Failure = Refresh::Failure;
    EXPECT_EQ(log.get()->refresh().failure, Failure::notInitialized);
    scratch.makeDirectory("Logs/t.log"); // initialize cannot open it
    start();
    std::filesystem::remove(scratch.path("Logs/t.log"));
    const std::string same = "-", inDirectory = "\"TRACEFILE\"=\"f\"\n\"TRACEDIR\"=\"";
    const std::string level = "\"TRACELEVEL\"=dword:", copy = "\"TRACESTDOUT\"=dword:1\n";
    const struct {
        std::string name, settings;
        int level;                       // afterwards
        const char* file;                // of the lines that follow
        bool Refresh::*change = nullptr; // the only one that is reported
        Failure failure = Failure::none;
        int error = 0;
    } cases[] = {{"opens now", same, 1, "Logs/t.log"},
                 {"level", level + "3\n", 3, "Logs/t.log", &Refresh::level},
                 {"place", inDirectory + scratch.path("x\"\n"), 3, "x/f", &Refresh::place},
                 {"unusable", inDirectory + scratch.path("y\"\n") + level + "2\n", 2, "x/f",
                  &Refresh::level, Failure::unusableFile, ENOENT},
                 {"usable now", same, 2, "y/f", &Refresh::place},
                 {"harmful", level + "7" + std::string(9, '\0') + "\n", 2, "y/f", nullptr,
                  Failure::unreadableSettings},
                 {"copy", copy, 2, "y/f", &Refresh::toStdout},
                 {"no file", same, 2, "y/f", nullptr, Failure::noSettings, ENOENT},
                 {"socket", same, 2, "y/f", nullptr, Failure::unreadableSettings, ENXIO}};
    for (const auto& row : cases) {
        SCOPED_TRACE(row.name);
        if (row.settings != same)
            scratch.write(conf, section + row.settings);
        if (row.failure == Failure::noSettings)
            std::filesystem::remove(scratch.path(conf));
        if (row.error == ENXIO)
            ::mknod(scratch.path(conf).c_str(), S_IFSOCK | 0600, 0);
        scratch.makeDirectory(std::filesystem::path(row.file).parent_path());
        const Refresh found = log.get()->refresh();
        EXPECT_EQ(found.failure, row.failure);
        EXPECT_EQ(found.error, row.error);
        EXPECT_EQ(found.failed(), row.failure != Failure::none);
        EXPECT_EQ(found.changed(), row.change != nullptr);
        for (const auto change : {&Refresh::level, &Refresh::place, &Refresh::toStdout})
            EXPECT_EQ(found.*change, row.change == change);
        file = row.file;
        EXPECT_NE(traced(row.level, "in"), "");
        EXPECT_EQ(traced(row.level + 1, "out"), "");
    }
    start(); // the settings stay in memory, without their file
    EXPECT_STREQ(log.get()->getTracePath().c_str(), scratch.widePath("y/f").c_str());
}

TEST_F(TraceLog, ProblemsOfTheSettingsAreReportedAndKept)
{
    const std::string level = section + "\"TRACELEVEL\"=dword:00000005\n";
    const std::string name = "settings '" + scratch.path(conf) + '\'';
    const struct {
        const char* name;
        int level;
        std::string settings, problem = "";
    } cases[] = {
        {"none", 5, "\xEF\xBB\xBF" + level},
        {"one", 5, level + "port=5",
         ": 1 problem: line 3: value is neither a quoted text, nor dword: or hex:"},
        {"two", 1, "\"x\"=\"1\"\nx\n" + level,
         ": 2 problems, first: line 1: value before the first section"},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.name);
        restart("");
        scratch.write(conf, row.settings);
        std::filesystem::remove(scratch.path("ConfigFiles/t.conf.bad"));
        start();
        scratch.write(conf, section + "x\n");
        for (int read = 0; read < 2; ++read) // reported once
            log.get()->refresh();
        const std::string atStart =
            name + row.problem + "; copy kept in '" + scratch.path(conf) + ".bad'; ";
        EXPECT_EQ(log.get()->takeSettingsReport(),
                  (row.problem.empty() ? "" : atStart) + name +
                      ": 1 problem: line 2: neither a section, a value nor a comment");
        for (int read = 0; read < 2; ++read) {
            log.get()->refresh();
            EXPECT_EQ(log.get()->takeSettingsReport(), "");
        }
        EXPECT_EQ(scratch.read("ConfigFiles/t.conf.bad"), row.problem.empty() ? "" : row.settings);
        EXPECT_EQ(traced(row.level, "passes"), "@passes\n");
        EXPECT_EQ(traced(row.level + 1, "does not"), "");
    }
}

} // namespace
