// Every allocation of the library's operations refused in turn: an exception or the told failure,
// nothing lost, and an object that works again.
#include "cmnconfiguration.h"
#include "cmnexecpipewindows.h"
#include "cmnmsgcatalogmgr.h"
#include "cmnsaxhandler.h"
#include "cmnsaxparser.h"
#include "cmnstringtool.h"
#include "cmntracelog.h"
#include "processstate.h"
#include "refusal.h"
#include "scratch.h"

#include <functional>
#include <new>
#include <set>
#include <xercesc/util/OutOfMemoryException.hpp>

using namespace tarnix_cmn_4_4;
using icu::Formattable;
using Log = CCmnSmartPtr<CCmnTraceLog, CCmnDefaultAllocator<CCmnTraceLog>>;

namespace
{

using Step = std::function<std::string()>; // what came of it
using Make = std::function<Step()>;        // a new object in the form of a step

class Allocation : public testing::Test
{
protected:
    Allocation() { m_Scratch.setRegistry(m_Scratch.path(), m_Scratch.path()); }

    // The step is good at any time; with refused memory it may throw, or come to what is told.
    void refuseEach(const Make& make, const std::string& good,
                    const std::set<std::string>& told = {}, bool throwingOnly = false)
    {
        EXPECT_EQ(make()(), good); // what is kept from the first time on does not count below
        int asked = 0;
        {
            const Step step = make();
            const Refusal none(0, false, throwingOnly);
            EXPECT_EQ(step(), good);
            asked = Refusal::asked;
        }
        EXPECT_GT(asked, 0);
        const ProcessState state = ProcessState::now();
        for (int i = 2; i < 2 * (asked + 1); ++i) {
            const bool onwards = i % 2 != 0;
            SCOPED_TRACE(std::to_string(i / 2) + (onwards ? " and on" : ""));
            const int blocks = Refusal::blocks;
            inject(make(), good, told, {i / 2, onwards, throwingOnly});
            EXPECT_TRUE(Refusal::blocks == blocks || m_MayLose) << Refusal::blocks;
            EXPECT_EQ(ProcessState::now(), state);
        }
        std::printf("faults injected: %d\n", 2 * asked);
    }

    static void inject(Step step, const std::string& good, const std::set<std::string>& told,
                       std::tuple<int, bool, bool> fault)
    {
        std::string result = good;
        try {
            const auto refusal = std::make_from_tuple<Refusal>(fault);
            result = step();
        } catch (const std::bad_alloc&) {
        }
        EXPECT_TRUE(result == good || told.count(result) > 0) << result;
        EXPECT_EQ(step(), good);
        const Refusal ofAll(1, true);
        step = nullptr;
    }

