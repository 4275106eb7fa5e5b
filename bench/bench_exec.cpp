// The command runner beside a raw loop of system calls in the same program: starts a second, with
// little and with much memory resident, and the output of a child that prints a million lines.
#include "cmnexecpipewindows.h"

#include <benchmark/benchmark.h>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <stdexcept>
#include <string>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

extern char** environ;

namespace
{

using Lines = std::vector<std::string>;

constexpr long lineCount = 1000000;
constexpr long lineSize = 40;

void split(std::string& rest, const char* data, std::size_t size, Lines& lines)
{
    const char* const end = data + size;
    while (data != end) {
        const void* found = std::memchr(data, '\n', static_cast<std::size_t>(end - data));
        if (found == nullptr) {
            rest.append(data, end);
            return;
        }
        const char* newline = static_cast<const char*>(found);
        if (rest.empty()) {
            lines.emplace_back(data, newline);
        } else {
            lines.push_back(rest.append(data, newline));
            rest.clear();
        }
        data = newline + 1;
    }
}

// What a careful programmer writes by hand: spawn, one pipe, 64 KiB reads, the end by a pidfd.
void rawRun(const std::vector<std::string>& words, Lines& lines)
{
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) {
        throw std::runtime_error("pipe2");
    }
    std::vector<char*> arguments;
    for (const std::string& word : words) {
        arguments.push_back(const_cast<char*>(word.c_str()));
    }
    arguments.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, ends[1], 1);
    posix_spawn_file_actions_adddup2(&actions, ends[1], 2);
    pid_t pid = -1;
    if (posix_spawn(&pid, arguments[0], &actions, nullptr, arguments.data(), environ) != 0) {
        throw std::runtime_error("posix_spawn");
    }
    posix_spawn_file_actions_destroy(&actions);
    close(ends[1]);
    const int pidfd = static_cast<int>(syscall(SYS_pidfd_open, pid, 0));
    static std::vector<char> buffer(64 * 1024);
    std::string rest;
    for (;;) {
        const ssize_t got = read(ends[0], buffer.data(), buffer.size());
        if (got <= 0) {
            break;
        }
        split(rest, buffer.data(), static_cast<std::size_t>(got), lines);
    }
    pollfd end{pidfd, POLLIN, 0};
    poll(&end, 1, -1);
    waitpid(pid, nullptr, 0);
    close(pidfd);
    close(ends[0]);
}

void libraryRun(const std::string& command, Lines& lines)
{
    tarnix_cmn_4_4::CCmnExecPipeWindows runner;
    if (runner.Exec(command, lines, "", 60, "", "", "") != 0) {
        throw std::runtime_error("Exec");
    }
}

// Memory that is really there: every page is written.
class Ballast
{
public:
    explicit Ballast(std::int64_t mebibytes)
        : m_Memory(static_cast<std::size_t>(mebibytes) * 1024 * 1024, 'b')
    {
        benchmark::DoNotOptimize(m_Memory.data());
    }

private:
    std::vector<char> m_Memory;
};

void rawStart(benchmark::State& state)
{
    const Ballast ballast(state.range(0));
    for (auto _ : state) {
        Lines lines;
        rawRun({"/bin/true"}, lines);
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(rawStart)->ArgName("MiB")->Arg(10)->Arg(1024)->UseRealTime();

void libraryStart(benchmark::State& state)
{
    const Ballast ballast(state.range(0));
    for (auto _ : state) {
        Lines lines;
        libraryRun("/bin/true", lines);
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(libraryStart)->ArgName("MiB")->Arg(10)->Arg(1024)->UseRealTime();

void checkLines(benchmark::State& state, const Lines& lines)
{
    if (lines.size() != static_cast<std::size_t>(lineCount) ||
        lines.back().size() != static_cast<std::size_t>(lineSize - 1)) {
        state.SkipWithError("wrong lines");
    }
}

void rawLines(benchmark::State& state)
{
    for (auto _ : state) {
        Lines lines;
        rawRun({TARNIX_LINE_PRINTER, std::to_string(lineCount)}, lines);
        checkLines(state, lines);
    }
    state.SetItemsProcessed(state.iterations() * lineCount);
    state.SetBytesProcessed(state.iterations() * lineCount * lineSize);
}
BENCHMARK(rawLines)->UseRealTime()->Unit(benchmark::kMillisecond);

void libraryLines(benchmark::State& state)
{
    const std::string command = "'" TARNIX_LINE_PRINTER "' " + std::to_string(lineCount);
    for (auto _ : state) {
        Lines lines;
        libraryRun(command, lines);
        checkLines(state, lines);
    }
    state.SetItemsProcessed(state.iterations() * lineCount);
    state.SetBytesProcessed(state.iterations() * lineCount * lineSize);
}
BENCHMARK(libraryLines)->UseRealTime()->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
