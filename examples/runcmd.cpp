// SPDX-License-Identifier: LicenseRef-Tarnix
// Runs a command, passes its output on while it runs, and prints how it ended.
#include "catalogfactory.h"
#include "cmncommand.h"
#include "cmnconfiguration.h"
#include "cmnpathtool.h"
#include "cmnstringtool.h"
#include "cmnsystemfiles.h"
#include "cmntracelog.h"

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <clocale>
#include <condition_variable>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iomanip>
#include <iostream>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

using namespace tarnix_cmn_4_4;

namespace
{

constexpr char kUsage[] =
    "usage: runcmd [OPTION...] -- COMMAND [ARGUMENT...]\n"
    "  --dir D            run the command in the directory D\n"
    "  --env NAME=VALUE   set a variable of its environment; may be repeated\n"
    "  --unset NAME       remove a variable; may be repeated\n"
    "  --clear-env        start with an empty environment\n"
    "  --user-env         start with HOME, USER, LOGNAME, SHELL and PATH of the user\n"
    "  --stdin FILE       its standard input; - for that of runcmd (default: empty)\n"
    "  --input TEXT       its standard input is the text\n"
    "  --stderr HOW       its standard error: together with its output (default), apart, discard\n"
    "  --timeout S        stop it after S seconds without output (default 60; 0: never)\n"
    "  --limit S          stop it S seconds after its start (default 0: never)\n"
    "  --max-output N     stop it after N bytes of output (default 0: never)\n"
    "  --user U           run the command as the local user U\n"
    "  --password-file F  the file whose first line is that user's password\n"
    "  --rights FILE      keep the accounts' rights in FILE\n"
    "  --registry FILE    take the install directory from FILE\n"
    "  --lang L           print the outcome in the language L (default: that of the locale)\n"
    "  --trace NAME       write a trace file of that name\n"
    "  --exit-status      end with the status of the command\n"
    "exit status: 0 the command ended with status 0, 1 it did not, 2 wrong usage\n"
    "with --exit-status: that of the command (128 + n: signal n ended it), 124 a limit of time,\n"
    "  125 the run failed otherwise, 126 the program is not executable, 127 it was not found,\n"
    "  2 wrong usage\n"
    "SIGINT, SIGTERM and SIGHUP: the first one stops the command, a second one kills it, a third\n"
    "  one ends runcmd at once\n";

// As of timeout and env.
constexpr int kTimedOut = 124;
constexpr int kRunFailed = 125;
constexpr int kNotExecutable = 126;
constexpr int kNotFound = 127;
constexpr int kEndedBySignal = 128; // plus its number

using Stream = CCmnCommand::Stream;
using Streams = CCmnCommand::Streams;
using Outcome = SCmnCommandOutcome;
using Clock = std::chrono::steady_clock;

// ---- Options -----------------------------------------------------------------------------------

struct Options {
    std::string directory;
    std::string inputFile;
    std::string inputText;
    std::string streams = "together";
    std::string timeout = "60";
    std::string limit = "0";
    std::string maxOutput = "0";
    std::string user;
    std::string passwordFile;
    std::string rights;
    std::string registry;
    std::string language;
    std::string trace;
    bool clearEnvironment = false;
    bool userEnvironment = false;
    bool exitStatus = false;
    std::vector<std::pair<std::string, std::string>> variables; // name, "=" and value or nothing
    std::vector<std::string> words;
};

constexpr std::pair<const char*, std::string Options::*> kTexts[] = {
    {"--dir", &Options::directory},
    {"--stdin", &Options::inputFile},
    {"--input", &Options::inputText},
    {"--stderr", &Options::streams},
    {"--timeout", &Options::timeout},
    {"--limit", &Options::limit},
    {"--max-output", &Options::maxOutput},
    {"--user", &Options::user},
    {"--password-file", &Options::passwordFile},
    {"--rights", &Options::rights},
    {"--registry", &Options::registry},
    {"--lang", &Options::language},
    {"--trace", &Options::trace},
};

constexpr std::pair<const char*, bool Options::*> kFlags[] = {
    {"--clear-env", &Options::clearEnvironment},
    {"--user-env", &Options::userEnvironment},
    {"--exit-status", &Options::exitStatus},
};

template <class Table>
auto rowOf(const Table& table, const char* name)
{
    return std::find_if(std::begin(table), std::end(table),
                        [name](const auto& row) { return std::strcmp(row.first, name) == 0; });
}

// False for an unknown option.
bool setOption(Options& options, const std::string& name, const char* value)
{
    if (name == "--env" && std::strchr(value, '=') != nullptr) {
        const char* const sign = std::strchr(value, '=');
        options.variables.emplace_back(std::string(value, sign), sign);
        return true;
    }
    if (name == "--unset") {
        options.variables.emplace_back(value, "");
        return true;
    }
    const auto* const text = rowOf(kTexts, name.c_str());
    if (text == std::end(kTexts)) {
        return false;
    }
    options.*(text->second) = value;
    return name != "--user" || *value != '\0'; // without a name it would run as the caller
}

bool readOptions(int argc, char** argv, Options& options)
{
    int at = 1;
    for (; at < argc && std::strcmp(argv[at], "--") != 0; ++at) {
        const char* const name = argv[at];
        const auto* const flag = rowOf(kFlags, name);
        if (flag != std::end(kFlags)) {
            options.*(flag->second) = true;
        } else if (++at == argc || !setOption(options, name, argv[at])) {
            return false;
        }
    }
    if (at + 1 >= argc || options.user.empty() != options.passwordFile.empty()) {
        return false;
    }
    options.words.assign(argv + at + 1, argv + argc);
    return true;
}

template <class Number>
bool readNumber(const std::string& text, Number& number)
{
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    return error == std::errc() && stop == end;
}

// False for wrong usage.
bool configure(const Options& options, CCmnCommand& command)
{
    constexpr std::pair<const char*, Streams> choices[] = {{"together", Streams::together},
                                                           {"apart", Streams::apart},
                                                           {"discard", Streams::outputOnly}};
    const auto* const streams = rowOf(choices, options.streams.c_str());
    std::uint32_t timeout = 0;
    std::uint32_t limit = 0;
    std::uint64_t maxOutput = 0;
    if ((options.clearEnvironment && options.userEnvironment) ||
        (!options.inputFile.empty() && !options.inputText.empty())) {
        return false; // one would silently win
    }
    if (streams == std::end(choices) || !readNumber(options.timeout, timeout) ||
        !readNumber(options.limit, limit) || !readNumber(options.maxOutput, maxOutput)) {
        return false;
    }
    command.setDirectory(options.directory).setStreams(streams->second);
    command.setSilenceLimit(std::chrono::seconds(timeout));
    command.setTimeLimit(std::chrono::seconds(limit)).setByteLimit(maxOutput);
    command.setEndsWithCaller(true); // also if runcmd is killed
    if (options.clearEnvironment) {
        command.setEnvironment(CCmnCommand::Environment::empty);
    } else if (options.userEnvironment) {
        command.setEnvironment(CCmnCommand::Environment::account);
    }
    setRegistryFile(options.registry.c_str()); // an empty text means the default
    if (!options.rights.empty()) {
        setRightsFile(std::filesystem::absolute(options.rights).c_str());
    }
    for (const auto& [name, value] : options.variables) {
        if (value.empty()) {
            command.unsetVariable(name);
        } else {
            command.setVariable(name, value.substr(1));
        }
    }
    return true;
}

bool refuse(const std::string& what, const std::string& why)
{
    std::cerr << "runcmd: " << what << ": " << why << '\n';
    return false;
}

// The file is read without a buffer of the stream, which nobody could wipe.
bool setUser(const Options& options, CCmnCommand& command)
{
    if (options.user.empty()) {
        return true;
    }
    char line[1024];
    std::ifstream file;
    file.rdbuf()->pubsetbuf(nullptr, 0);
    errno = 0;
    file.open(options.passwordFile);
    const bool good = !file.getline(line, sizeof line).fail();
    if (good) {
        command.setUser(options.user, line);
    }
    const int error = errno;
    ::explicit_bzero(line, sizeof line);
    return good ? true
                : refuse("cannot read password from '" + options.passwordFile + "'",
                         error != 0 ? std::strerror(error) : "no line, or too long a line");
}

using File = std::unique_ptr<std::FILE, int (*)(std::FILE*)>;

// The file must stay open during the run.
bool setInput(const Options& options, CCmnCommand& command, File& file)
{
    if (options.inputFile == "-") {
        command.setInputDescriptor(STDIN_FILENO);
        // The command has a process group of its own, and the system stops it when it reads there.
        return ::isatty(STDIN_FILENO) == 0 ? true : refuse("--stdin -", "the input is a terminal");
    }
    if (options.inputFile.empty()) {
        command.setInput(options.inputText);
        return true;
    }
    file.reset(std::fopen(options.inputFile.c_str(), "re"));
    if (!file) {
        return refuse("cannot open '" + options.inputFile + "'", std::strerror(errno));
    }
    command.setInputDescriptor(::fileno(file.get()));
    return true;
}

// ---- Signals -----------------------------------------------------------------------------------

// They give the command time to end: without a handler it would be killed with this program.
// SIGPIPE comes when nobody reads the output any more.
constexpr int kStopSignals[] = {SIGINT, SIGTERM, SIGHUP, SIGPIPE};

std::atomic<const CCmnCommand*> g_command{nullptr};
std::atomic<int> g_signal{0}; // the last one that came
std::atomic<int> g_signalCount{0};

void setHandlers(void (*handler)(int))
{
    for (const int number : kStopSignals) {
        struct sigaction current {
        };
        ::sigaction(number, nullptr, &current);
        if (current.sa_handler != SIG_IGN) { // ignored below nohup: it stays so
            struct sigaction action {
            };
            action.sa_handler = handler; // without SA_RESTART: it interrupts a blocked write
            ::sigaction(number, &action, nullptr);
        }
    }
}

[[noreturn]] void endBySignal(int number)
{
    setHandlers(SIG_DFL);
    sigset_t open;
    ::sigemptyset(&open);
    ::sigaddset(&open, number);
    ::sigprocmask(SIG_UNBLOCK, &open, nullptr);
    ::raise(number);
    ::_exit(kEndedBySignal + number);
}

void onStopSignal(int number)
{
    g_signal = number;
    switch (++g_signalCount) {
    case 1:
        g_command.load()->stop();
        break;
    case 2:
        g_command.load()->kill();
        break;
    default:
        endBySignal(number); // at once, whatever is left
    }
}

// ---- Output ------------------------------------------------------------------------------------

// False for an error, and if a signal came while nobody read what was written.
bool writeAll(int fd, std::string_view bytes)
{
    while (!bytes.empty()) {
        const ssize_t written = ::write(fd, bytes.data(), bytes.size());
        if (written < 0 && errno != EINTR) {
            return false;
        }
        bytes.remove_prefix(static_cast<std::size_t>(std::max<ssize_t>(written, 0)));
        if (!bytes.empty() && g_signal != 0) {
            errno = EINTR;
            return false;
        }
    }
    return true;
}

// Writes what the command prints at once. While it is silent, a terminal shows for how long.
class Printer
{
public:
    explicit Printer(bool showsSilence)
    {
        if (showsSilence) {
            m_Watcher = std::thread([this] { watch(); });
        }
    }

