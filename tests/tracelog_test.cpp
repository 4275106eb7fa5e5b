// The trace log: its states, where its settings come from, and what stands in its file.
#include "cmnsmartptr.h"
#include "cmntracelog.h"
#include "platform_file.h"
#include "scratch.h"

#include <fcntl.h>

#include <functional>
#include <regex>

using namespace tarnix_cmn_4_4;

namespace
{

using LogPtr = CCmnSmartPtr<CCmnTraceLog, CCmnDefaultAllocator<CCmnTraceLog>>;

const char* const kConf = "ConfigFiles/t.conf";

class TraceLog : public ::testing::Test
{
protected:
    TraceLog()
    {
        m_Scratch.makeDirectory("Orvane/Stellgard");
        m_Scratch.makeDirectory("x");
        m_Scratch.makeDirectory("ConfigFiles");
        m_Scratch.setRegistry(m_Scratch.path(), m_Scratch.path());
    }

    // What a call printed, and then what it wrote, with "@" for each time.
    template <typename Call>
    std::string outputOf(const Call& call)
    {
        testing::internal::CaptureStdout();
        call(m_Log.get());
        const std::string text = testing::internal::GetCapturedStdout() + m_Scratch.read(m_File);
        std::remove(m_Scratch.path(m_File).c_str());
        static const std::regex time("\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d\\.\\d{6} ");
        return std::regex_replace(text, time, "@");
    }
    std::string start(const std::wstring& dir = L"", const wchar_t* file = L"", int level = 1,
                      bool toStdout = false, const wchar_t* name = L"t")
    {
        return outputOf(
            [&](CCmnTraceLog* log) { log->initialize(name, dir.c_str(), file, level, toStdout); });
    }
    template <typename Argument = const char*>
    std::string traced(int level, const char* format, Argument argument = {})
    {
        return outputOf([&](CCmnTraceLog* log) { log->trace(level, format, argument); });
    }
    int level()
    {
        int level = 0;
        m_Log.get()->GetTraceLevels(level);
        return level;
    }

