// SPDX-License-Identifier: LicenseRef-Tarnix
// Rounds of random faults, for scripts/torture. TARNIX_TORTURE_SECONDS is the time for each test,
// by default a second; TARNIX_TORTURE_SEED repeats the choices of a former run.
#include "cmnsystemfiles.h"
#include "descriptors.h"
#include "platform.h"
#include "reaping.h"
#include "rightsfile.h"
#include "spawnuser.h"
#include "support/fixture.h"
#include "support/repeat.h"
#include "support/scratchdirectory.h"

#include <fcntl.h>
#include <linux/fuse.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <chrono>
#include <csignal>
#include <cstring>
#include <random>

using namespace tarnix_platform;

namespace
{

// Of the calls that are replaced below, the `number`-th from now on fails, and `more` after it;
// none without an error.
struct Fault {
    int number, more, error;
};
Fault g_fault{};
int g_injected = 0;

bool isFaulty()
{
    if (g_fault.error == 0 || --g_fault.number > 0 || g_fault.number + g_fault.more < 0)
        return false;
    ++g_injected;
    errno = g_fault.error;
    return true;
}

} // namespace

#define FAULTY(result, name, parameters, arguments)                                                \
    extern "C" result __real_##name parameters;                                                    \
    extern "C" result __wrap_##name parameters { return isFaulty() ? -1 : __real_##name arguments; }
FAULTY(int, open, (const char* path, int flags, mode_t mode), (path, flags, mode))
FAULTY(int, openat, (int at, const char* path, int flags, mode_t mode), (at, path, flags, mode))
FAULTY(int, fstat, (int fd, struct stat* info), (fd, info))
FAULTY(ssize_t, read, (int fd, void* data, std::size_t size), (fd, data, size))
FAULTY(ssize_t, write, (int fd, const void* data, std::size_t size), (fd, data, size))
FAULTY(ssize_t, pwrite, (int fd, const void* data, std::size_t n, off_t to), (fd, data, n, to))
FAULTY(int, fchown, (int fd, uid_t user, gid_t group), (fd, user, group))
FAULTY(int, fchmod, (int fd, mode_t mode), (fd, mode))
FAULTY(int, renameat, (int at, const char* path, int to, const char* name), (at, path, to, name))
FAULTY(int, fcntl, (int fd, int command, long argument), (fd, command, argument))
extern "C" int __wrap_fsync(int) { return isFaulty() ? -1 : 0; } // no disk: this is faster

namespace
{

const std::string standing = "# by hand\nholder SeBatchLogonRight\nsecond SeOther\n";
const std::vector<std::string> batch{"SeBatchLogonRight"}, other{"SeOther"};

struct Torture : LeakCheck {
    void SetUp() override
    {
        SKIP_WITHOUT_PROC();
        m_Scratch.write("rights", standing);
        chmod(m_Scratch.path().c_str(), 0711);
        tarnix_cmn_4_4::setRightsFile(m_Scratch.path("rights").c_str());
    }
    ~Torture() override
    {
        tarnix_cmn_4_4::setRightsFile(nullptr);
        std::printf("torture: %d runs, faults injected: %d, seed %u\n", m_Runs, m_Faults, m_Seed);
    }

    static unsigned int number(const char* name, unsigned int otherwise)
    {
        const char* const text = std::getenv(name);
        return text != nullptr ? static_cast<unsigned int>(std::atoi(text)) : otherwise;
    }
    bool goesOn() const { return std::chrono::steady_clock::now() < m_End && !HasFailure(); }
    int below(int limit) { return static_cast<int>(m_Random() % static_cast<unsigned int>(limit)); }
    template <class Choice>
    Choice oneOf(std::initializer_list<Choice> choices)
    {
        return choices.begin()[below(static_cast<int>(choices.size()))];
    }

    // The result of the work, which sets an error if it fails.
    template <class Work>
    bool withFault(const Fault& fault, const Work& work)
    {
        g_fault = fault;
        SetLastError(0);
        const bool good = work();
        g_fault = {};
        EXPECT_TRUE(good || GetLastError() != 0);
        m_Faults = g_injected;
        return good;
    }

    // Any change removes what ended processes have left.
    void expectCleanAfterAChange()
    {
        AddedRights added;
        EXPECT_TRUE(addRights("third", batch, added));
        EXPECT_TRUE(removeRights("third", batch, added));
        EXPECT_EQ(m_Scratch.read("rights"), standing);
    }

