// The trace log: its states, where its settings come from, and what stands in its file.
#include "cmnfile.h"
#include "cmnsmartptr.h"
#include "cmntracelog.h"
#include "scratch.h"

#include <fcntl.h>

#include <cctype>
#include <thread>
#include <vector>

using namespace tarnix_cmn_4_4;

namespace
{

using LogPtr = CCmnSmartPtr<CCmnTraceLog, CCmnDefaultAllocator<CCmnTraceLog>>;

const std::string kTime = "0000-00-00 00:00:00.000000 ";
constexpr const char* kFile = "inst/Logs/t.log";

// A line, which begins with `prefix`, with the digits of its time replaced by 0.
std::string timeless(std::string line, const std::string& prefix = "")
{
    for (std::size_t i = prefix.size(); i < line.size() && i < prefix.size() + kTime.size(); ++i)
        line[i] = std::isdigit(static_cast<unsigned char>(line[i])) ? '0' : line[i];
    return line;
}

class TraceLog : public ::testing::Test
{
protected:
    void SetUp() override
    {
        m_Scratch.makeDirectory("inst");
        m_Scratch.makeDirectory("prog/Orvane/Stellgard");
        m_Scratch.setRegistry(m_Scratch.path("inst/"), m_Scratch.path("prog"));
    }

    // Both return what came on standard output.
    std::string start(const wchar_t* dir = L"", const wchar_t* file = L"", int level = 1,
                      bool toStdout = false, const wchar_t* name = L"t")
    {
        testing::internal::CaptureStdout();
        m_Log.get()->initialize(name, dir, file, level, toStdout);
        return testing::internal::GetCapturedStdout();
    }
    std::string traced(int level, const char* format, const char* text = "")
    {
        testing::internal::CaptureStdout();
        m_Log.get()->trace(level, format, text);
        return testing::internal::GetCapturedStdout();
    }

    int level()
    {
        int level = 0;
        m_Log.get()->GetTraceLevels(level);
        return level;
    }
    std::string conf() { return m_Scratch.read("inst/ConfigFiles/t.conf"); }
    void setConf(const std::string& text)
    {
        m_Scratch.makeDirectory("inst/ConfigFiles");
        m_Scratch.write("inst/ConfigFiles/t.conf", text);
    }
    std::string takeLog(const char* file = kFile)
    {
        const std::string text = timeless(m_Scratch.read(file));
        std::filesystem::remove(m_Scratch.path(file));
        return text;
    }

