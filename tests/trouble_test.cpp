// Real trouble: what runs out, goes away, stands still or meets another process during use.
#include "cmnconfiguration.h"
#include "cmnexecpipewindows.h"
#include "cmnsmartptr.h"
#include "cmntracelog.h"
#include "processstate.h"
#include "scratch.h"

#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <functional>
#include <gtest/gtest.h>
#include <sched.h>
#include <set>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <sys/wait.h>

using namespace tarnix_cmn_4_4;
using Lines = std::vector<std::string>;
using LogPtr = CCmnSmartPtr<CCmnTraceLog, CCmnDefaultAllocator<CCmnTraceLog>>;

namespace
{

std::atomic<long> g_clockShift{0}; // seconds

} // namespace

// The clock of the day for everything in this program; clocks for waits are left alone.
extern "C" [[gnu::visibility("default")]] int clock_gettime(clockid_t id, timespec* now) noexcept
{
    const long result = syscall(SYS_clock_gettime, id, now);
    if (result == 0 && id == CLOCK_REALTIME)
        now->tv_sec += g_clockShift;
    return static_cast<int>(result);
}

extern "C" [[gnu::visibility("default")]] std::time_t time(std::time_t* place)
{
    timespec now{};
    syscall(SYS_clock_gettime, CLOCK_REALTIME, &now);
    now.tv_sec += g_clockShift;
    if (place != nullptr)
        *place = now.tv_sec;
    return now.tv_sec;
}

namespace
{

int run(const std::string& command, Lines& lines, unsigned long seconds = 60)
{
    CCmnExecPipeWindows runner;
    return runner.Exec(command, lines, "", seconds, "", "", "");
}

void expectUsable()
{
    Lines lines;
    EXPECT_EQ(run("/bin/echo well", lines), 0);
    EXPECT_EQ(lines, Lines{"well"});
}

// Begins the work in a process of its own, which may change its limits, its user and its mounts. To
// be called while there is one thread only: a lock that another holds would stay taken in the
// child.
pid_t beginApart(const std::function<bool()>& work)
{
    const pid_t child = fork();
    if (child == 0) {
        bool well = false;
        try {
            well = work();
        } catch (const std::exception& problem) {
            std::fprintf(stderr, "%s\n", problem.what());
        }
        _exit(well ? 0 : 1);
    }
    return child;
}

// What the work returned must be true.
void endApart(pid_t child)
{
    int status = -1;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    EXPECT_EQ(status, 0);
}

void apart(const std::function<bool()>& work) { endApart(beginApart(work)); }

bool needsRoot()
{
    if (geteuid() == 0)
        return false;
    EXPECT_EQ(std::getenv("TARNIX_REQUIRE_ROOT_TESTS"), nullptr) << "it needs root";
    return true;
}

// Root in a container often may not.
bool mayMount()
{
    const pid_t child = fork();
    if (child == 0)
        _exit(unshare(CLONE_NEWNS) == 0 ? 0 : 1);
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_TRUE(status == 0 || std::getenv("TARNIX_REQUIRE_ROOT_TESTS") == nullptr);
    return status == 0;
}

class Trouble : public testing::Test
{
protected:
    Trouble() { m_Scratch.setRegistry(m_Scratch.path(), ""); }

    LogPtr log(const char* file) const
    {
        LogPtr log(true);
        log.get()->initialize(L"t", m_Scratch.wide().c_str(),
                              tstr(std::wstring(file, file + std::strlen(file)).c_str()), 1, false);
        return log;
    }

