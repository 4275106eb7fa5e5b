// A long mixed use on eight threads: soak SECONDS. Every result is checked; resident memory,
// descriptors and children must stay what they were once everything has been used for a while.
#include "cmnconfiguration.h"
#include "cmnexecpipewindows.h"
#include "cmnmessage.h"
#include "cmnmsgdgst5.h"
#include "cmnsaxhandler.h"
#include "cmnsaxparser.h"
#include "cmnsmartptr.h"
#include "cmnstringtool.h"
#include "cmntracelog.h"
#include "processstate.h"
#include "scratch.h"

#include <atomic>
#include <chrono>
#include <cstdio>
#include <functional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

using namespace tarnix_cmn_4_4;
using Clock = std::chrono::steady_clock;

namespace
{

constexpr int threadCount = 8;
constexpr long allowedGrowth = 4096; // KiB: what the heaps of eight threads may still move

std::atomic<bool> g_stop{false};
std::atomic<long> g_checks{0};

void require(bool holds, const char* what)
{
    ++g_checks;
    if (!holds)
        throw std::runtime_error(what);
}

void runCommands(int round)
{
    CCmnExecPipeWindows runner;
    std::vector<std::string> output;
    const int status = round % 3;
    const int result = runner.Exec("/bin/sh -c 'seq " + std::to_string(round % 1000) + "; exit " +
                                       std::to_string(status) + "'",
                                   output, "", 60, "", "", "");
    int seen = -1;
    require(output.size() == static_cast<std::size_t>(round % 1000), "lines of a command");
    require(output.empty() || output.back() == std::to_string(round % 1000), "the last line");
    require(runner.getExitStatus(seen) && seen == status, "the status of a command");
    require(result == 0 || (result == ECmnExecPipe::CMD_FAILED && status != 0), "a run's result");
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

class Texts : public CCmnSaxParseHandler
{
public:
    const std::string& text() const { return m_Text; }
};

void parseXml(int round)
{
    const std::string number = std::to_string(round);
    const std::string word = CCmnStringTool::convertToXmlSpecialCharacters("<" + number + "&>");
    Texts handler;
    CCmnSaxParser parser;
    parser.setHandler(&handler);
    parser.parse("<a><b c='" + number + "'>" + word + "</b></a>");
    require(!handler.hasLastError() && handler.text() == "<" + number + "&>", "an XML text");
}

void makeDigests(int round)
{
    std::string data(static_cast<std::size_t>(round % 5000), 'd');
    data += std::to_string(round);
    const auto* bytes = reinterpret_cast<const unsigned char*>(data.data());
    const auto size = static_cast<std::uint32_t>(data.size());
    const CCmnMessageDigest5 whole(bytes, size);
    CCmnMessageDigest5 pieces;
    pieces.Update(bytes, size / 3);
    pieces.Update(bytes + size / 3, size - size / 3);
    pieces.Finalize();
    require(std::string(whole.GetAnsiMessageDigest()) == pieces.GetAnsiMessageDigest(), "a digest");
    const std::string hex = CCmnStringTool::binary2str(bytes, static_cast<int>(size));
    require(hex.size() == 2 * data.size(), "hex text");
}

// What a thread keeps for itself: its log and its file of settings.
class Own
{
public:
    Own(const Scratch& scratch, int thread)
        : m_Name(L"soak" + std::to_wstring(thread)), m_Directory(scratch.wide()), m_Log(true)
    {
        m_Log.get()->initialize(m_Name.c_str(), m_Directory.c_str(), L"shared.log", 1, false);
    }

    void trace(int round)
    {
        m_Log.get()->trace(1, "%ls line %d", m_Name.c_str(), round);
        ++m_Lines;
    }

    void configure(int round)
    {
        const std::wstring file = m_Name + L".settings";
        CCmnConfiguration writer(m_Directory.c_str(), file.c_str(), false);
        ACE_Configuration_Section_Key section;
        require(writer.openSection(L"a\\b", section, 1) == 0, "a section");
        writer.setStringValue(L"text", tstr(m_Name.c_str()));
        writer.setIntegerValue(L"number", static_cast<unsigned int>(round));
        require(writer.exportConfig() == 0, "an export");
        CCmnConfiguration reader(m_Directory.c_str(), file.c_str(), true);
        unsigned int number = 0;
        require(reader.getIntegerValue(L"a\\b", L"number", number) == 0 &&
                    number == static_cast<unsigned int>(round),
                "a value of the store");
    }

    long lines() const { return m_Lines; }

private:
    std::wstring m_Name;
    std::wstring m_Directory;
    CCmnSmartPtr<CCmnTraceLog, CCmnDefaultAllocator<CCmnTraceLog>> m_Log;
    long m_Lines = 0;
};

void use(Own& own, int thread)
{
    for (int round = thread; !g_stop; ++round) {
        passMessages(round);
        parseXml(round);
        makeDigests(round);
        own.trace(round);
        if (round % 8 == thread) {
            own.configure(round);
            runCommands(round);
        }
        if (round % 64 == thread)
            stopCommands();
    }
}

long residentKiB()
{
    std::ifstream file("/proc/self/statm");
    long total = 0;
    long resident = 0;
    file >> total >> resident;
    return resident * (sysconf(_SC_PAGESIZE) / 1024);
}

// Descriptors and children come and go while the threads run; their greatest numbers must not grow.
struct Peak {
    long resident = 0;
    ProcessState state;

    void take()
    {
        resident = std::max(resident, residentKiB());
        try {
            const ProcessState now = ProcessState::now();
            state.descriptors = std::max(state.descriptors, now.descriptors);
            state.children = std::max(state.children, now.children);
        } catch (const std::filesystem::filesystem_error&) {
            // A thread's entry went away while it was looked at.
        }
    }
};

Peak watch(Clock::duration time)
{
    Peak peak;
    for (const auto end = Clock::now() + time; Clock::now() < end && !g_stop;) {
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        peak.take();
    }
    return peak;
}

long countLines(const std::string& path)
{
    long lines = 0;
    std::ifstream in(path);
    for (std::string line; std::getline(in, line); ++lines)
        require(line.find(" soak") != std::string::npos && line.find(" line ") != std::string::npos,
                "a trace line is whole");
    return lines;
}

int soak(std::chrono::seconds time)
{
    const Scratch scratch;
    scratch.setRegistry(scratch.path(), "");
    for (const char* directory : {"ConfigFiles", "Logs"})
        scratch.makeDirectory(directory);
    const ProcessState before = ProcessState::now();
    const CCmnSaxLibrary library; // Xerces-C starts once, not with every parser
    std::vector<std::unique_ptr<Own>> owned;
    for (int i = 0; i < threadCount; ++i)
        owned.push_back(std::make_unique<Own>(scratch, i));
    std::vector<std::thread> threads;
    std::atomic<int> failures{0};
    for (int i = 0; i < threadCount; ++i)
        threads.emplace_back([&, i] {
            try {
                use(*owned[static_cast<std::size_t>(i)], i);
            } catch (const std::exception& problem) {
                std::printf("soak: %s\n", problem.what());
                ++failures;
                g_stop = true;
            }
        });
    const Peak early = watch(time / 4); // everything has been used by then
    const Peak late = watch(time - time / 4);
    g_stop = true;
    for (std::thread& thread : threads)
        thread.join();
    long written = 0;
    for (const auto& own : owned)
        written += own->lines();
    require(countLines(scratch.path("shared.log")) == written, "every trace line is there");
    std::printf("soak: %ld results checked, %ld trace lines, resident %ld then %ld KiB, "
                "descriptors at most %ld then %ld, children %ld then %ld\n",
                g_checks.load(), written, early.resident, late.resident, early.state.descriptors,
                late.state.descriptors, early.state.children, late.state.children);
    require(late.state.descriptors <= early.state.descriptors + 8 * threadCount &&
                late.state.children <= early.state.children + threadCount,
            "descriptors and children do not grow");
    require(ProcessState::now() == before, "no descriptor and no child is left");
    require(late.resident <= early.resident + allowedGrowth, "resident memory is flat");
    return failures == 0 ? 0 : 1;
}

} // namespace

int main(int argc, char** argv)
{
    try {
        return soak(std::chrono::seconds(argc > 1 ? std::atol(argv[1]) : 120));
    } catch (const std::exception& problem) {
        std::printf("soak: %s\n", problem.what());
        return 1;
    }
}
