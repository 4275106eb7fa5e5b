// Runs a command and prints its lines, its outcome and the record of a failure.
#include "catalogfactory.h"
#include "cmnconfiguration.h"
#include "cmnexecpipewindows.h"
#include "cmnpathtool.h"
#include "cmnstringtool.h"
#include "cmnsystemfiles.h"
#include "cmntracelog.h"

#include <cerrno>
#include <clocale>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>
#include <string>
#include <vector>

using namespace tarnix_cmn_4_4;

namespace
{

constexpr char kUsage[] =
    "usage: runcmd [--timeout S] [--dir D] [--trace NAME] [--user U --password-file F]\n"
    "              [--lang L] [--registry FILE] [--rights FILE] -- COMMAND...\n"
    "  --timeout S      longest wait for the next byte of output, in seconds (default 60)\n"
    "  --dir D          run the command in the directory D\n"
    "  --trace NAME     write a trace file of that name\n"
    "  --user U         run the command as the local user U\n"
    "  --password-file F  the file whose first line is that user's password\n"
    "  --lang L         print the outcome in the language L (default: that of the locale)\n"
    "  --registry FILE  take the install directory from FILE\n"
    "  --rights FILE    keep the accounts' rights in FILE\n"
    "exit status: 0 the command ended with status 0, 1 it did not, 2 wrong usage\n";

struct Options {
    unsigned long timeout = 60;
    std::string directory;
    std::string trace;
    std::string user;
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
    return errno == 0 && *text >= '0' && *text <= '9' && *end == '\0';
}

bool readOptions(int argc, char** argv, Options& options)
{
    int at = 1;
    for (; at < argc && std::strcmp(argv[at], "--") != 0; at += 2) {
        const std::string name = argv[at];
        if (at + 1 == argc) {
            return false;
        }
        const char* value = argv[at + 1];
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
            std::ifstream file(value);
            if (!std::getline(file, options.password)) {
                std::cerr << "runcmd: no password in " << value << '\n';
                return false;
            }
        } else if (name == "--rights") {
            setRightsFile(value);
        } else if (name == "--lang") {
            options.language = value;
        } else if (name == "--registry") {
            setRegistryFile(value);
        } else {
            return false;
        }
    }
    if (at + 1 >= argc || (options.user.empty() && !options.password.empty())) {
        return false;
    }
    options.words.assign(argv + at + 1, argv + argc);
    return true;
}

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
    CCmnExecPipeWindows runner;
    TracePointer log(!options.trace.empty());
    if (log.get() != nullptr) {
        log.get()->initialize(CCmnStringTool::str2tstr(options.trace), tstr(), tstr(), 1, false);
        runner.setTraceLog(log);
        log.get()->trace(1, "run %s", commandText(options.words).c_str());
    }
    std::vector<std::string> lines;
    const int result = runner.Exec(commandText(options.words), lines, "", options.timeout,
                                   options.directory, options.user, options.password);
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
    int status = 0;
    const bool ended = runner.getExitStatus(status) && status == 0;
    return result == 0 && ended && std::cout ? 0 : 1;
}