    const ScratchDirectory m_Scratch;
    const unsigned int m_Seed = number("TARNIX_TORTURE_SEED", std::random_device()());
    std::mt19937 m_Random{m_Seed};
    const std::chrono::steady_clock::time_point m_End =
        std::chrono::steady_clock::now() +
        std::chrono::seconds(number("TARNIX_TORTURE_SECONDS", 1));
    int m_Runs = 0, m_Faults = 0;
};

// System calls of adding or of removing a right fail. Lines of others must stay. A right that
// counts as removed must be; any other must go with the next attempt.
TEST_F(Torture, RemovalOfARight)
{
    const auto anyFault = [this] {
        return Fault{1 + below(40), below(2) * below(60),
                     oneOf({EIO, ENOSPC, EMFILE, EACCES, EPERM, EROFS, EDQUOT, ENOMEM, EINTR})};
    };
    for (; goesOn(); ++m_Runs) {
        SCOPED_TRACE("seed " + std::to_string(m_Seed) + ", run " + std::to_string(m_Runs));
        AddedRights added, ofThird;
        const auto add = [&added] { return addRights("second", batch, added); };
        const auto remove = [&added] { return removeRights("second", batch, added); };
        const auto addThird = [&ofThird] { return addRights("third", other, ofThird); };
        const std::string third = oneOf({"is added first", "is added last", "has no right"});
        EXPECT_TRUE(third != "is added first" || addThird());
        const bool isAdded = below(4) != 0 ? add() : withFault(anyFault(), add);
        EXPECT_EQ(holdsRight("second", batch[0]), isAdded);
        EXPECT_TRUE(third != "is added last" || addThird());
        const bool isRemoved = withFault(anyFault(), remove);
        EXPECT_FALSE(isRemoved && holdsRight("second", batch[0]));
        EXPECT_TRUE(isRemoved || remove());
        EXPECT_FALSE(holdsRight("second", batch[0]));
        EXPECT_EQ(holdsRight("third", other[0]), third != "has no right");
        EXPECT_TRUE(removeRights("third", other, ofThird));
        expectCleanAfterAChange();
    }
    EXPECT_GT(m_Faults, 0);
}

bool addsAndRemovesARight()
{
    const std::string account = "worker" + std::to_string(getpid() % 2);
    bool good = true;
    for (int cycle = 0; cycle < 50 && good; ++cycle) {
        AddedRights added;
        good = addRights(account, batch, added) && holdsRight(account, batch[0]) &&
               removeRights(account, batch, added);
    }
    return good;
}

// Processes add and remove rights. Meanwhile another process holds the lock, and they are stopped
// and killed at any moment, also when they hold it themselves.
TEST_F(Torture, TheLockIsHeld)
{
    struct Worker {
        const pid_t pid = forkChild(addsAndRemovesARight);
        bool isKilled = false;
    };
    expectCleanAfterAChange(); // creates the lock
    for (; goesOn(); ++m_Runs) {
        Worker workers[4];
        for (int i = below(8); i >= 0; --i, ++m_Faults) {
            Worker& worker = workers[below(4)];
            const UniqueFd lock = openFile(m_Scratch.path("rights.lock").c_str(), O_RDWR);
            const std::string attack = oneOf({"lock", "stop", "kill"});
            EXPECT_TRUE(attack != "lock" || flock(lock.get(), LOCK_EX) == 0);
            EXPECT_TRUE(attack != "stop" || kill(worker.pid, SIGSTOP) == 0);
            usleep(static_cast<useconds_t>(below(30000)));
            EXPECT_EQ(kill(worker.pid, attack == "kill" ? SIGKILL : SIGCONT), 0);
            worker.isKilled = worker.isKilled || attack == "kill";
        }
        for (const Worker& worker : workers) {
            const int status = waitForChild(worker.pid);
            EXPECT_TRUE(status == 0 || (worker.isKilled && status == SIGKILL)) << status;
        }
        expectCleanAfterAChange();
    }
}

// Answers nothing but the first request. Whoever waits for an answer to another cannot even be
// killed.
bool serveSilently(int device)
{
    alarm(9); // before the limit of a start that is not set would end
    alignas(fuse_in_header) char request[FUSE_MIN_READ_BUFFER];
    while (readSome(device, request, sizeof request) > 0) {
        const auto& head = reinterpret_cast<const fuse_in_header&>(request);
        struct {
            fuse_out_header head;
            fuse_init_out body;
        } answer{{sizeof answer, 0, head.unique}, {}};
        answer.body.major = FUSE_KERNEL_VERSION;
        answer.body.minor = FUSE_KERNEL_MINOR_VERSION;
        answer.body.flags = FUSE_PARALLEL_DIROPS;
        if (head.opcode == FUSE_INIT && !writeAll(device, &answer, sizeof answer))
            return false;
    }
    return true;
}

// Mounts such a file system, and returns its process, or -1.
pid_t startSilentFileSystem(const std::string& directory)
{
    const UniqueFd device = openFile("/dev/fuse", O_RDWR);
    const std::string options =
        "rootmode=40000,user_id=0,group_id=0,allow_other,fd=" + std::to_string(device.get());
    return mount("silent", directory.c_str(), "fuse", MS_NOSUID, options.c_str()) == 0
               ? forkChild([&device] { return serveSilently(device.get()); })
               : -1;
}

// The user blocks children in a file system, when they enter the directory or start the command. No
// caller may wait for their end, and none may be left as a zombie when it can end.
TEST_F(Torture, StuckChildren)
{
    m_Scratch.makeDirectory("silent");
    const std::string silent = m_Scratch.path("silent");
    std::string missing = withoutUsers().empty() ? enterNamespaces({}) : withoutUsers();
    setUserStartLimit(100);
    do {
        const pid_t server = missing.empty() ? startSilentFileSystem(silent) : -1;
        if (missing.empty() && server < 0)
            missing = std::string("cannot mount a silent file system: ") + std::strerror(errno);
        SKIP_IF(missing);
        UniqueFd input, output;
        EXPECT_TRUE(openPipe(input, output));
        const int threads = 1 + below(64), inDirectory = below(threads + 1);
        runOnThreads(threads, [&](int i) {
            const bool enters = i < inDirectory;
            const ChildPlan plan{{enters ? "true" : silent + '/' + std::to_string(i)},
                                 enters ? silent : "/",
                                 {input.get(), output.get(), output.get()}};
            Child child;
            EXPECT_FALSE(spawnAsUser(plan, {61002, 61002, {}}, child));
            EXPECT_EQ(GetLastError(), DWORD{ETIMEDOUT});
        });
        kill(server, SIGKILL); // all requests fail
        EXPECT_EQ(waitForChild(server), SIGKILL);
        for (int i = 0; i < 5000 && processState().second; ++i, usleep(1000))
            reapOrphans();
        EXPECT_FALSE(processState().second);
        EXPECT_EQ(umount(silent.c_str()), 0);
        m_Runs += threads;
        m_Faults += threads;
    } while (goesOn());
}

} // namespace
