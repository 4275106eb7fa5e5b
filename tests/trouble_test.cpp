// Real trouble: what runs out, goes away, stands still or meets another process during use.
#include "cmnconfiguration.h"
#include "cmntracelog.h"
#include "fixture.h"
#include "support/command.h"
#include "support/scratchinstallation.h"

#include <grp.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>

#include <set>

static long g_daysBack = 0; // from then on one more with each look at the clock

// The clock of the day for everything in this program; clocks for waits are left alone.
extern "C" [[gnu::visibility("default")]] int clock_gettime(clockid_t id, timespec* now) noexcept
{
    const long result = syscall(SYS_clock_gettime, id, now);
    if (id == CLOCK_REALTIME && g_daysBack > 0)
        now->tv_sec -= 86400 * g_daysBack++;
    return static_cast<int>(result);
}

using namespace tarnix_cmn_4_4;

namespace
{

struct Trouble : LeakCheck {
    // Whether a value of this text was exported, and one can be read then.
    bool save(const wchar_t* file, const std::wstring& text) const
    {
        const std::wstring directory = m_Scratch.widePath();
        CCmnConfiguration store(directory.c_str(), file, false);
        ACE_Configuration_Section_Key section;
        store.openSection(L"s", section, 1);
        store.setStringValue(L"a", text.c_str());
        tstr value;
        return store.exportConfig() == 0 &&
               CCmnConfiguration(directory.c_str(), file, true).getStringValue(L"s", L"a", value) ==
                   0;
    }

    const ScratchInstallation m_Scratch;
    const CCmnSmartPtr<CCmnTraceLog, CCmnDefaultAllocator<CCmnTraceLog>> m_Log{true};
};

TEST_F(Trouble, NoDescriptorIsLeft)
{
#ifdef __SANITIZE_ADDRESS__
    GTEST_SKIP() << "the sanitizer needs a descriptor to look at an object's type";
#endif
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    rlimit low{static_cast<rlim_t>(m_Before.first) - 1, limit.rlim_max};
    std::set<int> results;
    for (; results.count(0) == 0; ++low.rlim_cur) {
        setrlimit(RLIMIT_NOFILE, &low);
        const Outcome outcome = run("/bin/echo well");
        EXPECT_EQ(outcome.lines == Lines{"well"}, outcome.result == 0) << low.rlim_cur;
        results.insert(outcome.result);
    }
    setrlimit(RLIMIT_NOFILE, &limit);
    EXPECT_EQ(results, (std::set<int>{0, 1, 3}));
}

// Settings that he may not write stay. Another's that he may write are replaced, and then the group
// may do no more than all others; or written in place, where the directory may not be written. And
// there is no process left for him.
TEST_F(Trouble, AUserWhoMayDoLittle)
{
    if (mustSkip(geteuid() == 0 ? "" : "it needs root"))
        GTEST_SKIP();
    m_Scratch.makeDirectory("open");
    m_Scratch.write("open/fixed", "");
    for (const char* file : {"t", "open/t"}) {
        m_Scratch.write(file, "[old]\n");
        chmod(m_Scratch.path(file).c_str(), 0676);
    }
    chmod(m_Scratch.path().c_str(), 0755);
    chmod(m_Scratch.path("open").c_str(), 0777);
    const pid_t child = forkChild([this] {
        const rlimit none{0, 0};
        return setgroups(0, nullptr) == 0 && setgid(65534) == 0 && setuid(65534) == 0 &&
               save(L"t", L"new") && save(L"open/t", L"new") && !save(L"open/fixed", L"new") &&
               setrlimit(RLIMIT_NPROC, &none) == 0 &&
               run("/bin/true").record.getCode() == ECmnExecPipe::CREATE_CHILD_PROCESS_FAILED &&
               !processState().second;
    });
    EXPECT_EQ(waitForChild(child), 0);
    EXPECT_EQ(std::filesystem::status(m_Scratch.path("open/t")).permissions(),
              std::filesystem::perms(0666));
}

// A trace line that finds no room is lost, but none after it, even if the file goes away; the old
// settings survive an export that finds none.
TEST_F(Trouble, NoRoomOnTheDisk)
{
    const std::string full = m_Scratch.path("full");
    m_Scratch.makeDirectory("full");
    if (mustSkip(enterNamespaces({})))
        GTEST_SKIP();
    ASSERT_EQ(mount("none", full.c_str(), "tmpfs", 0, "size=64k"), 0);
    m_Log.get()->initialize(L"t", m_Scratch.widePath("full").c_str(), L"t.log", 1, false);
    EXPECT_TRUE(save(L"full/t", L"old"));
    std::ofstream(full + "/filler") << std::string(128 * 1024, 'f'); // not all of it
    EXPECT_FALSE(save(L"full/t", std::wstring(8000, L't')));
    EXPECT_EQ(m_Scratch.read("full/t"), "[s]\n\"a\"=\"old\"\n");
    EXPECT_EQ(m_Scratch.entries("full"), 3); // and the filler
    m_Log.get()->trace(1, "lost");
    for (const char* file : {"/filler", "/t.log"})
        std::filesystem::remove(full + file);
    m_Log.get()->trace(1, "room again");
    EXPECT_NE(m_Scratch.read("full/t.log").find(" room again\n"), std::string::npos);
    EXPECT_EQ(umount(full.c_str()), 0);
}

TEST_F(Trouble, TheClockIsSetBackDuringARun)
{
    g_daysBack = 1;
    EXPECT_EQ(run("/bin/sleep 2", 1).result, ECmnExecPipe::READ_TIMEOUT);
    g_daysBack = 0;
}

// Two host processes write to one trace file and export one file of settings.
TEST_F(Trouble, TwoProcessesOnTheSameFiles)
{
    constexpr std::size_t count = 5000;
    m_Log.get()->initialize(L"t", m_Scratch.widePath().c_str(), L"t.log", 1, false);
    const auto host = [this](const wchar_t* name) {
        for (std::size_t i = 0; i < count; ++i)
            m_Log.get()->trace(1, "%ls %zu", name, i);
        bool good = true;
        for (int i = 0; i < 300; ++i)
            good = save(L"t.settings", name) && good;
        return good;
    };
    const pid_t other = forkChild([&] { return host(L"left"); });
    EXPECT_TRUE(host(L"right"));
    EXPECT_EQ(waitForChild(other), 0);
    const Lines lines = m_Scratch.readLines("t.log");
    for (const std::string& line : lines)
        EXPECT_LT(std::min(line.find(" left "), line.find(" right ")), line.size()) << line;
    EXPECT_EQ(lines.size(), 2 * count);
}

} // namespace