    Scratch m_Scratch;
};

TEST_F(Trouble, NoDescriptorIsLeft)
{
#ifdef __SANITIZE_ADDRESS__
    GTEST_SKIP() << "the sanitizer needs a descriptor to look at an object's type";
#else
    const ProcessState before = ProcessState::now();
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    std::set<int> results;
    for (rlim_t left = 0; left <= 16; ++left) {
        const rlimit low{static_cast<rlim_t>(before.descriptors) - 1 + left, limit.rlim_max};
        setrlimit(RLIMIT_NOFILE, &low);
        Lines lines;
        const int result = run("/bin/echo well", lines);
        setrlimit(RLIMIT_NOFILE, &limit);
        results.insert(result);
        EXPECT_EQ(lines, result == 0 ? Lines{"well"} : Lines{}) << left;
        EXPECT_EQ(ProcessState::now(), before) << left;
        expectUsable();
    }
    // With some it fails, and with enough it works.
    EXPECT_TRUE(results.count(0) == 1 && results.size() > 1);
    EXPECT_EQ(results.count(ECmnExecPipe::ERROR_UNEXPECTED), 0U);
#endif
}

TEST_F(Trouble, NoProcessIsLeft)
{
    if (needsRoot())
        GTEST_SKIP();
    apart([] {
        const rlimit none{0, 0};
        if (setuid(65534) != 0 || setrlimit(RLIMIT_NPROC, &none) != 0)
            return false;
        Lines lines;
        CCmnExecPipeWindows runner;
        const int result = runner.Exec("/bin/true", lines, "", 60, "", "", "");
        return result == 3 &&
               runner.getLastError().getCode() == ECmnExecPipe::CREATE_CHILD_PROCESS_FAILED &&
               ProcessState::now().children == 0;
    });
}

// A trace line that finds no room is lost; the old settings survive an export that finds none.
TEST_F(Trouble, NoRoomOnTheDisk)
{
    if (needsRoot() || !mayMount())
        GTEST_SKIP();
    apart([this] {
        const std::string full = m_Scratch.path("full");
        m_Scratch.makeDirectory("full");
        if (unshare(CLONE_NEWNS) != 0 ||
            mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
            mount("none", full.c_str(), "tmpfs", 0, "size=64k") != 0)
            return false;
        const LogPtr traces = log("full/t.log");
        CCmnConfiguration store(m_Scratch.wide("full/").c_str(), L"t.settings", false);
        ACE_Configuration_Section_Key section;
        store.openSection(L"s", section, 1);
        store.setIntegerValue(L"number", 1);
        bool well = store.exportConfig() == 0;
        const std::string old = m_Scratch.read("full/t.settings");

        m_Scratch.write("full/filler", std::string(128 * 1024, 'f'));
        store.setStringValue(L"text", tstr(std::wstring(8000, L't').c_str()));
        well = well && store.exportConfig() != 0 && m_Scratch.read("full/t.settings") == old;
        for (int i = 0; i < 100; ++i)
            traces.get()->trace(1, "%s", std::string(100, 'l').c_str());

        std::filesystem::remove(full + "/filler");
        traces.get()->trace(1, "room again");
        const std::string text = m_Scratch.read("full/t.log");
        const std::string last = " room again\n";
        return well && store.exportConfig() == 0 && text.size() > last.size() &&
               text.compare(text.size() - last.size(), last.size(), last) == 0;
    });
}

TEST_F(Trouble, FilesGoAwayOrTurnReadOnlyDuringUse)
{
    const LogPtr traces = log("t.log");
    traces.get()->trace(1, "one");
    std::filesystem::remove(m_Scratch.path("t.log"));
    traces.get()->trace(1, "two");
    EXPECT_NE(m_Scratch.read("t.log").find(" two\n"), std::string::npos);
    std::filesystem::remove(m_Scratch.path("ConfigFiles/t.conf"));
    traces.get()->trace(1, "three");
    EXPECT_EQ(traces.get()->updateConfigFile(m_Scratch.wide().c_str(), L"t.log", 0), 0);
    EXPECT_NE(m_Scratch.read("ConfigFiles/t.conf").find("TRACELEVEL"), std::string::npos);
    traces.get()->trace(1, "four is dropped");
    EXPECT_EQ(m_Scratch.read("t.log").find("four"), std::string::npos);

    std::filesystem::copy_file("/bin/true", m_Scratch.path("program"));
    Lines lines;
    EXPECT_EQ(run(m_Scratch.path("program"), lines), 0);
    std::filesystem::remove(m_Scratch.path("program"));
    EXPECT_EQ(run(m_Scratch.path("program"), lines), 3);
    if (geteuid() != 0) { // root may write all the same
        std::filesystem::permissions(m_Scratch.path("t.log"), std::filesystem::perms(0400));
        traces.get()->trace(0, "five is lost");
        EXPECT_EQ(m_Scratch.read("t.log").find("five"), std::string::npos);
    }
}

TEST_F(Trouble, TheClockIsSetBackAndForth)
{
    const ProcessState before = ProcessState::now();
    for (const long shift : {-3600L, 86400L, -2000000000L}) {
        g_clockShift = shift;
        expectUsable();
    }
    Lines lines;
    std::thread back([] { g_clockShift = -86400; }); // during the run, or just before it
    EXPECT_EQ(run("/bin/sleep 60", lines, 1), ECmnExecPipe::READ_TIMEOUT);
    back.join();
    g_clockShift = 0;
    EXPECT_EQ(ProcessState::now(), before);
}

// The wait for output ends, and the object's end kills what cannot end by itself.
TEST_F(Trouble, AChildThatIsHeld)
{
    const ProcessState before = ProcessState::now();
    Lines lines;
    EXPECT_EQ(run("/bin/sh -c 'echo held; kill -STOP $$; echo never'", lines, 10),
              ECmnExecPipe::READ_TIMEOUT);
    EXPECT_EQ(lines, Lines{"held"});
    EXPECT_EQ(ProcessState::now(), before);
}

// Two host processes write to one trace file and export one file of settings.
TEST_F(Trouble, TwoProcessesOnTheSameFiles)
{
    constexpr int rounds = 300;
    const auto host = [this](const std::wstring& name) {
        const LogPtr traces = log("t.log");
        for (int i = 0; i < rounds; ++i) {
            traces.get()->trace(1, "%ls %d", name.c_str(), i);
            CCmnConfiguration store(m_Scratch.wide().c_str(), L"t.settings", false);
            ACE_Configuration_Section_Key section;
            store.openSection(L"s", section, 1);
            for (const wchar_t* value : {L"a", L"b", L"c"})
                store.setStringValue(value, name.c_str());
            if (store.exportConfig() != 0)
                return false;
            CCmnConfiguration reader(m_Scratch.wide().c_str(), L"t.settings", true);
            tstr first;
            tstr last;
            if (reader.getStringValue(L"s", L"a", first) != 0 ||
                reader.getStringValue(L"s", L"c", last) != 0 || first != last)
                return false;
        }
        return true;
    };
    const pid_t other = beginApart([&] { return host(L"left"); });
    apart([&] { return host(L"right"); });
    endApart(other);
    std::istringstream text(m_Scratch.read("t.log"));
    int count = 0;
    for (std::string line; std::getline(text, line); ++count) {
        const std::size_t place = std::min(line.find(" left "), line.find(" right "));
        EXPECT_NE(place, std::string::npos) << line;
    }
    EXPECT_EQ(count, 2 * rounds);
    for (const auto& entry : std::filesystem::directory_iterator(m_Scratch.path()))
        EXPECT_NE(entry.path().filename().string().rfind(".tarnix-", 0), 0U) << entry.path();
}

} // namespace
