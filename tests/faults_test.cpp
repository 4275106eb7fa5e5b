// Every call of the platform and every allocation of a run refused in turn: what comes out, what is
// left behind, and whether the next run works.
#include "cmnexecpipewindows.h"
#include "cmntracelog.h"
#include "refusal.h"
#include "scratch.h"
#include "scripted_platform.h"

#include <new>

using namespace tarnix_cmn_4_4;

namespace
{

struct Bare : CCmnExecPipeWindows {
    using CCmnExecPipeWindows::m_Lock;
};

using Log = CCmnSmartPtr<CCmnTraceLog, CCmnDefaultAllocator<CCmnTraceLog>>;

const char allocation[] = "allocation"; // as an operation
const std::string command = "a command with a word or two";
const std::string password = "a password that is too long to lie within the string";

struct Kind {
    const char* name;
    std::deque<int> reads;
    std::deque<DWORD> multipleWaits, singleWaits;
    bool endedAtOnce;
    DWORD exitStatus;
    std::string user;
    std::set<std::string> rights;
    int code;
    bool busy = false; // another runner holds an added right
};

constexpr DWORD late = WAIT_TIMEOUT;
const std::string user = "a user with quite a long name";
const std::set<std::string> entitled{"SeBatchLogonRight"};
const Kind kinds[] = {
    {"plain", {'a', '\n', Script::pending, 'b'}, {}, {}, false, 0, "", {}, 0},
    {"ended early", {'a', '\n', 'b'}, {}, {}, true, 3, user, entitled, 0},
    {"timed out", {'a', '\n', Script::pending}, {late}, {late, late, late}, false, 0, user, {}, 5},
    {"stopped", {'a', Script::readError}, {}, {late, late, late}, false, 0, "", {}, 11},
    {"failed", {'a', Script::pending}, {WAIT_OBJECT_0}, {}, false, 3, user, {}, 11},
    {"refused", {}, {}, {}, false, 0, "nobody", {}, 4},
    {"busy", {}, {}, {}, false, 0, user, {}, 9, true},
};

// What else may come of a failure. A run that could not read goes on to the end of its child.
const std::pair<std::string, std::set<int>> otherCodes[] = {
    {"CreateNamedPipeA CreateFileA", {1}},
    {"DuplicateHandle", {2}},
    {"CloseHandle", {3}},
    {"CreateProcessA CreateProcessAsUserA", {4}},
    {"LogonUserA", {4, 10}},
    {"LsaOpenPolicy LsaAddAccountRights", {10}},
    {"CreateEventA ReadFile GetOverlappedResult WaitForMultipleObjectsEx", {0, 11}},
    {"GetVersionExW GetTokenInformation", {0}},
    {"WaitForSingleObject", {11}},
    {"GetExitCodeProcess", {8}},
};

// The operations of the platform that can run out of memory.
const std::string allocating =
    "CreateEventA CreateNamedPipeA CreateFileA DuplicateHandle CreateProcessA "
    "CreateProcessAsUserA FormatMessageW LogonUserA LsaOpenPolicy LsaEnumerateAccountRights "
    "LsaAddAccountRights LsaRemoveAccountRights";

bool isAmong(const std::string& operations, const std::string& operation)
{
    return (" " + operations + " ").find(" " + operation + " ") != std::string::npos;
}

class Faults : public testing::Test
{
protected:
    Faults() : m_Log(true)
    {
        m_Scratch.makeDirectory("install");
        m_Scratch.setRegistry(m_Scratch.path("install/"), "");
        m_Log.get()->initialize(L"runner", L"", L"", 1, false);
        m_Log.get()->trace(1, "a first line: some of what it takes is kept for good");
        m_Shown.reserve(100); // so is its block
    }

