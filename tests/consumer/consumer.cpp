// Uses every class family. Run where the directory Messages lies; prints the results, and ends with
// 1 if one is not the expected one.
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

using namespace tarnix_cmn_4_4;

struct Handler : CCmnSaxParseHandler {
    using CCmnSaxParseHandler::m_Text;
};

int main()
{
    std::ofstream("registry.conf") << "[SOFTWARE\\Brenholt\\Tarnix]\n\"InstallDir64\"=\"./\"\n";
    TxSetRegistryFile("registry.conf");

    CCmnExecPipeWindows runner;
    std::vector<std::string> results;
    runner.Exec("sh -c 'echo out; exit 3'", results, "", 60, "", "", "");
    int status = 0;
    runner.getExitStatus(status);
    results.push_back(CCmnStringTool::int2str(status));

    const icu::Formattable arguments[] = {icu::Formattable(u"sda"), icu::Formattable(93)};
    CCmnIcuMessage message("DISK_NEARLY_FULL", arguments, 2, tarnix_eseverity{2}, "", 0);
    for (const char* language : {"de", "root"}) {
        CCmnIcuMessageCatalog catalog(L"consumer", language);
        catalog.init();
        const tstr text = message.formatMessage(catalog.getMessage("DISK_NEARLY_FULL", nullptr));
        results.push_back(CCmnStringTool::tstr2str(text));
    }
    CCmnSmartPtr<CCmnMessageCatalogManager, CCmnDefaultAllocator<CCmnMessageCatalogManager>>
        manager(true);
    results.push_back(CCmnStringTool::tstr2str(manager.get()->getMessage("key", nullptr, "")));

    CCmnSmartPtr<CCmnTraceLog, CCmnDefaultAllocator<CCmnTraceLog>> log(true);
    log.get()->initialize(L"consumer", L"", L"", 1, false);
    log.get()->trace(1, "line");
    std::string date, time, line;
    std::ifstream("Logs/consumer.log") >> date >> time >> line;
    results.push_back(line);
    tstr directory, name;
    CCmnPathTool::getConfigFileInfo(L"consumer", directory, name);
    CCmnConfiguration settings(directory.c_str(), name.c_str(), true);
    unsigned int level = 0;
    settings.getIntegerValue(L"DEBUG_TRACE_INFO", L"TRACELEVEL", level);
    results.push_back(CCmnStringTool::uint2str(level));

    Handler handler;
    CCmnSaxParser(&handler).parse("<a>te<b>xt</b></a>");
    results.push_back(handler.m_Text);
    results.emplace_back(CCmnMessageDigest5("abc").GetAnsiMessageDigest());
    results.emplace_back(CCmnNetwork::validateIPAddress("127.0.0.1") ? "address" : "");
    results.push_back(CCmnError(3, L"", L"", 1, L"").getMessageKey("app", 0));
    CCmnLock lock;
    results.emplace_back(lock.tryLock() && !lock.tryLock() ? "once" : "");

    const std::vector<std::string> expected = {"out",
                                               "3",
                                               "consumer: sda ist zu 93 Prozent voll",
                                               "consumer: sda is full to 93 percent",
                                               "<key>",
                                               "line",
                                               "1",
                                               "text",
                                               "900150983cd24fb0d6963f7d28e17f72",
                                               "address",
                                               "MSG_ERROR_APP_0003",
                                               "once"};
    for (const std::string& result : results)
        std::printf("%s\n", result.c_str());
    return results == expected ? 0 : 1;
}
