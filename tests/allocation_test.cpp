// SPDX-License-Identifier: LicenseRef-Tarnix
// Each allocation of the library's operations fails in turn: the operation throws or returns its
// documented failure, leaks nothing, and its object still works afterwards.
#include "cmnconfiguration.h"
#include "cmnmsgcatalogmgr.h"
#include "cmnsaxhandler.h"
#include "cmnsaxparser.h"
#include "cmnstringtool.h"
#include "cmntracelog.h"
#include "support/allocationfault.h"
#include "support/command.h"
#include "support/fixture.h"
#include "support/scratchinstallation.h"

#include <xercesc/util/OutOfMemoryException.hpp>

#include <optional>
#include <set>

// Xerces-C itself loses memory when an allocation at the start of a document fails.
extern "C" const char* __lsan_default_suppressions();
extern "C" const char* __lsan_default_suppressions() { return "leak:IGXMLScanner::scanReset"; }

using namespace tarnix_cmn_4_4;
template <class Object>
using Made = CCmnSmartPtr<Object, CCmnDefaultAllocator<Object>>;

namespace
{

struct Allocation : LeakCheck {
    // Calls `use` once for each of its allocations and makes that one fail, alone or with all later
    // ones. `use` returns its result as text; with a failed allocation it may throw, or return one
    // of `failures`.
    void failEach(const std::set<std::string>& failures, const std::function<std::string()>& use)
    {
        const std::string good = use(); // what the first use caches does not count below
        std::size_t requests = 0;
        for (std::size_t i = 1; i < 2 * (requests + 1); ++i) { // the first one only counts
            SCOPED_TRACE(testing::Message() << i / 2 << (i % 2 != 0 ? " and on" : ""));
            const int blocks = AllocationFault::liveBlocks;
            try {
                const AllocationFault fault(i / 2, i % 2 != 0);
                const std::string result = use();
                const AllocationFaultPause pause;
                EXPECT_TRUE(result == good || failures.count(result) > 0) << result;
            } catch (const std::bad_alloc&) {
            } catch (const xercesc::OutOfMemoryException&) {
            }
            requests = i == 1 ? AllocationFault::requests : requests;
            EXPECT_EQ(use(), good);
            EXPECT_EQ(m_MayLeak && i > 1 ? blocks : AllocationFault::liveBlocks, blocks);
        }
        EXPECT_TRUE(requests > 0 && !good.empty());
        std::printf("faults injected: %zu\n", 2 * requests);
    }