    // A whole run, the end of the runner included. Returns the code that it came to, or -1 for an
    // exception.
    int run(const Kind& kind)
    {
        script.reads = kind.reads;
        script.multipleWaits = kind.multipleWaits;
        script.singleWaits = kind.singleWaits;
        script.endedAtOnce = kind.endedAtOnce;
        script.exitStatus = kind.exitStatus;
        if (kind.busy) {
            Bare::m_Lock.tryLock();
        }
        try {
            const Refusal refusal(script.operation == allocation ? script.call : 0, script.onwards);
            CCmnExecPipeWindows runner;
            runner.setTraceLog(m_Log);
            std::vector<std::string> lines;
            const int result = runner.Exec(command, lines, "", 7, "", kind.user, password);
            const Calm calm;
            const ECmnExecPipe record = runner.getLastError();
            const int code = record.getCode();
            const bool ofUser = code == 9 || code == 10;
            EXPECT_EQ(result, ofUser || code == 4 ? 3 : code);
            EXPECT_EQ(record.getSubject(), code == 0 ? "" : ofUser ? kind.user : command);
            return code;
        } catch (const std::bad_alloc&) {
            return -1;
        }
    }

    void expectNothingLeft(const Kind& kind, const std::string& operation)
    {
        EXPECT_EQ(script.open.size(), 0U);
        EXPECT_EQ(script.wrongCloses, 0);
        EXPECT_EQ(Bare::m_Lock.tryLock(), !kind.busy);
        Bare::m_Lock.unlock();
        EXPECT_TRUE(!script.childRuns || operation == "Stop");
        // Removing the right may itself fail; and a right that could not be read counts as none.
        EXPECT_TRUE(script.rights == kind.rights ||
                    isAmong("LsaRemoveAccountRights LsaEnumerateAccountRights", operation));
        for (const std::string& entry : script.log) {
            m_Shown += entry;
        }
    }

    void inject(const Kind& kind, const std::string& operation, int call, bool onwards, bool throws)
    {
        SCOPED_TRACE(testing::Message() << kind.name << ": " << operation << " " << call
                                        << (onwards ? " and on" : "") << (throws ? " throws" : ""));
        script.operation = operation, script.call = call;
        const int blocks = Refusal::blocks;
        script.onwards = onwards, script.throws = throws;
        script.rights = kind.rights;
        const int code = run(kind);
        const bool startNeedsIt = isAmong(
            "CreateNamedPipeA DuplicateHandle CreateProcessA CreateProcessAsUserA", operation);
        bool told = code == kind.code && !(startNeedsIt && kind.code == 0);
        if (throws || operation == allocation) {
            told = told || code == -1 || code == 8;
        }
        for (const auto& [operations, codes] : otherCodes) {
            told = told || (isAmong(operations, operation) && codes.count(code) > 0);
        }
        EXPECT_TRUE(told) << code;
        expectNothingLeft(kind, operation);
        script = Script();
        EXPECT_EQ(Refusal::blocks, blocks);
        script.rights = kind.rights;
        EXPECT_EQ(run(kind), kind.code); // of a new runner
        expectNothingLeft(kind, "none");
        script = Script();
    }

    Scratch m_Scratch;
    Log m_Log;
    std::string m_Shown; // to the platform, in records and in the log
};

TEST_F(Faults, EveryCallAndEveryAllocation)
{
    int injected = 0;
    for (const Kind& kind : kinds) {
        script = Script();
        script.rights = kind.rights;
        EXPECT_EQ(run(kind), kind.code);
        auto calls = script.calls;
        calls[allocation] = Refusal::asked;
        EXPECT_GT(calls[allocation], 0);
        expectNothingLeft(kind, "none");
        script = Script();
        for (const auto& [operation, count] : calls) {
            for (int call = 1; call <= count; ++call) {
                for (const bool onwards : {false, true}) {
                    inject(kind, operation, call, onwards, false);
                    ++injected;
                    if (isAmong(allocating, operation)) {
                        inject(kind, operation, call, onwards, true);
                        ++injected;
                    }
                }
            }
        }
    }
    EXPECT_GT(injected, 0);
    std::printf("faults injected: %d\n", injected);
    m_Shown += m_Scratch.read("install/Logs/runner.log");
    EXPECT_EQ(m_Shown.find(password), std::string::npos);
}

} // namespace
