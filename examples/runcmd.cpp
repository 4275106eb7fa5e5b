// Runs a command and prints its lines, its outcome and the record of a failure.
#include "catalogfactory.h"
#include "cmnconfiguration.h"
#include "cmnexecpipewindows.h"
#include "cmnpathtool.h"
#include "cmnstringtool.h"
#include "cmnsystemfiles.h"
#include "cmntracelog.h"

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <clocale>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <string>
#include <vector>

using namespace tarnix_cmn_4_4;

namespace
{

constexpr char kUsage[] =
    "usage: runcmd [--timeout S] [--dir D] [--trace NAME] [--user U --password-file F]\n"
    "              [--lang L] [--registry FILE] [--rights FILE] [--exit-status] -- COMMAND...\n"
    "  --timeout S      longest wait for the next byte of output, in seconds: at most 4294967\n"
    "                   (default 60)\n"
    "  --dir D          run the command in the directory D\n"
    "  --trace NAME     write a trace file of that name\n"
    "  --user U         run the command as the local user U\n"
    "  --password-file F  the file whose first line is that user's password\n"
    "  --lang L         print the outcome in the language L (default: that of the locale)\n"
    "  --registry FILE  take the install directory from FILE\n"
    "  --rights FILE    keep the accounts' rights in FILE\n"
    "  --exit-status    end with the status of the command\n"
    "exit status: 0 the command ended with status 0, 1 it did not, 2 wrong usage\n"
    "with --exit-status: that of the command (128 + n: signal n ended it), 124 timeout,\n"
    "  125 the run failed otherwise, 126 the program is not executable, 127 it was not found,\n"
    "  2 wrong usage\n"
    "SIGINT, SIGTERM and SIGHUP: the first one is passed on to the command and the run ends, a\n"
    "  second one kills the command, a third one ends runcmd at once\n";

constexpr unsigned long kLongestTimeout = 4294967; // more milliseconds than that overflow

// As of timeout and env.
constexpr int kTimedOut = 124;
constexpr int kRunFailed = 125;
constexpr int kNotExecutable = 126;
constexpr int kNotFound = 127;
constexpr int kEndedBySignal = 128; // plus its number

struct Options {
    unsigned long timeout = 60;
    bool exitStatus = false;
    std::string directory;
    std::string trace;
    std::string user;
    std::string passwordFile;
    std::string password;
    std::string language;
    std::vector<std::string> words;
};

// "de" for a locale such as de_DE.UTF-8, and the root language for C.
std::string localeLanguage()
{
    const std::string locale = std::setlocale(LC_MESSAGES, nullptr);
    const std::string language = locale.substr(0, locale.find_first_of("_.@"));
    return language == "C" || language == "POSIX" ? "root" : language;
}

bool readSeconds(const char* text, unsigned long& seconds)
{
    char* end = nullptr;
    errno = 0;
    seconds = std::strtoul(text, &end, 10);
    return errno == 0 && *text >= '0' && *text <= '9' && *end == '\0' && seconds <= kLongestTimeout;
}

bool readOptions(int argc, char** argv, Options& options)
{
    int at = 1;
    for (; at < argc && std::strcmp(argv[at], "--") != 0; ++at) {
        const std::string name = argv[at];
        if (name == "--exit-status") {
            options.exitStatus = true;
            continue;
        }
        if (++at == argc) {
            return false;
        }
        const char* value = argv[at];
        if (name == "--timeout") {
            if (!readSeconds(value, options.timeout)) {
                return false;
            }
        } else if (name == "--dir") {
            options.directory = value;
        } else if (name == "--trace") {
            options.trace = value;
        } else if (name == "--user") {
            // An empty name would run the command as the caller.
            if (*value == '\0') {
                return false;
            }
            options.user = value;
        } else if (name == "--password-file") {
            options.passwordFile = value;
        } else if (name == "--rights") {
            setRightsFile(std::filesystem::absolute(value).c_str());
        } else if (name == "--lang") {
            options.language = value;
        } else if (name == "--registry") {
            setRegistryFile(value);
        } else {
            return false;
        }
    }
    if (at + 1 >= argc || options.user.empty() != options.passwordFile.empty()) {
        return false;
    }
    options.words.assign(argv + at + 1, argv + argc);
    return true;
}

// The file is read without a buffer of the stream, which nobody could wipe.
bool readPassword(Options& options)
{
    if (options.passwordFile.empty()) {
        return true;
    }
    char line[1024];
    std::ifstream file;
    file.rdbuf()->pubsetbuf(nullptr, 0);
    errno = 0;
    file.open(options.passwordFile);
    const bool good = !file.getline(line, sizeof line).fail();
    if (good) {
        options.password = line;
    } else {
        std::cerr << "runcmd: cannot read password from '" << options.passwordFile
                  << "': " << (errno != 0 ? std::strerror(errno) : "no line, or too long a line")
                  << '\n';
    }
    ::explicit_bzero(line, sizeof line);
    return good;
}

// ---- Signals -----------------------------------------------------------------------------------

// Without a handler a signal would end this program only: the command would go on, and the right
// that was added for it would stay.

constexpr int kStopSignals[] = {SIGINT, SIGTERM, SIGHUP};

std::atomic<CCmnExecPipeBase*> g_runner{nullptr};
std::atomic<pid_t> g_command{0};
std::atomic<int> g_signal{0}; // the last one that came
std::atomic<int> g_signalCount{0};

// Passes the first signal on to the command, which has a process group of its own; a second one
// kills it. As long as the command has not been reaped, its number belongs to no other process.
void signalCommand()
{
    siginfo_t ended{};
    const pid_t command = g_command;
    if (g_signalCount > 0 && command > 0 &&
        ::waitid(P_PID, static_cast<id_t>(command), &ended, WEXITED | WNOHANG | WNOWAIT) == 0) {
        ::kill(-command, g_signalCount == 1 ? g_signal.load() : SIGKILL);
    }
}

void setHandlers(void (*handler)(int))
{
    for (const int number : kStopSignals) {
        struct sigaction current {
        };
        ::sigaction(number, nullptr, &current);
        if (current.sa_handler != SIG_IGN) { // ignored below nohup: it stays so
            struct sigaction action {
            };
            action.sa_handler = handler;
            action.sa_flags = SA_RESTART;
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

// An abort takes effect at the next line only, so a silent command needs the signal too.
void onStopSignal(int number)
{
    const int error = errno;
    g_signal = number;
    if (++g_signalCount > 2) {
        endBySignal(number); // at once, whatever is left
    }
    g_runner.load()->Abort();
    signalCommand();
    errno = error;
}

// Notes the number of the command for the handler.
class StoppableRunner : public CCmnExecPipeWindows
{
protected:
    int CreateChildProcess(std::string& command, HANDLE standardInput, HANDLE standardOutput,
                           HANDLE standardError, std::string workingDirectory) override
    {
        const int result = CCmnExecPipeWindows::CreateChildProcess(
            command, standardInput, standardOutput, standardError, workingDirectory);
        g_command = static_cast<pid_t>(m_ProcessId);
        signalCommand(); // it may have come before the number was known
        return result;
    }
};

// Makes one text of the words. Quoted, they are the same words again after the runner splits it.
std::string commandText(const std::vector<std::string>& words)
{
    std::string text;
    for (const std::string& word : words) {
        text += (text.empty() ? "" : " ") + CCmnStringTool::quote(word);
    }
    return text;
}

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

// Prints the outcome as a message in the reader's language. The message id is the key of the code.
void showMessage(const Options& options, std::size_t lines, int result, CCmnExecPipeWindows& runner)
{
    int status = 0;
    runner.getExitStatus(status);
    const ECmnExecPipe record = runner.getLastError();
    int code = result == 0 ? ECmnExecPipe::SUCCESS : record.getCode();
    if (result == 0 && status != 0) {
        code = ECmnExecPipe::CMD_FAILED; // it ended before its last line was read
    }
    const auto text = [](const std::string& narrow) {
        return icu::Formattable(CCmnStringTool::tstr2ustr(CCmnStringTool::str2tstr(narrow)));
    };
    const icu::Formattable arguments[] = {
        text(commandText(options.words)),
        icu::Formattable(static_cast<std::int32_t>(status)),
        text(CCmnStringTool::wstr2str(record.getDescription())),
        icu::Formattable(static_cast<std::int64_t>(lines)),
        icu::Formattable(static_cast<std::int64_t>(options.timeout)),
        text(options.user),
    };
    CatalogFactory factory("runcmd");
    CCmnSmartPtr<CCmnMessageCatalogManager, CCmnDefaultAllocator<CCmnMessageCatalogManager>>
        manager(true);
    manager.get()->registerFactory(&factory);
    CatalogFactory::MessagePtr message;
    message.assign(std::make_unique<CCmnIcuMessage>(ECmnExecPipe::keyOf(code), arguments, 6,
                                                    tarnix_eseverity{}, __FILE__, __LINE__)
                       .release());
    const std::string language = options.language.empty() ? localeLanguage() : options.language;
    setLanguage(language);
    std::cerr << "message:     "
              << shown(manager.get()->getLocalizedMessage(message, language.c_str())) << '\n';
}

void showRecord(int result, CCmnExecPipeWindows& runner)
{
    std::cerr << "result:      " << result << '\n';
    int status = 0;
    if (runner.getExitStatus(status)) {
        std::cerr << "exit status: " << status << '\n';
    }
    const ECmnExecPipe record = runner.getLastError();
    std::cerr << "record:      " << record.getCode() << ' ' << ECmnExecPipe::keyOf(record.getCode())
              << '\n';
    if (record.getCode() != ECmnExecPipe::SUCCESS) {
        std::cerr << "subject:     " << record.getSubject() << '\n';
    }
    if (!record.getDescription().empty()) {
        std::cerr << "description: " << CCmnStringTool::wstr2str(record.getDescription()) << '\n';
    }
}

// The status of the command, or why there is none.
int commandStatus(int result, CCmnExecPipeWindows& runner)
{
    constexpr int killedByRunner = 1067;
    int status = 0;
    if (runner.getExitStatus(status)) {
        return status == killedByRunner ? kEndedBySignal + SIGKILL : status;
    }
    if (result == ECmnExecPipe::READ_TIMEOUT) {
        return kTimedOut;
    }
    const std::string why = CCmnStringTool::wstr2str(runner.getLastError().getDescription());
    const std::string notFound = ": No such file or directory"; // the text is not translated
    if (result == 0 || why.rfind("cannot start program ", 0) != 0) {
        return kRunFailed;
    }
    const std::size_t end = why.size() - std::min(why.size(), notFound.size());
    return why.compare(end, std::string::npos, notFound) == 0 ? kNotFound : kNotExecutable;
}

// Returns the exit status of this program.
int run(Options& options)
{
    StoppableRunner runner;
    g_runner = &runner;
    setHandlers(onStopSignal);
    TracePointer log(!options.trace.empty());
    if (log.get() != nullptr) {
        log.get()->initialize(CCmnStringTool::str2tstr(options.trace), tstr(), tstr(), 1, false);
        runner.setTraceLog(log);
        log.get()->trace(1, "run %s", commandText(options.words).c_str());
    }
    std::vector<std::string> lines;
    const int result = runner.Exec(commandText(options.words), lines, "", options.timeout,
                                   options.directory, options.user, options.password);
    ::explicit_bzero(options.password.data(), options.password.size());
    if (result != ECmnExecPipe::READ_TIMEOUT) {
        setHandlers(SIG_DFL); // the run has ended: printing may be interrupted
    }
    for (const std::string& line : lines) {
        std::cout << line << '\n';
    }
    std::cout.flush();
    showRecord(result, runner);
    showMessage(options, lines.size(), result, runner);
    if (log.get() != nullptr) {
        log.get()->trace(1, "%zu lines, result %d, record %s", lines.size(), result,
                         ECmnExecPipe::keyOf(runner.getLastError().getCode()));
        std::cerr << "trace:       " << tracePath(options.trace) << '\n';
    }
    const int status = commandStatus(result, runner);
    runner.Init(); // stops a command that still runs; a signal meanwhile makes that faster
    setHandlers(SIG_DFL);
    if (options.exitStatus) {
        return status == 0 && !std::cout ? kRunFailed : status;
    }
    return result == 0 && status == 0 && std::cout ? 0 : 1;
}

} // namespace

int main(int argc, char** argv)
{
    std::setlocale(LC_CTYPE, "");
    std::setlocale(LC_MESSAGES, "");
    Options options;
    if (!readOptions(argc, argv, options)) {
        std::cerr << kUsage;
        return 2;
    }
    if (!readPassword(options)) {
        return options.exitStatus ? kRunFailed : 2;
    }
    const int status = run(options);
    if (g_signal != 0) {
        endBySignal(g_signal); // so that a shell that runs this program sees it, and stops too
    }
    return status;
}
