// SPDX-License-Identifier: LicenseRef-Tarnix
// The hot paths of the library, for a count of their instructions. `hotpaths PATH` runs one path
// many times under valgrind, which counts only between the two marks, and prints how many times it
// ran. scripts/instructions divides the count by that number.
#include "TX_sscanf.h"
#include "catalogfactory.h"
#include "cmncommand.h"
#include "cmnconfiguration.h"
#include "cmnexecpipewindows.h"
#include "cmnmsgdgst5.h"
#include "cmnsaxhandler.h"
#include "cmnsaxparser.h"
#include "cmnstringtool.h"
#include "cmntracelog.h"
#include "support/scratchinstallation.h"

#include <valgrind/callgrind.h>

#include <chrono>
#include <cstdio>
#include <functional>
#include <map>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

using namespace tarnix_cmn_4_4;

namespace
{

// valgrind counts what runs between the first mark and the second.
void mark()
{
    CALLGRIND_TOGGLE_COLLECT;
}

template <class Run>
int counted(int times, Run run)
{
    run(); // the first run fills caches and is not counted
    mark();
    for (int i = 0; i < times; ++i) {
        run();
    }
    mark();
    return times;
}

void require(bool holds, const char* what)
{
    if (!holds) {
        throw std::runtime_error(what);
    }
}

int traceLines(int level, int times)
{
    const ScratchInstallation installation;
    CCmnSmartPtr<CCmnTraceLog, CCmnDefaultAllocator<CCmnTraceLog>> log(true);
    log.get()->initialize(L"hotpaths", L"", L"", 1, false);
    require(log.get()->isInitialized(), "cannot initialize the trace log");
    return counted(times, [&] { log.get()->trace(level, "%d of %s", 42, "the usual"); });
}

int traceDropped()
{
    return traceLines(2, 10000);
}

int traceWritten()
{
    return traceLines(1, 200);
}

// The marks enclose the whole run, with its start and its end: their share of so many lines is
// negligible.
int outputLine()
{
    constexpr int lines = 50000;
    std::vector<std::string> output;
    CCmnExecPipeWindows runner;
    output.reserve(lines);
    mark();
    const int result = runner.Exec("'" TARNIX_LINE_PRINTER "' " + std::to_string(lines), output, "",
                                   600, "", "", "");
    mark();
    require(result == 0 && output.size() == lines, "wrong output");
    return lines;
}

int commandLine()
{
    constexpr int lines = 50000;
    const CCmnCommand command({TARNIX_LINE_PRINTER, std::to_string(lines)});
    mark();
    const SCmnCommandOutcome outcome = command.run();
    mark();
    require(outcome.ok() && outcome.lines.size() == lines, "wrong output");
    return lines;
}

int lookUp()
{
    const ScratchInstallation installation;
    installation.setInstallDirectory(TARNIX_CATALOGS "/");
    CatalogFactory factory("runcmd");
    CCmnSmartPtr<CCmnMessageCatalogManager, CCmnDefaultAllocator<CCmnMessageCatalogManager>>
        manager(true);
    manager.get()->registerFactory(&factory);
    const std::string key = "TARNIX_EXEC_PIPE_CMD_FAILED";
    require(manager.get()->getMessage(key, nullptr, "de").find(L"Status") != tstr::npos,
            "the catalog has no such message");
    return counted(10000, [&] { manager.get()->getMessage(key, nullptr, "de"); });
}

int formatMessage()
{
    const icu::Formattable arguments[] = {icu::Formattable(icu::UnicodeString(u"make all")),
                                          icu::Formattable(std::int32_t{2})};
    CCmnIcuMessage message("KEY", arguments, 2, tarnix_eseverity{}, "", 0);
    const tstr pattern(L"{0} failed with status {1}.");
    require(message.formatMessage(pattern) == tstr(L"make all failed with status 2."),
            "the formatted text is wrong");
    return counted(1000, [&] { message.formatMessage(pattern); });
}

int scanHeader()
{
    const char* const text = "<SERIALIZED_MESSAGE MSGID=TARNIX_EXEC_PIPE_CMD_FAILED SEVERITY=3>";
    char id[128];
    std::int32_t severity = 0;
    const auto scan = [&] {
        return TX_sscanf(text, "<SERIALIZED_MESSAGE MSGID=%s SEVERITY=%d>", id,
                         static_cast<int>(sizeof id), &severity, static_cast<int>(sizeof severity));
    };
    require(scan() == 2 && severity == 3, "the header was not scanned");
    return counted(10000, scan);
}

// To UTF-16 and back.
int convertAscii()
{
    const std::string text(1024, 'a');
    require(CCmnStringTool::ustr2str(CCmnStringTool::str2ustr(text)) == text, "the text differs");
    return counted(1000, [&] { CCmnStringTool::ustr2str(CCmnStringTool::str2ustr(text)); });
}

int digest()
{
    std::vector<unsigned char> message(1024, 'm');
    return counted(1000, [&] {
        CCmnMessageDigest5 md5(message.data(), static_cast<std::uint32_t>(message.size()));
        md5.GetAnsiMessageDigest();
    });
}

// What the calling process does for a command that prints an empty line. The child is not counted.
// The caller sleeps until the child has most likely ended: otherwise the end of the output and that
// of the child wake it once or several times, which depends on the load of the machine.
int startAndEnd()
{
    CCmnCommand command({"/bin/echo"});
    command.setByteCallback([](auto, auto) {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        return true;
    });
    require(command.run().ok(), "the command failed");
    return counted(20, [&] { command.run(); });
}

int hexText()
{
    const std::vector<unsigned char> bytes(1024, 0xa5);
    require(CCmnStringTool::binary2str(bytes.data(), 1024).size() == 2048, "not all was written");
    return counted(1000, [&] { CCmnStringTool::binary2str(bytes.data(), 1024); });
}

// To UTF-16 and back, with characters of one to four bytes.
int convertMixed()
{
    std::string text;
    for (int i = 0; i < 100; ++i) {
        text += "a\u00e9\u20ac\U0001f600";
    }
    require(CCmnStringTool::ustr2str(CCmnStringTool::str2ustr(text)) == text, "the text differs");
    return counted(1000, [&] { CCmnStringTool::ustr2str(CCmnStringTool::str2ustr(text)); });
}

int searchReplace()
{
    std::string text(4096, 'a');
    for (std::size_t i = 0; i < text.size(); i += 512) {
        text[i] = 'b';
    }
    require(CCmnStringTool::searchreplace(text, "b", "cc").size() == text.size() + 8,
            "not all was replaced");
    return counted(1000, [&] { CCmnStringTool::searchreplace(text, "b", "cc"); });
}

// A message with as many arguments, numbers and texts.
CCmnIcuMessage manyArguments(int count)
{
    std::vector<icu::Formattable> arguments;
    for (int i = 0; i < count; ++i) {
        arguments.push_back(i % 2 == 0 ? icu::Formattable(std::int32_t{i})
                                       : icu::Formattable(icu::UnicodeString(u"some text")));
    }
    return CCmnIcuMessage("KEY", arguments.data(), count, tarnix_eseverity{}, "", 0);
}

int serialize()
{
    CCmnIcuMessage message = manyArguments(100);
    require(message.serialize()->length > 3000, "not all was written");
    return counted(1000, [&] { message.serialize(); });
}

int deserialize()
{
    CCmnIcuMessage message = manyArguments(100), copy = manyArguments(0);
    const std::string text = message.serialize()->text;
    const SCmnMessageInfo info{text.c_str(), 0};
    copy.deserialize(&info);
    require(copy.serialize()->text == text, "the message differs");
    return counted(1000, [&] { copy.deserialize(&info); });
}

// Settings with a thousand values in ten sections.
void writeSettings(const ScratchDirectory& directory)
{
    std::string text;
    for (int i = 0; i < 1000; ++i) {
        if (i % 100 == 0) {
            text += "[Section " + std::to_string(i) + "]\n";
        }
        text += "\"Value " + std::to_string(i) + "\"=\"/opt/product/directory\"\n";
    }
    directory.write("settings", text);
}

int importSettings()
{
    const ScratchDirectory directory;
    writeSettings(directory);
    return counted(10, [path = directory.widePath()] {
        require(CCmnConfiguration().importConfig(path.c_str(), L"settings") == 0, "cannot import");
    });
}

int exportSettings()
{
    const ScratchDirectory directory;
    writeSettings(directory);
    CCmnConfiguration settings;
    require(settings.importConfig(directory.widePath().c_str(), L"settings") == 0, "cannot import");
    return counted(10, [&] { require(settings.exportConfig() == 0, "cannot export"); });
}

class Gatherer : public CCmnSaxParseHandler
{
public:
    const std::string& text() const { return m_Text; }
};

int parseXml()
{
    std::string document = "<list>";
    for (int i = 0; i < 1000; ++i) {
        document += "<entry id='1'>Some text, with an &amp; and more.</entry>\n";
    }
    document += "</list>";
    CCmnSaxParser parser;
    return counted(10, [&] {
        Gatherer handler;
        parser.setHandler(&handler);
        parser.parse(document);
        require(handler.text().size() > 30000, "not all was read");
    });
}

const std::map<std::string, std::function<int()>> kPaths = {
    {"ascii_1024", convertAscii},
    {"command_line", commandLine},
    {"command_start", startAndEnd},
    {"config_export", exportSettings},
    {"config_import", importSettings},
    {"deserialize", deserialize},
    {"digest_1024", digest},
    {"format_message", formatMessage},
    {"hex_1024", hexText},
    {"lookup", lookUp},
    {"mixed_text", convertMixed},
    {"output_line", outputLine},
    {"sax", parseXml},
    {"scan_header", scanHeader},
    {"search_replace", searchReplace},
    {"serialize", serialize},
    {"trace_dropped", traceDropped},
    {"trace_written", traceWritten},
};

} // namespace

int main(int argc, char** argv)
{
    const auto path = kPaths.find(argc > 1 ? argv[1] : "");
    if (path == kPaths.end()) {
        for (const auto& known : kPaths) {
            std::printf("%s\n", known.first.c_str());
        }
        return argc > 1 ? 2 : 0;
    }
    try {
        std::printf("%d\n", path->second());
    } catch (const std::exception& problem) {
        std::fprintf(stderr, "hotpaths: %s\n", problem.what());
        return 1;
    }
    return 0;
}