    Scratch m_Scratch;
    bool m_MayLose = false;
};

std::string narrow(const tstr& text)
{
    const Calm calm;
    return CCmnStringTool::tstr2str(text);
}

TEST_F(Allocation, Exec)
{
    const std::pair<std::string, std::string> commands[] = {
        {"echo a line that lies on the heap", "0 a line that lies on the heap"},
        {"sh -c 'exit 3'", "3 "},
        {"/no/such/program/anywhere", "3 "}};
    for (const auto& [command, good] : commands) {
        const auto make = [&command = command]() -> Step {
            return [&command, runner = std::make_shared<CCmnExecPipeWindows>()] {
                std::vector<std::string> lines{""};
                runner->Init();
                int result = runner->Exec(command, lines, "", 60, "", "", "");
                runner->getExitStatus(result); // Exec need not have seen it
                return std::to_string(result) + " " + (lines.empty() ? "" : lines[0]);
            };
        };
        refuseEach(make, good, {"8 "});
    }
}

TEST_F(Allocation, Messages)
{
    m_Scratch.makeDirectory("Messages/libapp");
    m_Scratch.write("root.txt", "root { who { \"{0}, or a text on the heap\" } }");
    const std::string inside = "cd '" + m_Scratch.path() + "' && ";
    ASSERT_EQ(std::system((inside + "genrb -q -d Messages/libapp root.txt").c_str()), 0);
    CCmnIcuMessageCatalog catalog(L"app", "root");
    ASSERT_EQ(catalog.init(), 0);
    const Formattable inner[] = {icu::UnicodeString(u"a text that lies on the heap"), 1};
    const Formattable arguments[] = {inner[0], 97, Formattable(inner, 2)};
    const auto made = [&arguments] {
        return CCmnIcuMessage("an.id", arguments, 3, tarnix_eseverity{7}, "some.cpp", 12);
    };
    const std::string text = made().serialize()->text;
    const auto copied = [](CCmnIcuMessage& message) {
        const CCmnIcuMessage copy(message);
        message = copy;
        return std::string(message.serialize()->text);
    };
    const auto deserialized = [&](CCmnIcuMessage& message) {
        const SCmnMessageInfo info{text.c_str(), 0};
        message.deserialize(&info);
        const Calm calm;
        return std::string(message.serialize()->text, 90);
    };
    // No number: ICU's formatter of numbers does not look at what it got.
    const auto formatted = [pattern = tstr(L"{0}!")](CCmnIcuMessage& message) {
        return narrow(message.formatMessage(pattern));
    };
    const auto lookedUp = [&](CCmnIcuMessage&) {
        return narrow(catalog.getMessage("who", nullptr));
    };
    using Use = std::function<std::string(CCmnIcuMessage&)>;
    const std::tuple<Use, std::string, std::set<std::string>> uses[] = {
        {copied, text, {}},
        {deserialized, text.substr(0, 90), {}},
        {formatted, "a text that lies on the heap!", {"", "{0}!"}},
        {lookedUp, "app: {0}, or a text on the heap", {"app: <who>"}}};
    for (const auto& [use, good, told] : uses) {
        const auto make = [&made, &use = use]() -> Step {
            const auto message = std::make_shared<CCmnIcuMessage>(made());
            return [&use, message] { return use(*message); };
        };
        refuseEach(make, good, told);
    }
}

// ACE's store does not look at what it got, so here only what throws is refused.
TEST_F(Allocation, TraceAndConfiguration)
{
    const std::string line = "a line of more than the usual length " + std::string(3000, 'x');
    const auto initialized = [](Log& log) { log.get()->initialize(L"t", L"", L"", 1, false); };
    const auto traced = [&]() -> Step {
        Log made(true);
        initialized(made);
        return [this, &line, log = made] {
            log.get()->trace(1, "%s", line.c_str());
            const Calm calm;
            const std::string all = m_Scratch.read("Logs/t.log");
            std::filesystem::remove(m_Scratch.path("Logs/t.log"));
            return all.empty() ? all : all.substr(27);
        };
    };
    refuseEach(traced, line + "\n", {""});
    const auto initialize = [&]() -> Step {
        return [&] {
            Log log(true);
            if (log.get())
                initialized(log);
            const Calm calm;
            const std::string settings = m_Scratch.read("ConfigFiles/t.conf");
            std::filesystem::remove(m_Scratch.path("ConfigFiles/t.conf"));
            return settings.substr(0, 18);
        };
    };
    refuseEach(initialize, "[DEBUG_TRACE_INFO]", {""}, true);

    const std::string text = "[S]\n\"text\"=\"a value that lies on the heap\"\n";
    m_Scratch.write("a.conf", text);
    const std::wstring directory = m_Scratch.wide();
    const auto imported = [&]() -> Step {
        return [&, store = std::make_shared<CCmnConfiguration>()] {
            const int code = store->importConfig(directory.c_str(), L"a.conf");
            const int exported = store->exportConfig();
            const Calm calm;
            tstr value;
            store->getStringValue(L"S", L"text", value);
            return std::to_string(code + exported) + narrow(value) + m_Scratch.read("a.conf");
        };
    };
    refuseEach(imported, "0a value that lies on the heap" + text, {}, true);
    // Nothing half written lies about beside the two directories and the two files.
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(m_Scratch.path()), {}), 4);
}

struct Gathering : CCmnSaxParseHandler {
    std::string take() { return std::exchange(m_Text, "") + (hasLastError() ? "!" : ""); }
};

TEST_F(Allocation, Sax)
{
#ifdef __SANITIZE_ADDRESS__
    GTEST_SKIP() << "Xerces-C loses blocks when memory is refused, which the sanitizer reports";
#endif
    m_MayLose = true; // Xerces-C leaves its own clean-up out when memory is refused
    // The end of the last use allocates within Xerces-C, which does not expect a refusal there.
    const CCmnSaxParser lastUse;
    const auto parses = []() -> Step {
        const auto handler = std::make_shared<Gathering>();
        return [handler, parser = std::make_shared<CCmnSaxParser>(handler.get())] {
            handler->take();
            try {
                const CCmnSaxParser fresh(handler.get());
                parser->parse("<!DOCTYPE a [<!ENTITY e 'of an entity'>]><a b='c'>text &e;</a>");
            } catch (const xercesc::OutOfMemoryException&) {
                throw std::bad_alloc();
            }
            return handler->take();
        };
    };
    refuseEach(parses, "text of an entity");
}

} // namespace