    const ScratchInstallation m_Scratch;
    bool m_MayLeak = false;
};

TEST_F(Allocation, Exec)
{
    for (const char* command :
         {"sh -c 'echo a line that is stored on the heap; exit 3'", "/no/such/program/anywhere"})
        failEach({"-1 former"}, [command] {
            const Outcome outcome = run(command); // its result depends on the speed of the child
            return std::to_string(outcome.status) + " " + outcome.lines.at(0);
        });
}

TEST_F(Allocation, Messages)
{
    const icu::Formattable inner[] = {icu::UnicodeString(u"a text that is stored on the heap"), 1},
                           arguments[] = {inner[0], 97, icu::Formattable(inner, 2)};
    CCmnIcuMessage message("an.id", arguments, 3, tarnix_eseverity{7}, "a.cpp", 12), read(message);
    const Made<CCmnMessageCatalogManager> manager(true);
    CCmnErrorHolder holder;
    failEach({}, [&, record = CCmnError(1, L"a text on the heap", L"its file", 2, L"f")] {
        const CCmnIcuMessage copy(message);
        message = copy;
        read.deserialize(message.serialize());
        wchar_t* shown = nullptr;
        manager.get()->getLocalizedMessage("an.id.that.is.stored.on.the.heap", "", &shown);
        const tstr byDefault = manager.get()->getMessage("id", L"a default on the heap", "");
        holder.setError(record);
        const AllocationFaultPause pause;
        return CCmnStringTool::tstr2str(byDefault + shown + holder.getError().getMessage()) +
               message.serialize()->text + read.serialize()->text;
    });
    // Without a number: ICU's number formatter does not check its allocations.
    for (const bool inLanguage : {false, true})
        failEach({"", "{0}!"}, [&, pattern = tstr(L"{0}!")] {
            const tstr text = inLanguage ? message.formatInLanguage(pattern, "de")
                                         : message.formatMessage(pattern);
            const AllocationFaultPause pause;
            return CCmnStringTool::tstr2str(text);
        });
}

// ACE's store does not check its allocations, so only those fail here that throw.
TEST_F(Allocation, TraceAndConfiguration)
{
    AllocationFault::throwingOnly = true;
    const Made<CCmnTraceLog> log(true);
    failEach({""}, [&, line = "longer than most lines" + std::string(3000, 'x')] {
        const Made<CCmnTraceLog> another(true);
        log.get()->initialize(L"t", L"", L"", 1, false);
        log.get()->refresh();
        log.get()->trace(1, "%s", line.c_str());
        const AllocationFaultPause pause;
        const std::string text = m_Scratch.read("Logs/t.log").erase(0, 27); // the time
        std::filesystem::remove(m_Scratch.path("Logs/t.log"));
        std::filesystem::remove(m_Scratch.path("ConfigFiles/t.conf"));
        return text;
    });
    EXPECT_EQ(log.get()->getLastWriteError(), ENOMEM);
    m_Scratch.write("a.conf", "[S]\n\"text\"=\"a value that is stored on the heap\"\n");
    CCmnConfiguration store;
    failEach({}, [&, directory = m_Scratch.widePath()] {
        const int code = store.importConfig(directory.c_str(), L"a.conf") + store.exportConfig();
        const AllocationFaultPause pause;
        tstr value;
        store.getStringValue(L"S", L"text", value);
        return std::to_string(code) + CCmnStringTool::tstr2str(value) + m_Scratch.read("a.conf");
    });
    std::filesystem::remove(m_Scratch.path("ConfigFiles/t.conf"));
    AllocationFault::throwingOnly = false;
    // The two directories and the two files, and no temporary file.
    EXPECT_EQ(m_Scratch.entries(), 4);
}

// Calls of a heap that is not open would crash.
TEST_F(Allocation, AStoreThatIsNotOpenFails)
{
    m_Scratch.write("a.conf", "[S]\n");
    std::optional<CCmnConfiguration> store;
    {
        const AllocationFault fault(3, false); // of ACE, for the store
        store.emplace();
    }
    ACE_Configuration_Section_Key key;
    EXPECT_STREQ(store->getLastError().getMessage(), L"Failed to open configuration heap");
    EXPECT_EQ(store->importConfig(m_Scratch.widePath().c_str(), L"a.conf"), -1);
    EXPECT_EQ(store->exportConfig(), -1);
    EXPECT_EQ(store->openSection(L"S", key, 1), -1);
    EXPECT_EQ(store->setIntegerValue(L"n", 1), -1);
    EXPECT_TRUE(store->enumerateSections().empty());
    EXPECT_TRUE(store->enumerateValues().empty());
}

struct TextHandler : CCmnSaxParseHandler {
    std::string take() { return std::exchange(m_Text, "") + (hasLastError() ? "!" : ""); }
};

TEST_F(Allocation, Sax)
{
    m_MayLeak = true; // Xerces-C does not clean up, but only when an allocation fails
    // The parser keeps Xerces-C in use: the end of its last use allocates, and Xerces-C does not
    // expect that to fail.
    TextHandler handler;
    CCmnSaxParser parser(&handler);
    failEach({}, [&] {
        handler.take();
        const CCmnSaxParser fresh(&handler);
        parser.parse("<!DOCTYPE a [<!ENTITY e 'of an entity'>]><a b='c'>text &e;</b>");
        return handler.take();
    });
}

} // namespace