    Scratch m_Scratch;
    std::string m_File = "Logs/t.log";
    LogPtr m_Log{true};
};

TEST_F(TraceLog, NewLogWritesNothingAndThenDefaults)
{
    EXPECT_EQ(level(), 12345);
    EXPECT_EQ(traced(-5, "lost"), "");
    EXPECT_EQ(level(), 1);
    m_Log = LogPtr(true);
    EXPECT_EQ(start(L"", L"", 7), "");
    const std::string line = "\"TRACEDIR\"=\"" + m_Scratch.path("Logs/\"\n");
    EXPECT_NE(m_Scratch.read(kConf).find(line), std::string::npos);
    EXPECT_EQ(level(), 0);
    EXPECT_EQ(traced(7, "hello %s", "world"), "@hello world\n");
    EXPECT_EQ(level(), 7);
}

TEST_F(TraceLog, SettingsOfFileArgumentsAndSibling)
{
    const char* const usual = "Logs/t.log";
    const struct {
        const char *conf, *sibling, *dir; // the directory is under the scratch one
        const wchar_t* file;
        bool toStdout, isCopied;
        int levelAtStart, level;
        const char *log, *confThen;
    } cases[] = {
        {"LEVEL\"=dword:5", "=0", "", L"", false, false, 1, 5, usual, "FILE\"=\"t.log"},
        {"LEVEL\"=dword:0", "=3", "", L"", false, false, 3, 0, usual, "OUT\"=dword:00000000"},
        {"LEVEL\"=dword:ffffffff", "", "", L"", false, false, 1, -1, usual, ""},
        {"FILE\"=\"f\"", "", "", L"", true, true, 0, 9, "Logs/f", "OUT\"=dword:00000001"},
        {"STDOUT\"=dword:1", "", "", L"x", false, true, 0, 9, usual, "EL\"=dword:00000009"},
        {"STDOUT\"=dword:0", "=-7", "y", L"", true, true, 0, 9, usual, ""},
        {"OTHER\"=\"kept\"", "", "", L"", false, false, 0, 9, usual, "OTHER\"=\"kept"},
        {"STDOUT\"=dword:1", "", "x", L"g", false, false, 1, 9, "x/g", "OUT\"=dword:00000000"}};
    for (const auto& c : cases) {
        m_Scratch.write(kConf, std::string("[DEBUG_TRACE_INFO]\n\"TRACE") + c.conf + "\n");
        m_Scratch.write("Orvane/Stellgard/sgdlog.conf",
                        std::string("Default.DiagnosticLevel") + c.sibling);
        m_Log = LogPtr(true);
        m_File = c.log;
        start(*c.dir ? m_Scratch.wide(c.dir) : L"", c.file, 9, c.toStdout);
        EXPECT_EQ(level(), c.levelAtStart) << c.conf;
        EXPECT_EQ(traced(c.level, "in"), c.isCopied ? "t:@in\n@in\n" : "@in\n") << c.conf;
        EXPECT_EQ(traced(c.level + 1, "out"), "") << c.conf;
        EXPECT_NE(m_Scratch.read(kConf).find(c.confThen), std::string::npos) << c.conf;
    }
    // In use it is the store that counts, and not the file.
    m_Scratch.write(kConf, "[DEBUG_TRACE_INFO]\n\"TRACELEVEL\"=dword:6\n");
    EXPECT_EQ(traced(9, "in"), "@in\n");
    std::filesystem::remove_all(m_Scratch.path("ConfigFiles"));
    m_Scratch.write("ConfigFiles", "a file");
    EXPECT_NE(m_Log.get()->updateConfigFile(L"d", L"f", 4), 0);
    EXPECT_EQ(traced(5, "out"), "");
    EXPECT_EQ(level(), 4);
}

TEST_F(TraceLog, EachChangeOfTheStoreCountsForTheNextLine)
{
    // What a log that is not initialised looks for it makes: the export completes it key by key.
    EXPECT_EQ(traced(9, "out"), "");
    start(L"", L"", 5, true);
    EXPECT_NE(m_Scratch.read(kConf).find("OUT\"=dword:00000001"), std::string::npos);

    const tstr logs = m_Scratch.wide("Logs").c_str();
    tstr dir, file;
    int given = 3;
    const auto conf = [&](int level) {
        m_Scratch.write(kConf, "[DEBUG_TRACE_INFO]\n\"TRACELEVEL\"=dword:" + std::to_string(level) +
                                   "\n\"TRACESTDOUT\"=dword:0\n");
    };
    const struct {
        std::function<void(CCmnTraceLog*)> change;
        int atOnce, level;
    } cases[] = {{[](auto* log) { log->UpdateTraceLevelFromConfigFile(); }, 5, 5},
                 {[&](auto* log) { log->updateConfigFile(logs, L"t.log", 3); }, 5, 3},
                 {[&](auto* log) { log->loadFromConfigFile(dir, file, given); }, 3, 4},
                 {[&](auto* log) { log->initTraceSettings(dir, file, given = 6); }, 4, 6},
                 {[](auto* log) { log->initialize(L"t", L"", L"", 9, false); }, 1, 4},
                 {[](auto* log) { log->initialize(L"other", L"", L"", 9, false); }, 1, 4}, // merges
                 {[](auto* log) { log->UpdateTraceLevelFromConfigFile(); }, 4, 4}};
    EXPECT_EQ(traced(6, "out"), "");
    for (const auto& c : cases) {
        conf(4);
        outputOf(c.change);
        const auto number = &c - cases;
        EXPECT_EQ(level(), c.atOnce) << number;
        EXPECT_EQ(traced(c.level + 1, "out"), "") << number;
        EXPECT_EQ(level(), c.level) << number;
        EXPECT_NE(traced(c.level, "in"), "") << number;
    }
}

TEST_F(TraceLog, FilesThatCannotBeUsed)
{
    m_Scratch.makeDirectory("Logs/t.log/x");
    const std::string dir = m_Scratch.path("Logs/");
    EXPECT_EQ(start(L"", L"", 1, true), "[CCmnTraceLog] Error: Tracefile [" + dir +
                                            "/t.log] initialization failed.[t.log][" + dir + "]\n");
    EXPECT_FALSE(m_Log.get()->isInitialized());
    EXPECT_EQ(traced(1, "lost"), "");
    std::filesystem::remove_all(dir);
    EXPECT_EQ(start(L"", L"", 1, true), "");
    EXPECT_NE(start(m_Scratch.wide(), L"Orvane", 1, true), "");
    EXPECT_TRUE(m_Log.get()->isInitialized()); // for good
    EXPECT_EQ(traced(1, "copy"), "t:@copy\n");
    // The locale cannot express this name, so there is no configuration file either.
    EXPECT_EQ(start(m_Scratch.wide("Logs"), L"t.log", 1, true, L"\xE4"), "");
    EXPECT_EQ(traced(1, "x"), "\xC3\xA4:@x\n@x\n");

    for (const char* text : {"[unclosed\n", "\"before\"=\"a section\"\n", "[]\n", "\xFF\xFE[\n"}) {
        m_Scratch.write(kConf, text);
        m_Log = LogPtr(true);
        EXPECT_EQ(start(), "") << text;
        EXPECT_TRUE(m_Log.get()->isInitialized()) << text;
    }
}

TEST_F(TraceLog, Texts)
{
    const TxFile file = TxOpenFile(m_Scratch.path("f").c_str(), "a+");
    EXPECT_EQ(fcntl(fileno(file.get()), F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
    start();
    for (const std::size_t length : {1U, 1022U, 1023U, 1024U, 2047U, 100000U}) {
        const std::string text(length - 1, 'x');
        EXPECT_EQ(traced(1, "%s9", text.c_str()), "@" + text + "9\n") << length;
    }
    EXPECT_EQ(traced(1, nullptr) + traced(1, ""), "");
    EXPECT_EQ(traced(1, "a\n%s\n", "b%n"), "@a\nb%n\n\n");
    EXPECT_EQ(traced(1, "cut%cbehind", 0), "@cut\n");
    EXPECT_EQ(traced(1, "name %ls", L"\x4E2D"), "@name %ls\n"); // not in the C locale
}

TEST_F(TraceLog, LinesOfSeveralWritersDoNotMix)
{
    const std::string text(20000, 'x'); // above the buffer of a stream
    const std::string all = outputOf([&](CCmnTraceLog*) {
        onThreads(4, [&](int) {
            const LogPtr log(true);
            log.get()->initialize(L"t", L"", L"", 1, false);
            for (int i = 0; i < 50; ++i)
                log.get()->trace(1, "%s", text.c_str());
        });
    });
    EXPECT_EQ(all, repeated("@" + text + "\n", 4 * 50));
}

} // namespace
