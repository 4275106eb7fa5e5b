// Real trouble: what runs out, goes away, stands still or meets another process during use.
#include "cmnconfiguration.h"
#include "cmnexecpipewindows.h"
#include "cmnsmartptr.h"
#include "cmntracelog.h"
#include "processstate.h"
#include "scratch.h"

#include <atomic>
#include <grp.h>
#include <set>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>

static std::atomic<long> g_clockShift{0}; // seconds

// The clock of the day for everything in this program; clocks for waits are left alone.
extern "C" [[gnu::visibility("default")]] int clock_gettime(clockid_t id, timespec* now) noexcept
{
    const long result = syscall(SYS_clock_gettime, id, now);
    if (result == 0 && id == CLOCK_REALTIME)
        now->tv_sec += g_clockShift;
    return static_cast<int>(result);
}

using namespace tarnix_cmn_4_4;
using LogPtr = CCmnSmartPtr<CCmnTraceLog, CCmnDefaultAllocator<CCmnTraceLog>>;

namespace
{

class Trouble : public NothingLeft
{
protected:
    Trouble() { m_Scratch.setRegistry(m_Scratch.path(), ""); }

    LogPtr log(const wchar_t* file) const
    {
        LogPtr log(true);
        log.get()->initialize(L"t", m_Scratch.wide().c_str(), file, 1, false);
        return log;
    }

    // Whether the values, long ones of the same text, were exported.
    bool save(const wchar_t* file, const std::wstring& text) const
    {
        CCmnConfiguration store(m_Scratch.wide().c_str(), file, false);
        ACE_Configuration_Section_Key section;
        store.openSection(L"s", section, 1);
        for (const wchar_t* value : {L"a", L"b", L"c"})
            store.setStringValue(value, tstr(text.c_str()));
        return store.exportConfig() == 0;
    }

    Scratch m_Scratch;
};

TEST_F(Trouble, NoDescriptorIsLeft)
{
#ifdef __SANITIZE_ADDRESS__
    GTEST_SKIP() << "the sanitizer needs a descriptor to look at an object's type";
#endif
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    std::set<int> results;
    for (rlim_t left = 0; left <= 16; ++left) {
        const rlimit low{static_cast<rlim_t>(m_Before.first) - 1 + left, limit.rlim_max};
        setrlimit(RLIMIT_NOFILE, &low);
        const Outcome outcome = run("/bin/echo well");
        setrlimit(RLIMIT_NOFILE, &limit);
        results.insert(outcome.result);
        EXPECT_EQ(outcome.lines == Lines{"well"}, outcome.result == 0) << left;
        EXPECT_EQ(processState(), m_Before) << left;
        EXPECT_EQ(run("/bin/echo well").lines, Lines{"well"});
    }
    // With some it fails, and with enough it works.
    EXPECT_TRUE(results.count(0) == 1 && results.size() > 1);
    EXPECT_EQ(results.count(ECmnExecPipe::ERROR_UNEXPECTED), 0U);
}

TEST_F(Trouble, NoProcessIsLeft)
{
    if (mustSkip(geteuid() == 0 ? "" : "it needs root"))
        GTEST_SKIP();
    endApart(beginApart([] {
        const rlimit none{0, 0};
        return setuid(65534) == 0 && setrlimit(RLIMIT_NPROC, &none) == 0 &&
               run("/bin/true").record.getCode() == ECmnExecPipe::CREATE_CHILD_PROCESS_FAILED &&
               processState().second == 0;
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
    const LogPtr traces = log(L"full/t.log");
    EXPECT_TRUE(save(L"full/t.settings", L"old"));
    const std::string old = m_Scratch.read("full/t.settings");
    m_Scratch.write("full/filler", std::string(128 * 1024, 'f'));
    EXPECT_FALSE(save(L"full/t.settings", std::wstring(8000, L't')));
    EXPECT_EQ(m_Scratch.read("full/t.settings"), old);
    for (int i = 0; i < 100; ++i)
        traces.get()->trace(1, "%s", std::string(100, 'l').c_str());
    std::filesystem::remove(full + "/filler");
    traces.get()->trace(1, "room again");
    const std::string text = m_Scratch.read("full/t.log"), last = " room again\n";
    EXPECT_EQ(text.rfind(last), text.size() - last.size());
    EXPECT_TRUE(save(L"full/t.settings", L"new"));
    EXPECT_EQ(umount(full.c_str()), 0);
}

// Another user's settings: replaced, and then the group may do no more than all others; or written
// in place, where the directory may not be written.
TEST_F(Trouble, SettingsOfAnotherOwner)
{
    if (mustSkip(geteuid() == 0 ? "" : "it needs root"))
        GTEST_SKIP();
    std::filesystem::permissions(m_Scratch.path(), std::filesystem::perms(0755));
    for (const char* directory : {"open", "closed"}) {
        const std::string file = std::string(directory) + "/t.settings";
        m_Scratch.makeDirectory(directory);
        m_Scratch.write(file, "[old]\n");
        std::filesystem::permissions(m_Scratch.path(file), std::filesystem::perms(0676));
    }
    std::filesystem::permissions(m_Scratch.path("open"), std::filesystem::perms(0777));
    endApart(beginApart([this] {
        return setgroups(0, nullptr) == 0 && setgid(65534) == 0 && setuid(65534) == 0 &&
               save(L"open/t.settings", L"new") && save(L"closed/t.settings", L"new");
    }));
    struct stat open, closed;
    EXPECT_EQ(stat(m_Scratch.path("open/t.settings").c_str(), &open), 0);
    EXPECT_EQ(stat(m_Scratch.path("closed/t.settings").c_str(), &closed), 0);
    EXPECT_TRUE(open.st_uid == 65534 && (open.st_mode & 07777) == 0666) << open.st_mode;
    EXPECT_TRUE(closed.st_uid == 0 && (closed.st_mode & 07777) == 0676) << closed.st_mode;
    for (const char* file : {"open/t.settings", "closed/t.settings"})
        EXPECT_NE(m_Scratch.read(file).find("\"a\"=\"new\""), std::string::npos);
}

TEST_F(Trouble, FilesGoAwayDuringUse)
{
    const LogPtr traces = log(L"t.log");
    std::filesystem::remove(m_Scratch.path("t.log"));
    traces.get()->trace(1, "one");
    EXPECT_NE(m_Scratch.read("t.log").find(" one\n"), std::string::npos);
    std::filesystem::copy_file("/bin/true", m_Scratch.path("program"));
    EXPECT_EQ(run(m_Scratch.path("program")).result, 0);
    std::filesystem::remove(m_Scratch.path("program"));
    EXPECT_EQ(run(m_Scratch.path("program")).result, 3);
}

TEST_F(Trouble, TheClockIsSetBack)
{
    std::thread back([] { g_clockShift = -86400; }); // during the run, or just before it
    EXPECT_EQ(run("/bin/sleep 2", 1).result, ECmnExecPipe::READ_TIMEOUT);
    back.join();
    EXPECT_EQ(run("/bin/echo well").lines, Lines{"well"});
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
            well = save(L"t.settings", name);
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
