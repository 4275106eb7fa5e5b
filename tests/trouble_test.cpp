// Real trouble: what runs out, goes away, stands still or meets another process during use.
#include "cmnconfiguration.h"
#include "cmnexecpipewindows.h"
#include "cmnsmartptr.h"
#include "cmntracelog.h"
#include "processstate.h"
#include "scratch.h"

#include <atomic>
#include <ctime>
#include <set>
#include <sys/resource.h>
#include <sys/syscall.h>

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

class Trouble : public NothingLeft
{
protected:
    Trouble()
    {
        m_Scratch.setRegistry(m_Scratch.path(), "");
        expectUsable(); // makes the layer's own tables
        begin();
    }

    LogPtr log(const wchar_t* file) const
    {
        LogPtr log(true);
        log.get()->initialize(L"t", m_Scratch.wide().c_str(), file, 1, false);
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
    if (mustSkip(geteuid() == 0 ? "" : "it needs root"))
        GTEST_SKIP();
    endApart(beginApart([] {
        const rlimit none{0, 0};
        if (setuid(65534) != 0 || setrlimit(RLIMIT_NPROC, &none) != 0)
            return false;
        Lines lines;
        CCmnExecPipeWindows runner;
        const int result = runner.Exec("/bin/true", lines, "", 60, "", "", "");
        return result == 3 &&
               runner.getLastError().getCode() == ECmnExecPipe::CREATE_CHILD_PROCESS_FAILED &&
               ProcessState::now().children == 0;
    }));
}

// A trace line that finds no room is lost; the old settings survive an export that finds none.
TEST_F(Trouble, NoRoomOnTheDisk)
{
    const std::string full = m_Scratch.path("full");
    m_Scratch.makeDirectory("full");
    if (mustSkip(enterNamespaces({})))
        GTEST_SKIP();
    ASSERT_EQ(mount("none", full.c_str(), "tmpfs", 0, "size=64k"), 0);
    {
        const LogPtr traces = log(L"full/t.log");
        CCmnConfiguration store(m_Scratch.wide("full/").c_str(), L"t.settings", false);
        ACE_Configuration_Section_Key section;
        store.openSection(L"s", section, 1);
        store.setIntegerValue(L"number", 1);
        EXPECT_EQ(store.exportConfig(), 0);
        const std::string old = m_Scratch.read("full/t.settings");

        m_Scratch.write("full/filler", std::string(128 * 1024, 'f'));
        store.setStringValue(L"text", tstr(std::wstring(8000, L't').c_str()));
        EXPECT_NE(store.exportConfig(), 0);
        EXPECT_EQ(m_Scratch.read("full/t.settings"), old);
        for (int i = 0; i < 100; ++i)
            traces.get()->trace(1, "%s", std::string(100, 'l').c_str());

        std::filesystem::remove(full + "/filler");
        traces.get()->trace(1, "room again");
        const std::string text = m_Scratch.read("full/t.log"), last = " room again\n";
        EXPECT_EQ(text.rfind(last), text.size() - last.size());
        EXPECT_EQ(store.exportConfig(), 0);
    }
    EXPECT_EQ(umount(full.c_str()), 0);
}

TEST_F(Trouble, FilesGoAwayDuringUse)
{
    const LogPtr traces = log(L"t.log");
    std::filesystem::remove(m_Scratch.path("t.log"));
    traces.get()->trace(1, "one");
    EXPECT_NE(m_Scratch.read("t.log").find(" one\n"), std::string::npos);
    std::filesystem::remove(m_Scratch.path("ConfigFiles/t.conf"));
    EXPECT_EQ(traces.get()->updateConfigFile(m_Scratch.wide().c_str(), L"t.log", 0), 0);
    EXPECT_NE(m_Scratch.read("ConfigFiles/t.conf").find("TRACELEVEL"), std::string::npos);
    traces.get()->trace(1, "two is dropped");
    EXPECT_EQ(m_Scratch.read("t.log").find("two"), std::string::npos);
    if (geteuid() != 0) { // root may write all the same
        std::filesystem::permissions(m_Scratch.path("t.log"), std::filesystem::perms(0400));
        traces.get()->trace(0, "three is lost");
        EXPECT_EQ(m_Scratch.read("t.log").find("three"), std::string::npos);
    }
    Lines lines;
    std::filesystem::copy_file("/bin/true", m_Scratch.path("program"));
    EXPECT_EQ(run(m_Scratch.path("program"), lines), 0);
    std::filesystem::remove(m_Scratch.path("program"));
    EXPECT_EQ(run(m_Scratch.path("program"), lines), 3);
}

TEST_F(Trouble, TheClockIsSetBackAndForth)
{
    for (const long shift : {-3600L, 86400L, -2000000000L}) {
        g_clockShift = shift;
        expectUsable();
    }
    Lines lines;
    std::thread back([] { g_clockShift = -86400; }); // during the run, or just before it
    EXPECT_EQ(run("/bin/sleep 60", lines, 1), ECmnExecPipe::READ_TIMEOUT);
    back.join();
    g_clockShift = 0;
}

// Two host processes write to one trace file and export one file of settings.
TEST_F(Trouble, TwoProcessesOnTheSameFiles)
{
    constexpr int rounds = 300;
    const auto host = [this](const wchar_t* name) {
        const LogPtr traces = log(L"t.log");
        bool well = true;
        for (int i = 0; well && i < rounds; ++i) {
            traces.get()->trace(1, "%ls %d", name, i);
            CCmnConfiguration store(m_Scratch.wide().c_str(), L"t.settings", false);
            ACE_Configuration_Section_Key section;
            store.openSection(L"s", section, 1);
            for (const wchar_t* value : {L"a", L"b", L"c"})
                store.setStringValue(value, name);
            well = store.exportConfig() == 0;
            CCmnConfiguration reader(m_Scratch.wide().c_str(), L"t.settings", true);
            tstr first, last;
            well = well && reader.getStringValue(L"s", L"a", first) == 0 &&
                   reader.getStringValue(L"s", L"c", last) == 0 && first == last;
        }
        return well;
    };
    const pid_t other = beginApart([&] { return host(L"left"); });
    EXPECT_TRUE(host(L"right"));
    endApart(other);
    std::istringstream text(m_Scratch.read("t.log"));
    int count = 0;
    for (std::string line; std::getline(text, line); ++count)
        EXPECT_LT(std::min(line.find(" left "), line.find(" right ")), line.size()) << line;
    EXPECT_EQ(count, 2 * rounds);
    for (const auto& entry : std::filesystem::directory_iterator(m_Scratch.path()))
        EXPECT_NE(entry.path().filename().string().rfind(".tarnix-", 0), 0U) << entry.path();
}

} // namespace
