// A long mixed use on eight threads: soak SECONDS. Every result is checked; resident memory,
// descriptors and children must stay what they were once everything has been used for a while.
#include "cmnconfiguration.h"
#include "cmnexecpipewindows.h"
#include "cmnmessage.h"
#include "cmnsaxhandler.h"
#include "cmnsaxparser.h"
#include "cmnsmartptr.h"
#include "cmnstringtool.h"
#include "cmntracelog.h"
#include "processstate.h"
#include "scratch.h"

#include <atomic>
#include <chrono>

using namespace tarnix_cmn_4_4;
using LogPtr = CCmnSmartPtr<CCmnTraceLog, CCmnDefaultAllocator<CCmnTraceLog>>;

namespace
{

constexpr int threadCount = 8;
constexpr long allowedGrowth = 4096; // KiB: what the heaps of eight threads may still move

std::atomic<bool> g_stop{false}, g_failed{false};
std::atomic<long> g_checks{0}, g_lines{0};

// A failure ends everything.
void require(bool holds, const char* what)
{
    ++g_checks;
    if (!holds) {
        std::printf("soak: %s\n", what);
        g_stop = g_failed = true;
    }
}

void runCommands(int round)
{
    CCmnExecPipeWindows runner;
    std::vector<std::string> output;
    const std::string last = std::to_string(round % 1000), status = std::to_string(round % 3);
    const int result = runner.Exec("/bin/sh -c 'seq " + last + "; exit " + status + "'", output, "",
                                   60, "", "", "");
    int seen = -1;
    require(std::to_string(output.size()) == last, "lines of a command");
    require(output.empty() || output.back() == last, "the last line");
    require(runner.getExitStatus(seen) && seen == round % 3, "the status of a command");
    require(result == 0 || (result == ECmnExecPipe::CMD_FAILED && seen != 0), "a run's result");
}

void stopCommands()
{
    CCmnExecPipeWindows runner;
    std::vector<std::string> output;
    std::thread stopper([&] { runner.Abort(); });
    const int result = runner.Exec("/usr/bin/seq 3000", output, "", 60, "", "", "");
    stopper.join();
    require(result == 0 || result == ECmnExecPipe::CMD_FAILED, "the result of an aborted run");
}

void passMessages(int round)
{
    const icu::Formattable arguments[] = {icu::Formattable(std::int32_t{round}),
                                          icu::Formattable(icu::UnicodeString(u"gr\u00fcn"))};
    CCmnIcuMessage sent("SOAK_KEY", arguments, 2, tarnix_eseverity{2}, "file", round);
    CCmnIcuMessage got(sent.serialize());
    require(got.getMessageId() == "SOAK_KEY" && got.getSeverity() == 2, "a message's header");
    const tstr text = got.formatMessage(L"{1}: {0,number,#}");
    require(text == (L"gr\u00fcn: " + std::to_wstring(round)).c_str(), "a message's text");
}

struct Texts : CCmnSaxParseHandler {
    using CCmnSaxParseHandler::m_Text;
};

void parseXml(int round)
{
    const std::string number = std::to_string(round);
    const std::string word = CCmnStringTool::convertToXmlSpecialCharacters("<" + number + "&>");
    Texts handler;
    CCmnSaxParser parser;
    parser.setHandler(&handler);
    parser.parse("<a><b c='" + number + "'>" + word + "</b></a>");
    require(!handler.hasLastError() && handler.m_Text == "<" + number + "&>", "an XML text");
}

void configure(const std::wstring& directory, const std::wstring& name, unsigned int round)
{
    CCmnConfiguration writer(directory.c_str(), name.c_str(), false);
    ACE_Configuration_Section_Key section;
    require(writer.openSection(L"a\\b", section, 1) == 0, "a section");
    writer.setStringValue(L"text", name.c_str());
    writer.setIntegerValue(L"number", round);
    require(writer.exportConfig() == 0, "an export");
    CCmnConfiguration reader(directory.c_str(), name.c_str(), true);
    unsigned int number = 0;
    require(reader.getIntegerValue(L"a\\b", L"number", number) == 0 && number == round,
            "a value of the store");
}

void use(const std::wstring& directory, int thread)
{
    const std::wstring name = L"soak" + std::to_wstring(thread);
    const LogPtr log(true);
    log.get()->initialize(name.c_str(), directory.c_str(), L"shared.log", 1, false);
    for (int round = thread; !g_stop; ++round) {
        passMessages(round);
        parseXml(round);
        log.get()->trace(1, "%ls line %d", name.c_str(), round);
        ++g_lines;
        if (round % 8 == thread) {
            configure(directory, name, static_cast<unsigned int>(round));
            runCommands(round);
        }
        if (round % 64 == thread)
            stopCommands();
    }
}

long residentKiB()
{
    long total = 0, resident = 0;
    std::ifstream("/proc/self/statm") >> total >> resident;
    return resident * (sysconf(_SC_PAGESIZE) / 1024);
}

// Eight threads for a while. Returns the memory in use at its end.
long useFor(std::chrono::milliseconds time, const std::wstring& directory)
{
    std::thread users([&] { onThreads(threadCount, [&](int thread) { use(directory, thread); }); });
    for (; time.count() > 0 && !g_stop; time -= std::chrono::milliseconds(100))
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    const long resident = residentKiB();
    g_stop = true;
    users.join();
    g_stop = g_failed.load();
    return resident;
}

void checkLines(const std::string& path)
{
    long lines = 0;
    std::ifstream in(path);
    for (std::string line; std::getline(in, line); ++lines)
        require(line.find(" soak") != std::string::npos && line.find(" line ") != std::string::npos,
                "a trace line is whole");
    require(lines == g_lines, "every trace line is there");
}

} // namespace

int main(int argc, char** argv)
{
    const std::chrono::milliseconds time(1000 * (argc > 1 ? std::atol(argv[1]) : 120));
    const Scratch scratch;
    scratch.setRegistry(scratch.path(), "");
    scratch.makeDirectory("ConfigFiles");
    scratch.makeDirectory("Logs");
    const ProcessState before = ProcessState::now();
    const CCmnSaxLibrary library; // Xerces-C starts once, not with every parser
    const long early = useFor(time / 4, scratch.wide()); // everything has been used by then
    require(ProcessState::now() == before, "no descriptor and no child is left");
    const long late = useFor(time - time / 4, scratch.wide());
    require(ProcessState::now() == before, "no descriptor and no child is left");
    require(late <= early + allowedGrowth, "resident memory is flat");
    checkLines(scratch.path("shared.log"));
    std::printf("soak: %ld results checked, %ld trace lines, resident %ld then %ld KiB\n",
                g_checks.load(), g_lines.load(), early, late);
    return g_failed ? 1 : 0;
}
