// A long mixed use on eight threads: soak SECONDS. Every result is checked; resident memory,
// descriptors and children must stay what they were once everything has been used for a while.
#include "cmnconfiguration.h"
#include "cmnexecpipewindows.h"
#include "cmnmessage.h"
#include "cmnmsgdgst5.h"
#include "cmnsaxhandler.h"
#include "cmnsaxparser.h"
#include "cmnsmartptr.h"
#include "cmntracelog.h"
#include "processstate.h"
#include "scratch.h"

#include <atomic>
#include <chrono>

using namespace tarnix_cmn_4_4;

namespace
{

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

void runCommand(int round)
{
    const std::string last = std::to_string(round % 1000), status = std::to_string(round % 3);
    const Outcome outcome = run("/bin/sh -c 'seq " + last + "; exit " + status + "'");
    require(std::to_string(outcome.lines.size()) == last, "lines of a command");
    require(outcome.lines.empty() || outcome.lines.back() == last, "the last line");
    require(outcome.status == round % 3, "the status of a command");
}

void passMessage(int round)
{
    const icu::Formattable arguments[] = {icu::Formattable(std::int32_t{round}),
                                          icu::Formattable(icu::UnicodeString(u"gr\u00fcn"))};
    CCmnIcuMessage sent("SOAK_KEY", arguments, 2, tarnix_eseverity{2}, "file", round);
    CCmnIcuMessage got(sent.serialize());
    const tstr text = got.formatMessage(L"{1}: {0,number,#}");
    require(text == (L"gr\u00fcn: " + std::to_wstring(round)).c_str(), "a message's text");
}

void digest(int round)
{
    const std::string text = std::string(static_cast<std::size_t>(round % 200), 'x') + "abc";
    const auto* const bytes = reinterpret_cast<const unsigned char*>(text.data());
    CCmnMessageDigest5 digest;
    digest.Update(bytes, static_cast<std::uint32_t>(text.size() - 3));
    digest.Initialize();
    digest.Update(bytes + text.size() - 3, 3);
    digest.Finalize();
    require(digest.GetAnsiMessageDigest() == std::string("900150983cd24fb0d6963f7d28e17f72"),
            "a digest");
}

void parseXml(int round)
{
    const std::string number = std::to_string(round);
    CCmnSaxParseHandler handler;
    CCmnSaxParser parser(&handler);
    parser.parse("<a><b c='" + number + "'>&lt;" + number + "</b></a>");
    require(!handler.hasLastError(), "an XML text");
}

void configure(const std::wstring& directory, const std::wstring& name, unsigned int round)
{
    CCmnConfiguration writer(directory.c_str(), name.c_str(), false);
    ACE_Configuration_Section_Key section;
    unsigned int number = 0;
    require(writer.openSection(L"a\\b", section, 1) == 0, "a section");
    require(writer.setIntegerValue(L"number", round) == 0, "a new value");
    require(writer.exportConfig() == 0, "an export");
    CCmnConfiguration reader(directory.c_str(), name.c_str(), true);
    require(reader.getIntegerValue(L"a\\b", L"number", number) == 0, "a value of the store");
    require(number == round, "what the store was given");
}

void use(const std::wstring& directory, int thread)
{
    const std::wstring name = L"soak" + std::to_wstring(thread);
    const CCmnSmartPtr<CCmnTraceLog, CCmnDefaultAllocator<CCmnTraceLog>> log(true);
    log.get()->initialize(name.c_str(), directory.c_str(), L"shared.log", 1, false);
    for (int round = thread; !g_stop; ++round, ++g_lines) {
        passMessage(round);
        parseXml(round);
        digest(round);
        log.get()->trace(1, "%ls line %d", name.c_str(), round);
        if (round % 8 == thread) {
            configure(directory, name, static_cast<unsigned int>(round));
            runCommand(round);
        }
    }
}

// Eight threads for a while. Returns the memory in use at its end, in KiB.
long useFor(std::chrono::milliseconds time, const std::wstring& directory)
{
    const auto before = processState();
    std::thread users([&] { onThreads(8, [&](int thread) { use(directory, thread); }); });
    for (; time.count() > 0 && !g_stop; time -= std::chrono::milliseconds(100))
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    long total = 0, resident = 0;
    std::ifstream("/proc/self/statm") >> total >> resident;
    g_stop = true;
    users.join();
    g_stop = g_failed.load();
    require(processState() == before, "no descriptor and no child is left");
    return resident * (sysconf(_SC_PAGESIZE) / 1024);
}

} // namespace

int main(int argc, char** argv)
{
    const std::chrono::milliseconds time(1000 * (argc > 1 ? std::atol(argv[1]) : 120));
    const Scratch scratch;
    scratch.setRegistry(scratch.path(), "");
    scratch.makeDirectory("ConfigFiles");
    const CCmnSaxLibrary library; // Xerces-C starts once, not with every parser
    const long early = useFor(time / 4, scratch.wide()); // everything has been used by then
    const long late = useFor(time - time / 4, scratch.wide());
    require(late <= early + allowedGrowth, "resident memory is flat");
    long lines = 0;
    std::ifstream in(scratch.path("shared.log"));
    for (std::string line; std::getline(in, line); ++lines) {
        const std::size_t at = line.find(" line ");
        require(at != std::string::npos && line.find(" soak") < at, "a trace line is whole");
    }
    require(lines == g_lines, "every trace line is there");
    std::printf("soak: %ld results checked, %ld trace lines, resident %ld then %ld KiB\n",
                g_checks.load(), lines, early, late);
    return g_failed ? 1 : 0;
}