    ~Printer() { finish(); }
    Printer(const Printer&) = delete;
    Printer& operator=(const Printer&) = delete;

    // False if it cannot be written.
    bool print(std::string_view piece, Stream stream)
    {
        const std::lock_guard<std::mutex> lock(m_Mutex);
        removeNote();
        m_Newlines += std::count(piece.begin(), piece.end(), '\n');
        m_AtLineStart = piece.back() == '\n';
        const bool good = writeAll(stream == Stream::error ? STDERR_FILENO : STDOUT_FILENO, piece);
        m_Error = good ? m_Error : errno;
        m_LastOutput = Clock::now();
        return good;
    }

    void finish()
    {
        if (m_Watcher.joinable()) {
            {
                const std::lock_guard<std::mutex> lock(m_Mutex);
                m_Finished = true;
            }
            m_Wake.notify_one();
            m_Watcher.join();
        }
    }

    int error() const { return m_Error; } // why output could not be written, or 0
    bool isAtLineStart() const { return m_AtLineStart; }
    std::int64_t lines() const { return m_Newlines + (m_AtLineStart ? 0 : 1); }

private:
    void watch()
    {
        constexpr std::chrono::seconds shortest{3}; // that is worth a note
        std::unique_lock<std::mutex> lock(m_Mutex);
        while (!m_Finished) {
            const auto silence =
                std::chrono::duration_cast<std::chrono::seconds>(Clock::now() - m_LastOutput);
            if (m_AtLineStart && silence >= shortest) { // otherwise it would overwrite output
                m_HasNote = true;
                writeAll(STDERR_FILENO, "\rstill running, " + std::to_string(silence.count()) +
                                            " s without output\033[K");
            }
            m_Wake.wait_for(lock, std::chrono::seconds(1));
        }
        removeNote();
    }

