// SPDX-License-Identifier: LicenseRef-Tarnix
// Failures of a real system: full disks, no descriptors, missing permissions, a clock that is set
// back, and another process on the same files.
#include "cmnconfiguration.h"
#include "cmntracelog.h"
#include "rightsfile.h"
#include "support/command.h"
#include "support/fixture.h"
#include "support/scratchinstallation.h"

#include <grp.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>

#include <set>

static long g_daysBack = 0; // if it is not 0, each call sets the clock back by another day

// Replaces the real-time clock of this program; the clocks for waits stay as they are.
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
    // Whether this text could be exported, and the file can be read afterwards.
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

TEST_F(Trouble, OutOfDescriptors)
{
    std::set<int> results;
    for (auto limit = static_cast<rlim_t>(m_Before.first); results.count(0) == 0; ++limit) {
        setLimit(RLIMIT_NOFILE, limit);
        const Outcome outcome = run("/bin/echo good");
        EXPECT_EQ(outcome.lines == Lines{"good"}, outcome.result == 0) << limit;
        results.insert(outcome.result);
    }
    setLimit(RLIMIT_NOFILE, RLIM_INFINITY);
    EXPECT_EQ(results, (std::set<int>{0, 1, 3}));
}

// A user without rights exports settings. A file that the user cannot write stays. Another user's
// writable file is replaced, and then its group gets no more permissions than all others have; or,
// in a directory that the user cannot write, it is written in place. Then the user reaches the
// limit of processes.
TEST_F(Trouble, AnUnprivilegedUser)
{
    SKIP_IF(withoutUsers());
    m_Scratch.makeDirectory("open");
    m_Scratch.write("open/fixed", "");
    for (const char* file : {"t", "open/t"}) {
        m_Scratch.write(file, "[a longer section]\n");
        chmod(m_Scratch.path(file).c_str(), 0676);
    }
    chmod(m_Scratch.path().c_str(), 0755);
    chmod(m_Scratch.path("open").c_str(), 0777);
    const pid_t child = forkChild([this] {
        const rlimit none{0, 0};
        return setgroups(0, nullptr) == 0 && setgid(65534) == 0 && setuid(65534) == 0 &&
               save(L"t", L"new") && save(L"open/t", L"new") && !save(L"open/fixed", L"new") &&
               setrlimit(RLIMIT_NPROC, &none) == 0 &&
               run("/bin/true").record.getDescription().find(L"cannot create process") == 0 &&
               !processState().second;
    });
    EXPECT_EQ(waitForChild(child), 0);
    EXPECT_EQ(m_Scratch.read("t"), m_Scratch.read("open/t"));
    EXPECT_EQ(std::filesystem::status(m_Scratch.path("open/t")).permissions(),
              std::filesystem::perms(0666));
}

// A trace line is lost while the disk is full, but no later one, even if the file is removed. The
// old settings and the old rights survive a failed change. An added right is revoked.
TEST_F(Trouble, TheDiskIsFull)
{
    SKIP_WITHOUT_PROC();
    const std::string full = m_Scratch.path("full");
    m_Scratch.makeDirectory("full");
    SKIP_IF(enterNamespaces({}));
    ASSERT_EQ(mount("none", full.c_str(), "tmpfs", 0, "size=64k,mode=755"), 0);
    m_Log.get()->initialize(L"t", m_Scratch.widePath("full").c_str(), L"t.log", 1, false);
    EXPECT_TRUE(save(L"full/t", L"old"));
    m_Scratch.write("full/rights", "second SeOther\n");
    setRightsFile((full + "/rights").c_str());
    tarnix_platform::AddedRights added, refused;
    EXPECT_TRUE(tarnix_platform::addRights("holder", {"SeOther"}, added));
    const std::string rights = m_Scratch.read("full/rights");
    std::ofstream(full + "/filler") << std::string(128 * 1024, 'f'); // not all of it
    EXPECT_FALSE(save(L"full/t", std::wstring(8000, L't')));
    EXPECT_EQ(m_Scratch.read("full/t"), "[s]\n\"a\"=\"old\"\n");
    EXPECT_FALSE(tarnix_platform::addRights("third", {"SeOther"}, refused));
    EXPECT_EQ(m_Scratch.read("full/rights"), rights);
    EXPECT_TRUE(tarnix_platform::removeRights("holder", {"SeOther"}, added));
    EXPECT_FALSE(tarnix_platform::holdsRight("holder", "SeOther"));
    setRightsFile(nullptr);
    EXPECT_EQ(m_Scratch.entries("full"), 5); // the filler and the lock too
    m_Log.get()->trace(1, "lost");
    for (const char* file : {"/filler", "/t.log"})
        std::filesystem::remove(full + file);
    m_Log.get()->trace(1, "space again");
    EXPECT_NE(m_Scratch.read("full/t.log").find(" space again\n"), std::string::npos);
    EXPECT_EQ(umount(full.c_str()), 0);
}

TEST_F(Trouble, TheClockIsSetBackDuringARun)
{
    g_daysBack = 1;
    EXPECT_EQ(run("/bin/sleep 1.5", 1).result, ECmnExecPipe::READ_TIMEOUT);
    g_daysBack = 0;
}

// Two processes write to the same trace file and export the same settings.
TEST_F(Trouble, TwoProcessesOnTheSameFiles)
{
    constexpr std::size_t count = 5000;
    m_Log.get()->initialize(L"t", m_Scratch.widePath().c_str(), L"t.log", 1, false);
    const auto writer = [this](const wchar_t* name) {
        for (std::size_t i = 0; i < count; ++i)
            m_Log.get()->trace(1, "%ls %zu", name, i);
        bool good = true;
        for (int i = 0; i < 300; ++i)
            good = save(L"t.settings", name) && good;
        return good;
    };
    const pid_t other = forkChild([&] { return writer(L"left"); });
    EXPECT_TRUE(writer(L"right"));
    EXPECT_EQ(waitForChild(other), 0);
    const Lines lines = m_Scratch.readLines("t.log");
    for (const std::string& line : lines)
        EXPECT_LT(std::min(line.find(" left "), line.find(" right ")), line.size()) << line;
    EXPECT_EQ(lines.size(), 2 * count);
}

} // namespace
