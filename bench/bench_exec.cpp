// SPDX-License-Identifier: LicenseRef-Tarnix
// Compares the command runner with a raw loop of system calls and with the runners of other
// libraries: the start and end of a command, from several kinds of callers and as another user, and
// the output of a child that prints lines.
#include "cmncommand.h"
#include "cmnexecpipewindows.h"
#include "cmnsystemfiles.h"

#include <Poco/Pipe.h>
#include <Poco/PipeStream.h>
#include <Poco/Process.h>
#include <Poco/Version.h>
#include <benchmark/benchmark.h>
#include <boost/process.hpp>
#include <boost/version.hpp>
#include <gio/gio.h>

#include <fcntl.h>
#include <gnu/libc-version.h>
#include <poll.h>
#include <sched.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

extern char** environ;

namespace
{

using Lines = std::vector<std::string>;
using Words = std::vector<std::string>;

// Runs a command that ends with status 0, waits for its end and returns its lines. Single quotes
// are the only quoting that a word may need.
using Runner = void (*)(const Words& words, Lines& lines);

void require(bool good, const char* what)
{
    if (!good) {
        throw std::runtime_error(what);
    }
}

std::string commandText(const Words& words)
{
    std::string text;
    for (const std::string& word : words) {
        text += (text.empty() ? "'" : " '") + word + "'";
    }
    return text;
}

std::vector<char*> pointersTo(const Words& words)
{
    std::vector<char*> pointers;
    for (const std::string& word : words) {
        pointers.push_back(const_cast<char*>(word.c_str()));
    }
    pointers.push_back(nullptr);
    return pointers;
}

// Appends the lines of a piece of output. `rest` keeps the text after the last newline.
void split(std::string_view piece, std::string& rest, Lines& lines)
{
    const char* data = piece.data();
    const char* const end = data + piece.size();
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

void split(std::string_view text, Lines& lines)
{
    std::string rest;
    split(text, rest, lines);
    if (!rest.empty()) {
        lines.push_back(rest);
    }
}

// ---- Runners -----------------------------------------------------------------------------------

void runTarnix(const Words& words, Lines& lines)
{
    tarnix_cmn_4_4::CCmnExecPipeWindows runner;
    require(runner.Exec(commandText(words), lines, "", 60, "", "", "") == 0, "Exec");
}

void runCommand(const Words& words, Lines& lines)
{
    tarnix_cmn_4_4::SCmnCommandOutcome outcome = tarnix_cmn_4_4::CCmnCommand(words).run();
    require(outcome.ok(), "CCmnCommand");
    lines = std::move(outcome.lines);
}

// Keeps the first and the last line only; the others are counted.
void runCallback(const Words& words, Lines& lines)
{
    std::size_t count = 0;
    std::string last;
    tarnix_cmn_4_4::CCmnCommand command(words);
    command.setLineCallback([&](std::string_view line, tarnix_cmn_4_4::CCmnCommand::Stream) {
        if (count++ == 0) {
            lines.emplace_back(line);
        }
        last = line;
        return true;
    });
    require(command.run().ok(), "CCmnCommand");
    lines.resize(count, last);
}

// What a careful programmer writes by hand: one pipe, reads of 64 KiB, a pidfd for the end.
void runRaw(const Words& words, Lines& lines)
{
    int ends[2];
    require(::pipe2(ends, O_CLOEXEC) == 0, "pipe2");
    const std::vector<char*> arguments = pointersTo(words);
    posix_spawn_file_actions_t actions;
    ::posix_spawn_file_actions_init(&actions);
    ::posix_spawn_file_actions_adddup2(&actions, ends[1], 1);
    ::posix_spawn_file_actions_adddup2(&actions, ends[1], 2);
    pid_t pid = -1;
    require(::posix_spawn(&pid, arguments[0], &actions, nullptr, arguments.data(), environ) == 0,
            "posix_spawn");
    ::posix_spawn_file_actions_destroy(&actions);
    ::close(ends[1]);
    const int pidfd = static_cast<int>(::syscall(SYS_pidfd_open, pid, 0));
    static thread_local std::vector<char> buffer(64 * 1024);
    std::string rest;
    for (;;) {
        const ssize_t got = ::read(ends[0], buffer.data(), buffer.size());
        if (got <= 0) {
            break;
        }
        split({buffer.data(), static_cast<std::size_t>(got)}, rest, lines);
    }
    pollfd end{pidfd, POLLIN, 0};
    ::poll(&end, 1, -1);
    int status = -1;
    ::waitpid(pid, &status, 0);
    ::close(pidfd);
    ::close(ends[0]);
    require(status == 0, "raw");
}

void runPopen(const Words& words, Lines& lines)
{
    FILE* output = ::popen(("exec " + commandText(words)).c_str(), "re");
    require(output != nullptr, "popen");
    char* line = nullptr;
    std::size_t capacity = 0;
    for (ssize_t size = 0; (size = ::getline(&line, &capacity, output)) > 0;) {
        lines.emplace_back(line, static_cast<std::size_t>(size) - (line[size - 1] == '\n' ? 1 : 0));
    }
    std::free(line); // allocated by getline
    require(::pclose(output) == 0, "pclose");
}

// GLib takes its fast path when it leaves the descriptors to their close-on-exec flags.
void runGlib(const Words& words, Lines& lines)
{
    std::vector<char*> arguments = pointersTo(words);
    char* output = nullptr;
    int status = -1;
    const gboolean started =
        g_spawn_sync(nullptr, arguments.data(), nullptr, G_SPAWN_LEAVE_DESCRIPTORS_OPEN, nullptr,
                     nullptr, &output, nullptr, &status, nullptr);
    const std::unique_ptr<char, decltype(&g_free)> owner(output, g_free);
    require(started && status == 0, "g_spawn_sync");
    split(output, lines);
}

void runBoost(const Words& words, Lines& lines)
{
    namespace process = boost::process;
    process::ipstream output;
    process::child child(process::exe = words.front(),
                         process::args = Words(words.begin() + 1, words.end()),
                         (process::std_out & process::std_err) > output);
    for (std::string line; std::getline(output, line);) {
        lines.push_back(line);
    }
    child.wait();
    require(child.exit_code() == 0, "boost::process::child");
}

void runPoco(const Words& words, Lines& lines)
{
    Poco::Pipe pipe;
    const Poco::ProcessHandle child = Poco::Process::launch(
        words.front(), Words(words.begin() + 1, words.end()), nullptr, &pipe, &pipe);
    Poco::PipeInputStream output(pipe);
    for (std::string line; std::getline(output, line);) {
        lines.push_back(line);
    }
    require(child.wait() == 0, "Poco::Process::launch");
}

// "tarnix" is the runner, "command" CCmnCommand, and "callback" the same with a callback for lines.
const struct Peer {
    const char* name;
    Runner run;
} kPeers[] = {{"tarnix", runTarnix}, {"raw", runRaw},          {"command", runCommand},
              {"popen", runPopen},   {"glib", runGlib},        {"boost", runBoost},
              {"poco", runPoco},     {"callback", runCallback}};

constexpr std::size_t kOwnAndRaw = 2;    // the first two
constexpr std::size_t kWithBestPeer = 3; // the first three

// ---- Callers -----------------------------------------------------------------------------------

// Resident memory of this process. It is kept for the next benchmark that wants the same size;
// otherwise it goes back to the system at once.
class Ballast
{
public:
    static void resize(std::int64_t mebibytes)
    {
        static Ballast ballast;
        ballast.set(static_cast<std::size_t>(mebibytes) << 20);
    }

private:
    static constexpr std::size_t kCapacity = std::size_t{4096} << 20;

    Ballast()
        : m_Memory(::mmap(nullptr, kCapacity, PROT_READ | PROT_WRITE,
                          MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0))
    {
        require(m_Memory != MAP_FAILED, "mmap");
    }

    void set(std::size_t size)
    {
        char* const memory = static_cast<char*>(m_Memory);
        if (size > m_Size) {
            std::memset(memory + m_Size, 'b', size - m_Size);
        } else if (size < m_Size) {
            ::madvise(memory + size, m_Size - size, MADV_DONTNEED);
        }
        m_Size = size;
    }

    void* m_Memory;
    std::size_t m_Size = 0;
};

constexpr std::int64_t kSmallCaller = 10; // MiB

// Raises the limit of descriptors as far as this process may.
class DescriptorLimit
{
public:
    explicit DescriptorLimit(rlim_t wanted)
    {
        ::getrlimit(RLIMIT_NOFILE, &m_Former);
        m_Now = {wanted, std::max(wanted, m_Former.rlim_max)};
        if (::setrlimit(RLIMIT_NOFILE, &m_Now) != 0) {
            m_Now = {m_Former.rlim_max, m_Former.rlim_max};
            ::setrlimit(RLIMIT_NOFILE, &m_Now);
        }
    }
    ~DescriptorLimit() { ::setrlimit(RLIMIT_NOFILE, &m_Former); }
    DescriptorLimit(const DescriptorLimit&) = delete;
    DescriptorLimit& operator=(const DescriptorLimit&) = delete;

    rlim_t now() const { return m_Now.rlim_cur; }

private:
    rlimit m_Former{};
    rlimit m_Now{};
};

// ---- Another user ------------------------------------------------------------------------------

constexpr char kPassword[] = "right word";

// Account files and PAM rules with three more accounts, mounted over those of the machine in a
// namespace of this process. Only root can do that, and not in every container.
class Accounts
{
public:
    // Permanently, for the whole process. Returns whether that was possible.
    static bool enter()
    {
        static const Accounts accounts;
        return accounts.m_Entered;
    }
    ~Accounts()
    {
        std::error_code ignored;
        std::filesystem::remove_all(m_Folder, ignored);
    }
    Accounts(const Accounts&) = delete;
    Accounts& operator=(const Accounts&) = delete;

private:
    Accounts()
    {
        if (::geteuid() != 0 || ::unshare(CLONE_NEWNS) != 0 ||
            ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) {
            return;
        }
        char folder[] = "/tmp/bench_exec_XXXXXX";
        require(::mkdtemp(folder) != nullptr, "mkdtemp");
        m_Folder = folder;
        const std::string hash =
            ":$5$tarnix$cQImmrpkcGIAYlwjZgLFvo8sX1wbcmWRDjd4Vil0crB:19000::::::\n";
        std::filesystem::copy("/etc/pam.d", m_Folder / "pam.d");
        std::ofstream(m_Folder / "pam.d/tarnix")
            << "auth sufficient pam_succeed_if.so quiet user in trusted:added\n"
               "auth required pam_unix.so nodelay\naccount required pam_unix.so\n";
        extend("passwd", "checked:x:61971:61971::/:/bin/sh\ntrusted:x:61972:61972::/:/bin/sh\n"
                         "added:x:61973:61973::/:/bin/sh\n");
        extend("shadow", "checked" + hash + "trusted" + hash + "added" + hash);
        m_Entered = replace("pam.d") && replace("passwd") && replace("shadow");
        std::ofstream(m_Folder / "rights")
            << "checked SeBatchLogonRight\ntrusted SeBatchLogonRight\n";
        tarnix_cmn_4_4::setRightsFile((m_Folder / "rights").c_str());
    }

    void extend(const char* name, const std::string& lines) const
    {
        std::filesystem::copy(std::filesystem::path("/etc") / name, m_Folder / name);
        std::ofstream(m_Folder / name, std::ios::app) << lines;
    }

    bool replace(const char* name) const
    {
        return ::mount((m_Folder / name).c_str(), (std::filesystem::path("/etc") / name).c_str(),
                       nullptr, MS_BIND, nullptr) == 0;
    }

    std::filesystem::path m_Folder;
    bool m_Entered = false;
};

void runTarnixAs(const char* user, const Words& words, Lines& lines)
{
    tarnix_cmn_4_4::CCmnExecPipeWindows runner;
    if (runner.Exec(commandText(words), lines, "", 60, "/", user, kPassword) != 0) {
        const std::wstring why = runner.getLastError().getDescription();
        throw std::runtime_error(std::string(why.begin(), why.end())); // ASCII
    }
}

void runBy(Words switcher, const Words& words, Lines& lines)
{
    switcher.insert(switcher.end(), words.begin(), words.end());
    runRaw(switcher, lines);
}

// The programs ask root for no password. The library always has one checked, twice: "tarnix" by a
// rule that lets the account in, so that it does the same work as they do; "tarnix_hash" by the
// hash (SHA-256). "tarnix_added" is as "tarnix", and adds and revokes the right, which syncs the
// rights file twice.
const struct Switcher {
    const char* name;
    const char* program; // null: none is needed
    Runner run;
} kSwitchers[] = {
    {"tarnix", nullptr,
     [](const Words& words, Lines& lines) { runTarnixAs("trusted", words, lines); }},
    {"tarnix_hash", nullptr,
     [](const Words& words, Lines& lines) { runTarnixAs("checked", words, lines); }},
    {"tarnix_added", nullptr,
     [](const Words& words, Lines& lines) { runTarnixAs("added", words, lines); }},
    {"plain", nullptr, runTarnix}, // as the caller
    {"setpriv", "/usr/bin/setpriv",
     [](const Words& words, Lines& lines) {
         runBy({"/usr/bin/setpriv", "--reuid=61972", "--regid=61972", "--init-groups"}, words,
               lines);
     }},
    {"runuser", "/usr/sbin/runuser",
     [](const Words& words, Lines& lines) {
         runBy({"/usr/sbin/runuser", "-u", "trusted", "--"}, words, lines);
     }},
    {"su", "/usr/bin/su",
     [](const Words& words, Lines& lines) {
         runRaw({"/usr/bin/su", "-c", commandText(words), "trusted"}, lines);
     }},
    {"sudo", "/usr/bin/sudo",
     [](const Words& words, Lines& lines) {
         runBy({"/usr/bin/sudo", "-n", "-u", "trusted"}, words, lines);
     }},
};

// ---- Rows --------------------------------------------------------------------------------------

const Words kShortCommand = {"/bin/true"};

void measureStarts(benchmark::State& state, Runner run, std::int64_t mebibytes)
{
    Ballast::resize(mebibytes);
    for (auto _ : state) {
        Lines lines;
        run(kShortCommand, lines);
        benchmark::DoNotOptimize(lines.data());
    }
    state.SetItemsProcessed(state.iterations());
}

void start(benchmark::State& state, Runner run)
{
    measureStarts(state, run, kSmallCaller);
}

void startFrom1GiB(benchmark::State& state, Runner run)
{
    measureStarts(state, run, 1024);
}

void startFromCaller(benchmark::State& state, Runner run)
{
    measureStarts(state, run, state.range(0));
}

void startWithManyDescriptors(benchmark::State& state, Runner run)
{
    const DescriptorLimit limit(100000);
    state.SetLabel("limit " + std::to_string(limit.now()));
    measureStarts(state, run, kSmallCaller);
}

void startInThreads(benchmark::State& state, Runner run)
{
    constexpr int startsOfThread = 4;
    Ballast::resize(kSmallCaller);
    const auto work = [run] {
        for (int i = 0; i < startsOfThread; ++i) {
            Lines lines;
            run(kShortCommand, lines);
        }
    };
    for (auto _ : state) {
        std::vector<std::thread> threads;
        for (std::int64_t i = 0; i < state.range(0); ++i) {
            threads.emplace_back(work);
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
    }
    state.SetItemsProcessed(state.iterations() * state.range(0) * startsOfThread);
}

// The size includes the newline.
void measureLines(benchmark::State& state, Runner run, std::int64_t count, std::int64_t lineSize)
{
    Ballast::resize(kSmallCaller);
    const Words command = {TARNIX_LINE_PRINTER, std::to_string(count), std::to_string(lineSize)};
    const std::string line(static_cast<std::size_t>(lineSize) - 1, 'l');
    for (auto _ : state) {
        Lines lines;
        run(command, lines);
        if (lines.size() != static_cast<std::size_t>(count) || lines.front() != line ||
            lines.back() != line) {
            state.SkipWithError("the lines are wrong");
            return;
        }
    }
    state.SetItemsProcessed(state.iterations() * count);
    state.SetBytesProcessed(state.iterations() * count * lineSize);
}

constexpr std::int64_t kMillion = 1000000;
constexpr std::int64_t kUsualLine = 40; // bytes

void aMillionLines(benchmark::State& state, Runner run)
{
    measureLines(state, run, kMillion, kUsualLine);
}

void someLines(benchmark::State& state, Runner run)
{
    measureLines(state, run, state.range(0), kUsualLine);
}

// At most a million lines, and at most as many bytes as a million usual lines.
void linesOfSize(benchmark::State& state, Runner run)
{
    const std::int64_t size = state.range(0);
    measureLines(state, run, std::min(kMillion, kMillion * kUsualLine / size), size);
}

void linesOf1GiB(benchmark::State& state, Runner run)
{
    constexpr std::int64_t size = 200;
    measureLines(state, run, (std::int64_t{1} << 30) / size, size);
}

const struct Row {
    const char* name;
    void (*measure)(benchmark::State& state, Runner run);
    std::size_t peerCount;
    std::vector<std::int64_t> arguments;
} kRows[] = {
    {"start", start, std::size(kPeers), {}},
    {"start_1gib", startFrom1GiB, kOwnAndRaw, {}},
    {"start_fds", startWithManyDescriptors, kOwnAndRaw, {}},
    {"start_caller", startFromCaller, kOwnAndRaw, {10, 1024, 4096}},
    {"threads", startInThreads, kOwnAndRaw, {1, 10, 100}},
    {"lines", aMillionLines, std::size(kPeers), {}},
    {"lines_size", linesOfSize, kWithBestPeer, {1, 10, 200, 8000}},
    {"lines_1gib", linesOf1GiB, kWithBestPeer, {}},
    {"lines_growth", someLines, kOwnAndRaw, {10, 1000, 100000}},
};

void registerRows()
{
    for (const Row& row : kRows) {
        for (std::size_t i = 0; i < row.peerCount; ++i) {
            const std::string name = std::string(row.name) + ":" + kPeers[i].name;
            auto* benchmark =
                benchmark::RegisterBenchmark(name.c_str(), row.measure, kPeers[i].run);
            benchmark->UseRealTime()->Unit(benchmark::kMicrosecond);
            for (const std::int64_t argument : row.arguments) {
                benchmark->Arg(argument);
            }
        }
    }
}

void registerSwitchers()
{
    if (!Accounts::enter()) {
        std::fputs("start_user is left out: it needs root and a private mount namespace\n", stderr);
        return;
    }
    for (const Switcher& switcher : kSwitchers) {
        if (switcher.program == nullptr || ::access(switcher.program, X_OK) == 0) {
            const std::string name = std::string("start_user:") + switcher.name;
            benchmark::RegisterBenchmark(name.c_str(), start, switcher.run)
                ->UseRealTime()
                ->Unit(benchmark::kMicrosecond);
        }
    }
}

void stateVersions()
{
    const auto number = [](int version, int minor, int patch) {
        return std::to_string(version) + "." + std::to_string(minor) + "." + std::to_string(patch);
    };
    benchmark::AddCustomContext("peer glibc (popen)", gnu_get_libc_version());
    benchmark::AddCustomContext("peer GLib", number(static_cast<int>(glib_major_version),
                                                    static_cast<int>(glib_minor_version),
                                                    static_cast<int>(glib_micro_version)));
    benchmark::AddCustomContext(
        "peer Boost",
        number(BOOST_VERSION / 100000, BOOST_VERSION / 100 % 1000, BOOST_VERSION % 100));
    benchmark::AddCustomContext("peer POCO", number(POCO_VERSION >> 24, POCO_VERSION >> 16 & 0xFF,
                                                    POCO_VERSION >> 8 & 0xFF));
}

const bool kRegistered = (registerRows(), registerSwitchers(), stateVersions(), true);

} // namespace

BENCHMARK_MAIN();