    void removeNote()
    {
        if (std::exchange(m_HasNote, false)) {
            writeAll(STDERR_FILENO, "\r\033[K");
        }
    }

    std::mutex m_Mutex; // guards what follows
    std::condition_variable m_Wake;
    bool m_Finished = false;
    bool m_HasNote = false;
    bool m_AtLineStart = true;
    int m_Error = 0;
    std::int64_t m_Newlines = 0;
    Clock::time_point m_LastOutput = Clock::now();
    std::thread m_Watcher;
};

// ---- Outcome -----------------------------------------------------------------------------------

using TracePointer = CCmnSmartPtr<CCmnTraceLog, CCmnDefaultAllocator<CCmnTraceLog>>;

// The configuration file of the log has the path of the trace file.
std::string tracePath(const std::string& name)
{
    tstr directory;
    tstr file;
    CCmnPathTool::getConfigFileInfo(CCmnStringTool::str2tstr(name), directory, file);
    CCmnConfiguration settings(directory.c_str(), file.c_str(), true);
    settings.getStringValue(L"DEBUG_TRACE_INFO", L"TRACEDIR", directory);
    settings.getStringValue(L"DEBUG_TRACE_INFO", L"TRACEFILE", file);
    return CCmnStringTool::tstr2str(directory + tstr(L"/") + file);
}

// As a person would type it.
std::string commandText(const std::vector<std::string>& words)
{
    std::string text;
    for (const std::string& word : words) {
        text += (text.empty() ? "" : " ") + CCmnStringTool::quote(word);
    }
    return text;
}

// "de" for a locale such as de_DE.UTF-8, and the root language for C.
std::string localeLanguage()
{
    const std::string locale = std::setlocale(LC_MESSAGES, nullptr);
    const std::string language = locale.substr(0, locale.find_first_of("_.@"));
    return language == "C" || language == "POSIX" ? "root" : language;
}

void showResources(const Outcome& outcome)
{
    constexpr double mebibyte = 1024 * 1024;
    const auto seconds = [](std::chrono::nanoseconds time) {
        return std::chrono::duration<double>(time).count();
    };
    std::cerr << std::fixed << std::setprecision(3) << "used:        " << seconds(outcome.elapsed)
              << " s, " << seconds(outcome.userTime + outcome.systemTime) << " s of processor time";
    if (outcome.peakMemory != 0) {
        std::cerr << ", " << std::setprecision(1)
                  << static_cast<double>(outcome.peakMemory) / mebibyte << " MiB of memory";
    }
    std::cerr << '\n';
}

// Prints the outcome as a message in the reader's language.
void showMessage(const Options& options, std::int64_t lines, const Outcome& outcome)
{
    const auto text = [](const std::string& narrow) {
        return icu::Formattable(CCmnStringTool::tstr2ustr(CCmnStringTool::str2tstr(narrow)));
    };
    std::vector<icu::Formattable> arguments = {text(commandText(options.words)),
                                               icu::Formattable(lines)};
    for (const std::string& argument : outcome.messageArguments()) {
        arguments.push_back(text(argument));
    }
    CatalogFactory factory("runcmd");
    CCmnSmartPtr<CCmnMessageCatalogManager, CCmnDefaultAllocator<CCmnMessageCatalogManager>>
        manager(true);
    manager.get()->registerFactory(&factory);
    CCmnIcuMessage message(outcome.messageKey(), arguments.data(),
                           static_cast<int>(arguments.size()), tarnix_eseverity{}, __FILE__,
                           __LINE__);
    const std::string language = options.language.empty() ? localeLanguage() : options.language;
    std::cerr << "message:     "
              << shown(manager.get()->findLocalizedMessage(message, {language}).text) << '\n';
}

// The status of the command, or why there is none.
int commandStatus(const Outcome& outcome)
{
    const bool noProgram = outcome.errorText.rfind("cannot start program ", 0) == 0;
    switch (outcome.end) {
    case Outcome::End::exited:
        return outcome.status;
    case Outcome::End::signalled:
        return kEndedBySignal + outcome.signal;
    case Outcome::End::stopped:
        return outcome.reason == Outcome::Reason::silence ||
                       outcome.reason == Outcome::Reason::timeLimit
                   ? kTimedOut
                   : kRunFailed;
    case Outcome::End::notStarted:
        return !noProgram ? kRunFailed : outcome.error == ENOENT ? kNotFound : kNotExecutable;
    default:
        return kRunFailed;
    }
}

// Returns the exit status of this program.
int run(const Options& options, CCmnCommand& command)
{
    TracePointer log(!options.trace.empty());
    if (log.get() != nullptr) {
        log.get()->initialize(CCmnStringTool::str2tstr(options.trace), tstr(), tstr(), 1, false);
        command.setTraceLog(log);
        log.get()->trace(1, "run %s", commandText(options.words).c_str());
    }
    Printer printer(::isatty(STDERR_FILENO) != 0);
    command.setByteCallback(
        [&printer](std::string_view piece, Stream stream) { return printer.print(piece, stream); });
    g_command = &command;
    setHandlers(onStopSignal);
    const Outcome outcome = command.run();
    setHandlers(SIG_DFL); // the run has ended: printing may be interrupted
    printer.finish();
    std::cerr << (printer.isAtLineStart() ? "" : "\n") << "outcome:     " << outcome.describe()
              << '\n';
    if (outcome.end != Outcome::End::notStarted) {
        showResources(outcome);
    }
    showMessage(options, printer.lines(), outcome);
    if (log.get() != nullptr) {
        log.get()->trace(1, "%d lines, %s", static_cast<int>(printer.lines()),
                         outcome.describe().c_str());
        std::cerr << "trace:       " << tracePath(options.trace) << '\n';
    }
    if (printer.error() != 0) {
        refuse("cannot write the output", std::strerror(printer.error()));
    }
    const int status = printer.error() == 0 ? commandStatus(outcome) : kRunFailed;
    return options.exitStatus || status == 0 ? status : 1;
}

} // namespace

int main(int argc, char** argv)
{
    std::setlocale(LC_CTYPE, "");
    std::setlocale(LC_MESSAGES, "");
    Options options;
    const bool isRead = readOptions(argc, argv, options);
    CCmnCommand command(options.words);
    File input(nullptr, std::fclose);
    if (!isRead || !configure(options, command)) {
        std::cerr << kUsage;
        return 2;
    }
    if (!setUser(options, command) || !setInput(options, command, input)) {
        return options.exitStatus ? kRunFailed : 2;
    }
    const int status = run(options, command);
    if (g_signal != 0) {
        endBySignal(g_signal); // so that a shell that runs this program sees it, and stops too
    }
    return status;
}