    Scratch m_Scratch;
    LogPtr m_Log{true};
};

TEST_F(TraceLog, NewLogWritesNothingAndThenDefaults)
{
    EXPECT_EQ(level(), 12345);
    EXPECT_EQ(traced(-5, ""), "");
    EXPECT_EQ(level(), 1);
    EXPECT_EQ(traced(-5, "lost"), "");
    EXPECT_FALSE(m_Log.get()->isInitialized());

    m_Log = LogPtr(true);
    EXPECT_EQ(start(L"", L"", 7), "");
    EXPECT_TRUE(m_Log.get()->isInitialized());
    for (const std::string& line :
         {"TRACEDIR\"=\"" + m_Scratch.path("inst/Logs/\"\n"),
          std::string("\"TRACEFILE\"=\"t.log\"\n"), std::string("\"TRACELEVEL\"=dword:00000007\n"),
          std::string("\"TRACESTDOUT\"=dword:00000000\n")})
        EXPECT_NE(conf().find(line), std::string::npos) << line;
    EXPECT_EQ(level(), 0);
    EXPECT_EQ(traced(7, "hello %s", "world"), "");
    EXPECT_EQ(level(), 7);
    EXPECT_EQ(takeLog(), kTime + "hello world\n");
}

TEST_F(TraceLog, SettingsOfFileArgumentsAndSibling)
{
    const struct {
        const char* conf;
        const char* sibling;
        const char* dir; // under the scratch directory
        const wchar_t* file;
        bool toStdout;
        int levelAtStart;
        int levelInUse;
        const char* log;
        bool copied;
        const char* confThen;
    } cases[] = {
        {"TRACELEVEL\"=dword:5", "", "", L"", false, 1, 5, kFile, false, "FILE\"=\"t.log"},
        {"TRACELEVEL\"=dword:0", "=3", "", L"", false, 3, 0, kFile, false, "OUT\"=dword:00000000"},
        {"TRACELEVEL\"=dword:ffffffff", "", "", L"", false, 1, -1, kFile, false, ""},
        {"TRACEFILE\"=\"f\"", "", "", L"", true, 0, 9, "inst/Logs/f", true, "OUT\"=dword:00000001"},
        {"TRACESTDOUT\"=dword:1", "", "", L"x", false, 0, 9, kFile, true, "EL\"=dword:00000009"},
        {"TRACESTDOUT\"=dword:0", "=-7", "x", L"", true, 0, 9, kFile, true, ""},
        {"OTHER\"=\"kept\"", "", "", L"", false, 0, 9, kFile, false, "OTHER\"=\"kept"},
        {"TRACESTDOUT\"=dword:1", "", "inst", L"g", false, 1, 9, "inst/g", false,
         "OUT\"=dword:00000000"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.conf);
        setConf(std::string("[DEBUG_TRACE_INFO]\n\"") + c.conf + "\n");
        m_Scratch.write("prog/Orvane/Stellgard/sgdlog.conf",
                        std::string("Default.DiagnosticLevel") + c.sibling);
        m_Log = LogPtr(true);
        start(*c.dir ? m_Scratch.wide(c.dir).c_str() : L"", c.file, 9, c.toStdout);
        EXPECT_EQ(level(), c.levelAtStart);
        const std::string copy = traced(c.levelInUse, "in") + traced(c.levelInUse + 1, "out");
        EXPECT_EQ(level(), c.levelInUse);
        EXPECT_EQ(takeLog(c.log), kTime + "in\n");
        EXPECT_EQ(timeless(copy, "t:"), c.copied ? "t:" + kTime + "in\n" : "");
        EXPECT_NE(conf().find(c.confThen), std::string::npos) << conf();
    }
    // In use it is the store that counts, and not the file.
    setConf("[DEBUG_TRACE_INFO]\n\"TRACELEVEL\"=dword:6\n");
    traced(1, "");
    EXPECT_EQ(level(), 9);
    EXPECT_EQ(m_Log.get()->updateConfigFile(L"d", L"f", 4), 0);
    traced(1, "");
    EXPECT_EQ(level(), 4);
}

TEST_F(TraceLog, TraceFileThatCannotBeOpened)
{
    m_Scratch.makeDirectory(kFile); // a directory in its place
    const std::string dir = m_Scratch.path("inst/Logs/");
    EXPECT_EQ(start(L"", L"", 1, true), "[CCmnTraceLog] Error: Tracefile [" + dir +
                                            "/t.log] initialization failed.[t.log][" + dir + "]\n");
    EXPECT_FALSE(m_Log.get()->isInitialized());
    EXPECT_EQ(traced(1, "lost"), "");

    std::filesystem::remove(m_Scratch.path(kFile));
    EXPECT_EQ(start(L"", L"", 1, true), "");
    EXPECT_NE(start(m_Scratch.wide().c_str(), L"inst", 1, true), "");
    EXPECT_TRUE(m_Log.get()->isInitialized()); // for good
    EXPECT_EQ(timeless(traced(1, "copy"), "t:"), "t:" + kTime + "copy\n");

    // The locale cannot express this name, so there is no configuration file either.
    EXPECT_EQ(start(m_Scratch.wide("inst").c_str(), L"g", 1, true, L"\xE4"), "");
    EXPECT_EQ(traced(1, "x").substr(0, 3), "\xC3\xA4:");
}

TEST_F(TraceLog, ConfigurationThatCannotBeUsed)
{
    for (const char* text : {"[unclosed\n", "\"before\"=\"a section\"\n", "[]\n", "\xFF\xFE[\n"}) {
        setConf(text);
        m_Log = LogPtr(true);
        EXPECT_EQ(start(), "") << text;
        EXPECT_TRUE(m_Log.get()->isInitialized());
    }
    std::filesystem::remove_all(m_Scratch.path("inst/ConfigFiles"));
    m_Scratch.write("inst/ConfigFiles", "a file");
    EXPECT_NE(m_Log.get()->updateConfigFile(L"d", L"f", 3), 0);
    traced(1, "");
    EXPECT_EQ(level(), 3); // the store has it all the same
}

TEST_F(TraceLog, Texts)
{
    start();
    for (const std::size_t length : {1U, 1022U, 1023U, 1024U, 2047U, 100000U}) {
        const std::string text(length - 1, 'x');
        m_Log.get()->trace(1, "%s%d", text.c_str(), 9);
        EXPECT_EQ(takeLog(), kTime + text + "9\n") << length;
    }
    traced(1, "a\n%s\n", "b%n");
    EXPECT_EQ(takeLog(), kTime + "a\nb%n\n\n");
    m_Log.get()->trace(1, "cut%cbehind", 0);
    EXPECT_EQ(takeLog(), kTime + "cut\n");
    m_Log.get()->trace(1, "name %ls", L"\x4E2D"); // which the C locale cannot express
    EXPECT_EQ(takeLog(), kTime + "name %ls\n");

    traced(1, nullptr);
    traced(1, "");
    EXPECT_FALSE(std::filesystem::exists(m_Scratch.path(kFile)));
    m_Scratch.write(kFile, "kept");
    traced(1, "behind");
    EXPECT_EQ(m_Scratch.read(kFile).substr(0, 4), "kept");
}

TEST_F(TraceLog, LinesOfSeveralWritersDoNotMix)
{
    std::vector<LogPtr> logs(4);
    for (LogPtr& log : logs) {
        log = LogPtr(true);
        log.get()->initialize(L"t", L"", L"", 1, false);
    }
    const std::string text(20000, 'x'); // above the buffer of a stream
    std::vector<std::thread> writers;
    for (const LogPtr& log : logs)
        writers.emplace_back([&log, &text] {
            for (int i = 0; i < 50; ++i)
                log.get()->trace(1, "%s", text.c_str());
        });
    for (std::thread& writer : writers)
        writer.join();
    std::istringstream lines(m_Scratch.read(kFile));
    int whole = 0;
    for (std::string line; std::getline(lines, line);)
        whole += timeless(line) == kTime + text;
    EXPECT_EQ(whole, 4 * 50);
}

TEST(File, IsClosedOnExec)
{
    const Scratch scratch;
    const CmnFile file = openFile(scratch.path("f"), "a+");
    ASSERT_TRUE(file);
    EXPECT_EQ(fcntl(fileno(file.get()), F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
}

} // namespace
