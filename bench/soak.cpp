// SPDX-License-Identifier: LicenseRef-Tarnix
// soak SECONDS: uses the library in many ways on eight threads, and checks each result. After a
// warm-up, memory, descriptors and children must not grow.
#include "cmnconfiguration.h"
#include "cmnmessage.h"
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

// A failure ends the process at once, so that its files can be inspected.
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
    require(text == (L"gr\u00fcn: " + std::to_wstring(round)).c_str(), "wrong text of a message");

    CCmnSaxParseHandler handler;
    CCmnSaxParser parser(&handler);
    parser.parse("<a><b c='" + std::to_string(round) + "'>&lt;</b></a>");
    require(!handler.hasLastError(), "XML was not parsed");
}

void useSystem(const std::wstring& directory, const std::wstring& name, int round)
{
    CCmnConfiguration writer(directory.c_str(), name.c_str(), false);
    ACE_Configuration_Section_Key section;
    const auto number = static_cast<unsigned int>(round);
    require(writer.openSection(L"a\\b", section, 1) == 0, "cannot create a section");
    require(writer.setIntegerValue(L"number", number) == 0, "cannot set a value");
    require(writer.exportConfig() == 0, "cannot export settings");
    CCmnConfiguration reader(directory.c_str(), name.c_str(), true);
    unsigned int got = 0;
    require(reader.getIntegerValue(L"a\\b", L"number", got) == 0 && got == number, "wrong setting");

    const std::string last = std::to_string(1 + round % 1000), status = std::to_string(round % 3);
    const Outcome outcome = run("/bin/sh -c 'seq " + last + "; exit " + status + "'");
    require(std::to_string(outcome.lines.size()) == last && outcome.lines.back() == last,
            "wrong output");
    require(outcome.status == round % 3, "wrong exit status");
}

// Uses the library on eight threads. Returns the resident memory at the end, in KiB.
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
            if (round % 8 == thread) {
                useSystem(directory, name, round);
            }
        }
    };
    std::thread users([&use] { runOnThreads(8, use); });
    std::this_thread::sleep_for(std::chrono::seconds(seconds));
    long total = 0, resident = 0;
    std::ifstream("/proc/self/statm") >> total >> resident;
    stop = true;
    users.join();
    require(processState() == before, "a descriptor or a child is left");
    return resident * (::sysconf(_SC_PAGESIZE) / 1024);
}

} // namespace

int main(int argc, char** argv)
{
    const int seconds = argc > 1 ? std::atoi(argv[1]) : 120;
    const ScratchInstallation scratch;
    scratch.makeDirectory("ConfigFiles");
    const CCmnSaxLibrary library; // initialises Xerces-C once, not with each parser
    const long early = useFor(seconds / 4 + 1, scratch.widePath()); // the warm-up
    const long late = useFor(seconds - seconds / 4, scratch.widePath());
    // The heaps of eight threads still vary a little.
    require(late <= early + 4096, "resident memory grows");
    const Lines lines = scratch.readLines("shared.log");
    for (const std::string& line : lines) {
        const std::size_t at = line.find(" line ");
        require(at != std::string::npos && line.find(" soak") < at, "a trace line is torn");
    }
    require(lines.size() == g_lines, "a trace line is missing");
    std::printf("soak: %ld results checked, %zu trace lines, resident %ld then %ld KiB\n",
                g_checks.load(), lines.size(), early, late);
}
