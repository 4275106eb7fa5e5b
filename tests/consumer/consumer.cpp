// Uses every class family, with a factory, a catalog and a handler of its own. Run where the
// directory Messages lies; ends with 1 and a line for each result that is not the expected one.
#include "cmnconfiguration.h"
#include "cmnerror.h"
#include "cmnexecpipewindows.h"
#include "cmnicucatalog.h"
#include "cmnlock.h"
#include "cmnmessage.h"
#include "cmnmsgcatalogmgr.h"
#include "cmnmsgdgst5.h"
#include "cmnnetwork.h"
#include "cmnpathtool.h"
#include "cmnsaxhandler.h"
#include "cmnsaxparser.h"
#include "cmnsmartptr.h"
#include "cmnstringtool.h"
#include "cmntracelog.h"
#include "platform_registry.h"

#include <cstdio>
#include <fstream>
#include <iterator>
#include <memory>

using namespace tarnix_cmn_4_4;

namespace
{

int failures = 0;

void expect(const std::string& result, const std::string& expected)
{
    if (result != expected) {
        std::printf("not \"%s\" but \"%s\"\n", expected.c_str(), result.c_str());
        failures = 1;
    }
}

struct Factory : CCmnMessageCatalogFactory {
    CatalogPtr createCatalog(const char* language) override
    {
        CatalogPtr catalog;
        catalog.assign(std::make_unique<CCmnIcuMessageCatalog>(L"consumer", language).release());
        return catalog;
    }
    MessagePtr createMessage(SCmnMessageInfo* info) override
    {
        MessagePtr message;
        message.assign(std::make_unique<CCmnIcuMessage>(info).release());
        return message;
    }
    std::string getDefaultLanguage() override { return "root"; }
};

struct Handler : CCmnSaxParseHandler {
    const std::string& text() const { return m_Text; }
};

std::string render(const char* language)
{
    Factory factory;
    CCmnSmartPtr<CCmnMessageCatalogManager, CCmnDefaultAllocator<CCmnMessageCatalogManager>>
        manager(true);
    manager.get()->registerFactory(&factory);
    const icu::Formattable arguments[] = {icu::Formattable(u"sda"), icu::Formattable(93)};
    CCmnIcuMessage message("DISK_NEARLY_FULL", arguments, 2, tarnix_eseverity{2}, __FILE__,
                           __LINE__);
    SCmnMessageInfo record = *message.serialize();
    wchar_t* text = nullptr;
    manager.get()->getLocalizedMessage(&record, language, &text);
    const std::string result = CCmnStringTool::tstr2str(text);
    manager.get()->deleteLocalizedMessage(&text);
    return result;
}

} // namespace

int main()
{
    std::ofstream("registry.conf") << "[SOFTWARE\\Brenholt\\Tarnix]\n\"InstallDir64\"=\"./\"\n";
    TxSetRegistryFile("registry.conf");

    CCmnExecPipeWindows runner;
    std::vector<std::string> lines;
    runner.Exec("sh -c 'echo out; exit 3'", lines, "", 60, "", "", "");
    int status = 0;
    runner.getExitStatus(status);
    expect(lines.empty() ? "" : lines[0], "out");
    expect(CCmnStringTool::int2str(status), "3");

    expect(render("de"), "consumer: sda ist zu 93 Prozent voll");
    expect(render("xx"), "consumer: sda is full to 93 percent");

    CCmnSmartPtr<CCmnTraceLog, CCmnDefaultAllocator<CCmnTraceLog>> log(true);
    log.get()->initialize(L"consumer", L"", L"", 1, false);
    log.get()->trace(1, "a line");
    std::ifstream file("Logs/consumer.log");
    const std::string traced(std::istreambuf_iterator<char>(file), {});
    expect(traced.size() > 7 ? traced.substr(traced.size() - 7) : traced, "a line\n");

    tstr directory, name;
    CCmnPathTool::getConfigFileInfo(L"consumer", directory, name);
    CCmnConfiguration settings(directory.c_str(), name.c_str(), true);
    unsigned int level = 0;
    expect(CCmnStringTool::int2str(
               settings.getIntegerValue(L"DEBUG_TRACE_INFO", L"TRACELEVEL", level)),
           "0");

    Handler handler;
    CCmnSaxParser(&handler).parse("<a>te<b>xt</b></a>");
    expect(handler.text(), "text");
    expect(CCmnMessageDigest5("abc").GetAnsiMessageDigest(), "900150983cd24fb0d6963f7d28e17f72");
    expect(CCmnNetwork::validateIPAddress("127.0.0.1") ? "yes" : "no", "yes");
    expect(CCmnError(3, L"text", L"file", 1, L"function").getMessageKey("app", 0),
           "MSG_ERROR_APP_0003");
    CCmnLock lock;
    expect(lock.tryLock() && !lock.tryLock() ? "once" : "", "once");

    std::printf(failures == 0 ? "consumer: every family answers\n" : "consumer: failed\n");
    return failures;
}
