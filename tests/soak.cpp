// A long mixed use on eight threads: soak SECONDS. Every result is checked; resident memory,
// descriptors and children must stay what they were once everything has been used for a while.
#include "cmnconfiguration.h"
#include "cmnmessage.h"
#include "cmnmsgdgst5.h"
#include "cmnsaxhandler.h"
#include "cmnsaxparser.h"
#include "cmntracelog.h"
#include "support/command.h"
#include "support/process.h"
#include "support/repeat.h"
#include "support/scratchinstallation.h"

#include <atomic>

using namespace tarnix_cmn_4_4;

namespace
{

std::atomic<long> g_checks{0};
std::atomic<std::size_t> g_lines{0};

// A failure ends everything, and leaves its files.
void require(bool holds, const char* what)
{
    ++g_checks;
    if (!holds) {
        std::fprintf(stderr, "soak: %s\n", what);
        std::_Exit(1);
    }
}

void useTexts(int round)
{
    const icu::Formattable arguments[] = {icu::Formattable(std::int32_t{round}),
                                          icu::Formattable(icu::UnicodeString(u"gr\u00fcn"))};
    CCmnIcuMessage sent("SOAK_KEY", arguments, 2, tarnix_eseverity{2}, "file", round);
    const tstr text = CCmnIcuMessage(sent.serialize()).formatMessage(L"{1}: {0,number,#}");
    require(text == (L"gr\u00fcn: " + std::to_wstring(round)).c_str(), "a message's text");

    CCmnMessageDigest5 digest;
    digest.Update(reinterpret_cast<const unsigned char*>("abc"), 3);
    digest.Finalize();
    require(digest.GetAnsiMessageDigest() == std::string("900150983cd24fb0d6963f7d28e17f72"),
            "a digest");

    CCmnSaxParseHandler handler;
    CCmnSaxParser parser(&handler);
    parser.parse("<a><b c='" + std::to_string(round) + "'>&lt;</b></a>");
    require(!handler.hasLastError(), "an XML text");
}

void useSystem(const std::wstring& directory, const std::wstring& name, int round)
{
    CCmnConfiguration writer(directory.c_str(), name.c_str(), false);
    ACE_Configuration_Section_Key section;
    const auto number = static_cast<unsigned int>(round);
    require(writer.openSection(L"a\\b", section, 1) == 0, "a section");
    require(writer.setIntegerValue(L"number", number) == 0, "a new value");
    require(writer.exportConfig() == 0, "an export");
    CCmnConfiguration reader(directory.c_str(), name.c_str(), true);
    unsigned int got = 0;
    require(reader.getIntegerValue(L"a\\b", L"number", got) == 0 && got == number, "a setting");

    const std::string last = std::to_string(1 + round % 1000), status = std::to_string(round % 3);
    const Outcome outcome = run("/bin/sh -c 'seq " + last + "; exit " + status + "'");
    require(std::to_string(outcome.lines.size()) == last && outcome.lines.back() == last, "lines");
    require(outcome.status == round % 3, "the status of a command");
}

// Eight threads for a while. Returns the memory in use at its end, in KiB.
long useFor(int seconds, const std::wstring& directory)
{
    const auto before = processState();
    std::atomic<bool> stop{false};
    const auto use = [&directory, &stop](int thread) {
        const std::wstring name = L"soak" + std::to_wstring(thread);
        const CCmnSmartPtr<CCmnTraceLog, CCmnDefaultAllocator<CCmnTraceLog>> log(true);
        log.get()->initialize(name.c_str(), directory.c_str(), L"shared.log", 1, false);
        for (int round = thread; !stop; ++round, ++g_lines) {
            useTexts(round);
            log.get()->trace(1, "%ls line %d", name.c_str(), round);
            if (round % 8 == thread)
                useSystem(directory, name, round);
        }
    };
    std::thread users([&use] { runOnThreads(8, use); });
    std::this_thread::sleep_for(std::chrono::seconds(seconds));
    long total = 0, resident = 0;
    std::ifstream("/proc/self/statm") >> total >> resident;
    stop = true;
    users.join();
    require(processState() == before, "no descriptor and no child is left");
    return resident * (sysconf(_SC_PAGESIZE) / 1024);
}

} // namespace

int main(int argc, char** argv)
{
    const int seconds = argc > 1 ? std::atoi(argv[1]) : 120;
    const ScratchInstallation scratch;
    scratch.makeDirectory("ConfigFiles");
    const CCmnSaxLibrary library; // Xerces-C starts once, not with every parser
    const long early =
        useFor(seconds / 4 + 1, scratch.widePath()); // everything has been used by then
    const long late = useFor(seconds - seconds / 4, scratch.widePath());
    // What the heaps of eight threads may still move.
    require(late <= early + 4096, "resident memory is flat");
    const Lines lines = scratch.readLines("shared.log");
    for (const std::string& line : lines) {
        const std::size_t at = line.find(" line ");
        require(at != std::string::npos && line.find(" soak") < at, "a trace line is whole");
    }
    require(lines.size() == g_lines, "every trace line is there");
    std::printf("soak: %ld results checked, %zu trace lines, resident %ld then %ld KiB\n",
                g_checks.load(), lines.size(), early, late);
}
