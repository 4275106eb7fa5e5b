// SPDX-License-Identifier: LicenseRef-Tarnix
// Compares a trace line that is written with bare calls of the system and of the C library, and one
// that is dropped with another log and with the lookup of a level in a store.
#include "cmnsmartptr.h"
#include "cmntracelog.h"
#include "support/scratchinstallation.h"

#include <ace/Configuration.h>
#include <ace/Version.h>
#include <benchmark/benchmark.h>
#include <spdlog/sinks/null_sink.h>
#include <spdlog/spdlog.h>

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <regex>
#include <string>

using namespace tarnix_cmn_4_4;

namespace
{

const bool kAddedContext = [] {
    benchmark::AddCustomContext("peer spdlog", std::to_string(SPDLOG_VER_MAJOR) + "." +
                                                   std::to_string(SPDLOG_VER_MINOR) + "." +
                                                   std::to_string(SPDLOG_VER_PATCH));
    benchmark::AddCustomContext("peer ACE", ACE_VERSION);
    return true;
}();

class Log
{
public:
    explicit Log(const ScratchInstallation& installation)
    {
        m_Log.get()->initialize(L"t", installation.widePath().c_str(), L"trace", 1, false);
    }
    CCmnTraceLog* operator->() { return m_Log.get(); }

private:
    CCmnSmartPtr<CCmnTraceLog, CCmnDefaultAllocator<CCmnTraceLog>> m_Log{true};
};

constexpr const char* kName = "pipe";

// The time in the form that the log writes.
void printTime(char (&text)[64])
{
    timespec now;
    ::clock_gettime(CLOCK_REALTIME, &now);
    tm parts;
    ::localtime_r(&now.tv_sec, &parts);
    const std::size_t length = std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &parts);
    std::snprintf(text + length, sizeof text - length, ".%06ld", now.tv_nsec / 1000);
}

void writeRaw(const std::string& path, int number)
{
    char time[64];
    printTime(time);
    char line[1200];
    const int length = std::snprintf(line, sizeof line, "%s Reading from %s failed with %d\n", time,
                                     kName, number);
    const int file = ::open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0666);
    if (file < 0) {
        return;
    }
    if (::write(file, line, static_cast<std::size_t>(length)) != length) {
        std::abort();
    }
    ::close(file);
}

void writeStdio(const std::string& path, int number)
{
    char time[64];
    printTime(time);
    std::FILE* const file = std::fopen(path.c_str(), "ae");
    if (file == nullptr) {
        return;
    }
    std::fprintf(file, "%s Reading from %s failed with %d\n", time, kName, number);
    std::fclose(file);
}

// Runs `write` on an existing file, and checks once that the line is as expected.
template <typename Write>
void lines(benchmark::State& state, const ScratchInstallation& installation, const Write& write)
{
    static const std::regex form("\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d\\.\\d{6} "
                                 "Reading from pipe failed with -7");
    write(-7);
    std::string line;
    if (!std::getline(std::ifstream(installation.path("trace")), line) ||
        !std::regex_match(line, form)) {
        state.SkipWithError("the line is wrong");
        return;
    }
    int number = 0;
    for (auto _ : state) {
        write(++number);
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()));
}

void line(benchmark::State& state)
{
    const ScratchInstallation installation;
    Log log(installation);
    lines(state, installation,
          [&](int number) { log->trace(1, "Reading from %s failed with %d", kName, number); });
}

template <void write(const std::string&, int)>
void lineOf(benchmark::State& state)
{
    const ScratchInstallation installation;
    const std::string path = installation.path("trace");
    lines(state, installation, [&](int number) { write(path, number); });
}

void dropped(benchmark::State& state)
{
    const ScratchInstallation installation;
    Log log(installation);
    int number = 0;
    for (auto _ : state) {
        log->trace(2, "Reading from %s failed with %d", kName, ++number);
    }
    if (std::filesystem::file_size(installation.path("trace")) != 0) {
        state.SkipWithError("the line was not dropped");
    }
}

void droppedBySpdlog(benchmark::State& state)
{
    spdlog::logger log("t", std::make_shared<spdlog::sinks::null_sink_st>());
    log.set_level(spdlog::level::warn);
    int number = 0;
    for (auto _ : state) {
        log.info("Reading from {} failed with {}", kName, ++number);
    }
}

// Looks up the level for each line.
void droppedByAce(benchmark::State& state)
{
    ACE_Configuration_Heap heap;
    ACE_Configuration_Section_Key section;
    if (heap.open() != 0 || heap.open_section(heap.root_section(), "TRACE", true, section) != 0 ||
        heap.set_integer_value(section, "LEVEL", 1) != 0) {
        state.SkipWithError("cannot open the store");
        return;
    }
    for (auto _ : state) {
        unsigned int level = 0;
        if (heap.open_section(heap.root_section(), "TRACE", true, section) == 0) {
            heap.get_integer_value(section, "LEVEL", level);
        }
        benchmark::DoNotOptimize(level);
    }
}

BENCHMARK(line)->Name("trace_line:tarnix")->UseRealTime();
BENCHMARK(lineOf<writeRaw>)->Name("trace_line:raw")->UseRealTime();
BENCHMARK(lineOf<writeStdio>)->Name("trace_line:stdio")->UseRealTime();
BENCHMARK(dropped)->Name("trace_dropped:tarnix");
BENCHMARK(droppedBySpdlog)->Name("trace_dropped:spdlog");
BENCHMARK(droppedByAce)->Name("trace_dropped:ace");

} // namespace

BENCHMARK_MAIN();
