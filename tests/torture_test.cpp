// Rounds of random faults, for scripts/torture. TARNIX_TORTURE_SECONDS is the time for each test,
// by default a second; TARNIX_TORTURE_SEED repeats the choices of a former run.
#include "cmnsystemfiles.h"
#include "descriptors.h"
#include "platform.h"
#include "reaping.h"
#include "rightsfile.h"
#include "spawnuser.h"
#include "support/accounts.h"
#include "support/command.h"
#include "support/fixture.h"
#include "support/repeat.h"
#include "support/scratchdirectory.h"

#include <fcntl.h>
#include <linux/fuse.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <random>
#include <set>

using namespace tarnix_platform;

namespace
{

// A fault of the calls that are replaced below: the `number`-th from now on fails, and `more` of
// the following.
struct Fault {
    int number, more, error; // error 0: transfers of bytes are short
};
Fault g_fault{};
bool g_isArmed = false;
int g_injected = 0;

bool isFaulty(bool canBeShort = false)
{
    if (!g_isArmed || --g_fault.number > 0 || g_fault.number + g_fault.more < 0 ||
        (g_fault.error == 0 && !canBeShort))
        return false;
    ++g_injected;
    errno = g_fault.error;
    return true;
}

} // namespace

#define FAULTY(result, name, parameters, arguments)                                                \
    extern "C" result __real_##name parameters;                                                    \
    extern "C" result __wrap_##name parameters { return isFaulty() ? -1 : __real_##name arguments; }
#define FAULTY_TRANSFER(name, buffer)                                                              \
    extern "C" ssize_t __real_##name(int fd, buffer data, std::size_t size);                       \
    extern "C" ssize_t __wrap_##name(int fd, buffer data, std::size_t size)                        \
    {                                                                                              \
        if (!isFaulty(size > 1))                                                                   \
            return __real_##name(fd, data, size);                                                  \
        return g_fault.error != 0 ? -1 : __real_##name(fd, data, 1);                               \
    }
FAULTY(int, open, (const char* path, int flags, mode_t mode), (path, flags, mode))
FAULTY(int, fstat, (int fd, struct stat* info), (fd, info))
FAULTY(int, stat, (const char* path, struct stat* info), (path, info))
FAULTY_TRANSFER(read, void*)
FAULTY_TRANSFER(write, const void*)
FAULTY(ssize_t, pwrite, (int fd, const void* data, std::size_t size, off_t at),
       (fd, data, size, at))
FAULTY(off_t, lseek, (int fd, off_t to, int from), (fd, to, from))
extern "C" int __real_flock(int fd, int operation);
extern "C" int __wrap_flock(int fd, int operation) // to unlock does not fail
{
    return operation != LOCK_UN && isFaulty() ? -1 : __real_flock(fd, operation);
}
extern "C" int __wrap_fsync(int) { return isFaulty() ? -1 : 0; } // no disk: this is faster
FAULTY(int, fchown, (int fd, uid_t user, gid_t group), (fd, user, group))
FAULTY(int, fchmod, (int fd, mode_t mode), (fd, mode))
FAULTY(int, fremovexattr, (int fd, const char* name), (fd, name))
FAULTY(int, rename, (const char* from, const char* to), (from, to))
FAULTY(int, unlink, (const char* path), (path))
FAULTY(int, fcntl, (int fd, int command, long argument), (fd, command, argument))
FAULTY(ssize_t, readlink, (const char* path, char* to, std::size_t size), (path, to, size))

namespace
{

const std::string standing = "# by hand\nholder SeBatchLogonRight\nsecond SeOther\n";
const std::vector<std::string> batch{"SeBatchLogonRight"};

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
    template <typename Values>
    const auto& oneOf(const Values& values)
    {
        return values[static_cast<std::size_t>(below(static_cast<int>(std::size(values))))];
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
    const unsigned int m_Seconds = number("TARNIX_TORTURE_SECONDS", 1);
    const unsigned int m_Seed = number("TARNIX_TORTURE_SEED", std::random_device()());
    std::mt19937 m_Random{m_Seed};
    const std::chrono::steady_clock::time_point m_End =
        std::chrono::steady_clock::now() + std::chrono::seconds(m_Seconds);
    int m_Runs = 0, m_Faults = 0;
};

// System calls of adding or of removing a right fail. Lines of others must stay. A right that
// counts as removed must be; any other must go with the next attempt, or with the process.
TEST_F(Torture, RemovalOfARight)
{
    const int errors[] = {EIO,    ENOSPC, EMFILE, EACCES, EPERM, EROFS,
                          EDQUOT, ENOMEM, EINTR,  EAGAIN, 0};
    const auto attempt = [&](const auto& work) {
        g_fault = {1 + below(40), below(2) * below(60), oneOf(errors)};
        g_isArmed = true;
        SetLastError(0);
        const bool good = work();
        g_isArmed = false;
        EXPECT_TRUE(good || GetLastError() != 0);
        return good;
    };
    for (; goesOn(); ++m_Runs) {
        SCOPED_TRACE("seed " + std::to_string(m_Seed) + ", run " + std::to_string(m_Runs));
        AddedRights added, others;
        const int when = below(3); // another right is added before, after, or not at all
        EXPECT_TRUE(when != 0 || addRights("third", {"SeOther"}, others));
        const bool isAdded = below(4) != 0
                                 ? addRights("second", batch, added)
                                 : attempt([&] { return addRights("second", batch, added); });
        EXPECT_EQ(holdsRight("second", batch[0]), isAdded);
        EXPECT_TRUE(when != 1 || addRights("third", {"SeOther"}, others));
        if (below(20) == 0) { // the process ends after the failure
            const pid_t child = forkChild([&] {
                AddedRights own;
                if (!addRights("fourth", batch, own))
                    return false;
                const bool isRemoved = attempt([&] { return removeRights("fourth", batch, own); });
                return !isRemoved || !holdsRight("fourth", batch[0]);
            });
            EXPECT_EQ(waitForChild(child), 0);
            EXPECT_FALSE(holdsRight("fourth", batch[0]));
        }
        const bool isRemoved = attempt([&] { return removeRights("second", batch, added); });
        EXPECT_FALSE(isRemoved && holdsRight("second", batch[0]));
        EXPECT_TRUE(isRemoved || removeRights("second", batch, added));
        EXPECT_FALSE(holdsRight("second", batch[0]));
        EXPECT_EQ(holdsRight("third", "SeOther"), when != 2);
        EXPECT_TRUE(removeRights("third", {"SeOther"}, others));
        expectCleanAfterAChange();
    }
    m_Faults = g_injected;
    EXPECT_GT(m_Faults, 0);
}

// Processes add and remove rights. Meanwhile another process holds the lock, and they are stopped
// and killed at any moment, also when they hold it themselves.
TEST_F(Torture, TheLockIsHeld)
{
    const std::string path = m_Scratch.path("rights.lock");
    expectCleanAfterAChange(); // creates the lock
    for (; goesOn(); ++m_Runs) {
        std::vector<pid_t> workers;
        for (int i = 0; i < 4; ++i)
            workers.push_back(forkChild([i] {
                const std::string account = "worker" + std::to_string(i / 2);
                for (int cycle = 0; cycle < 50; ++cycle) {
                    AddedRights added;
                    if (!addRights(account, batch, added) || !holdsRight(account, batch[0]) ||
                        !removeRights(account, batch, added))
                        return false;
                }
                return true;
            }));
        std::vector<bool> isKilled(workers.size());
        for (int i = below(8); i >= 0; --i, ++m_Faults) {
            const auto victim = static_cast<std::size_t>(below(static_cast<int>(workers.size())));
            const UniqueFd held = openFile(path.c_str(), O_RDWR);
            switch (below(3)) {
            case 0:
                EXPECT_EQ(flock(held.get(), LOCK_EX), 0);
                usleep(static_cast<useconds_t>(below(30000)));
                break;
            case 1:
                kill(workers[victim], SIGSTOP);
                usleep(static_cast<useconds_t>(below(30000)));
                kill(workers[victim], SIGCONT);
                break;
            default:
                usleep(static_cast<useconds_t>(below(5000)));
                isKilled[victim] = isKilled[victim] || kill(workers[victim], SIGKILL) == 0;
            }
        }
        for (std::size_t i = 0; i < workers.size(); ++i) {
            const int status = waitForChild(workers[i]);
            EXPECT_TRUE(status == 0 || (isKilled[i] && status == SIGKILL)) << status;
        }
        expectCleanAfterAChange();
    }
    if (m_Seconds < 10)
        return; // the following takes as long as the library waits for the lock
    std::vector<pid_t> workers;
    for (int i = 0; i < 20; ++i) {
        workers.push_back(forkChild([] {
            AddedRights added, other;
            if (!addRights("second", batch, added) || raise(SIGSTOP) != 0)
                return false;
            const bool removes = getpid() % 2 == 0;
            const bool good =
                removes ? removeRights("second", batch, added) : addRights("third", batch, other);
            return !good && GetLastError() == ETIMEDOUT && holdsRight("second", batch[0]);
        }));
        EXPECT_EQ(waitpid(workers.back(), nullptr, WUNTRACED), workers.back());
    }
    {
        const UniqueFd held = openFile(path.c_str(), O_RDWR);
        EXPECT_EQ(flock(held.get(), LOCK_EX), 0);
        for (const pid_t worker : workers)
            kill(worker, SIGCONT);
        for (const pid_t worker : workers)
            EXPECT_EQ(waitForChild(worker), 0);
    }
    EXPECT_FALSE(holdsRight("second", batch[0]));
    expectCleanAfterAChange();
    m_Runs += 20, ++m_Faults;
}

// A file system whose process answers nothing but the first request. It writes a byte for each
// other request that it has got: from then on the caller cannot even be killed.
pid_t startSilentFileSystem(const std::string& directory, int reports)
{
    const UniqueFd device = openFile("/dev/fuse", O_RDWR);
    const std::string options =
        "rootmode=40000,user_id=0,group_id=0,allow_other,fd=" + std::to_string(device.get());
    if (mount("silent", directory.c_str(), "fuse", MS_NOSUID, options.c_str()) != 0)
        return -1;
    return forkChild([&] {
        alignas(fuse_in_header) char request[FUSE_MIN_READ_BUFFER];
        while (readSome(device.get(), request, sizeof request) > 0) {
            const auto& head = reinterpret_cast<const fuse_in_header&>(request);
            struct {
                fuse_out_header head;
                fuse_init_out body;
            } answer{{sizeof answer, 0, head.unique}, {}};
            answer.body.major = FUSE_KERNEL_VERSION;
            answer.body.minor = FUSE_KERNEL_MINOR_VERSION;
            answer.body.flags = FUSE_PARALLEL_DIROPS;
            if (head.opcode == FUSE_INIT
                    ? !writeAll(device.get(), &answer, sizeof answer)
                    : head.opcode != FUSE_INTERRUPT && !writeAll(reports, "r", 1))
                return false;
        }
        return true;
    });
}

// Children are blocked in a file system, some before their command has started. None may block its
// caller, and none may be left as a zombie when it can end.
TEST_F(Torture, StuckChildren)
{
    m_Scratch.makeDirectory("silent");
    const std::string silent = m_Scratch.path("silent");
    std::string missing = withoutUsers().empty() ? enterNamespaces({}) : withoutUsers();
    do {
        UniqueFd reports, writer, input, output;
        ASSERT_TRUE(openPipe(reports, writer) && openPipe(input, output));
        const pid_t server = missing.empty() ? startSilentFileSystem(silent, writer.get()) : -1;
        if (missing.empty() && server < 0)
            missing = std::string("cannot mount a silent file system: ") + std::strerror(errno);
        if (mustSkip(missing))
            GTEST_SKIP() << missing;
        const auto plan = [&](const std::vector<std::string>& words, const std::string& directory) {
            return ChildPlan{words, directory, {input.get(), output.get(), output.get()}};
        };
        const int starts = m_Seconds < 10 ? 0 : below(32); // each takes ten seconds
        std::thread users([&] {
            runOnThreads(starts, [&](int) {
                Child child;
                EXPECT_FALSE(spawnAsUser(plan({"true"}, silent), {61002, 61002, {}}, child));
                EXPECT_EQ(GetLastError(), DWORD{ETIMEDOUT});
            });
        });
        std::vector<Child> children(static_cast<std::size_t>(1 + below(32)));
        for (std::size_t i = 0; i < children.size(); ++i) {
            const std::vector<std::string> commands[] = {
                {"cat", silent + '/' + std::to_string(i)}, {"ls", silent}, {"stat", silent}};
            EXPECT_TRUE(spawn(plan(oneOf(commands), ""), children[i]));
        }
        const int stuck = starts + static_cast<int>(children.size());
        char report = 0;
        for (int i = 0; i < stuck; ++i)
            EXPECT_EQ(readSome(reports.get(), &report, 1), 1);
        usleep(static_cast<useconds_t>(below(20000)));
        runOnThreads(static_cast<int>(children.size()), [&](int i) {
            Child& child = children[static_cast<std::size_t>(i)];
            const auto pid = static_cast<id_t>(child.pid);
            {
                const ChildGuard killed(child);
            }
            siginfo_t info{};
            EXPECT_EQ(waitid(P_PID, pid, &info, WEXITED | WNOHANG | WNOWAIT), 0);
            EXPECT_EQ(info.si_pid, 0); // still blocked
        });
        users.join();
        kill(server, SIGKILL); // all requests fail
        EXPECT_EQ(waitForChild(server), SIGKILL);
        for (int i = 0; i < 5000 && processState().second; ++i, usleep(1000))
            reapOrphans();
        EXPECT_FALSE(processState().second);
        EXPECT_EQ(umount(silent.c_str()), 0);
        m_Runs += stuck, m_Faults += stuck;
    } while (goesOn());
}

// Whatever the environment holds, it takes effect in the command only, which gets all of it.
TEST_F(Torture, HostileEnvironments)
{
    if (mustSkip(withoutUsers()))
        GTEST_SKIP() << withoutUsers();
    m_Scratch.makeDirectory("pam.d");
    m_Scratch.write("pam.d/tarnix",
                    "auth required pam_permit.so\naccount required pam_permit.so\n");
    m_Scratch.write("passwd", "second:x:61002:61102:::\n");
    m_Scratch.write("group", "");
    m_Scratch.makeDirectory("bad");
    m_Scratch.write("bad/libc.so.6", "not a library");
    useAccountsIn(m_Scratch.path());
    const std::string bad = m_Scratch.path("bad");
    const std::string hostile[] = {"LD_PRELOAD=/no/such.so",
                                   "LD_AUDIT=/no/such.so",
                                   "LD_LIBRARY_PATH=" + bad,
                                   "GCONV_PATH=" + bad,
                                   "LOCPATH=" + bad,
                                   "GLIBC_TUNABLES=glibc.malloc.check=3",
                                   "LC_ALL=\xff",
                                   "MALLOC_PERTURB_=85",
                                   "TMPDIR=/no/such",
                                   "IFS=/",
                                   "PATH=" + bad,
                                   "=",
                                   "",
                                   "=x=y",
                                   "novalue",
                                   "x=\n\x01\xfe"};
    char** const former = environ;
    for (; goesOn(); ++m_Runs) {
        SCOPED_TRACE("seed " + std::to_string(m_Seed) + ", run " + std::to_string(m_Runs));
        std::set<std::string> chosen; // the loader takes only one of several of the same name
        while (below(4) != 0)
            chosen.insert(oneOf(hostile));
        std::vector<std::string> variables(chosen.begin(), chosen.end());
        for (int i = below(2) * below(100); i > 0; --i)
            variables.push_back("v" + std::to_string(i) + '=' +
                                std::string(static_cast<std::size_t>(below(1000)), 'v'));
        if (below(8) == 0)
            variables.push_back("long=" + std::string(131000, 'l'));
        std::shuffle(variables.begin(), variables.end(), m_Random);
        std::vector<char*> pointers = pointersTo(variables);
        environ = pointers.data();
        tarnix_cmn_4_4::CCmnExecPipeWindows runner;
        const Outcome outcome =
            exec(runner, "/usr/bin/od -An -v -tx1 /proc/self/environ", 60, "/", "second", "any");
        environ = former;
        m_Faults += static_cast<int>(chosen.size());
        if (chosen.count("LD_LIBRARY_PATH=" + bad) != 0) {
            EXPECT_EQ(outcome.status, 127); // of the command, which has started
            continue;
        }
        std::size_t complaints = 0;
        std::string got, expected;
        for (const std::string& line : outcome.lines)
            if (line.rfind("ERROR: ld.so", 0) == 0)
                ++complaints;
            else
                got += line;
        for (const std::string& variable : variables)
            for (const char* byte = variable.c_str();; ++byte) {
                char hex[4];
                std::snprintf(hex, sizeof hex, " %02x", static_cast<unsigned char>(*byte));
                expected += hex;
                if (*byte == '\0')
                    break;
            }
        EXPECT_EQ(complaints, chosen.count(hostile[0]) + chosen.count(hostile[1]));
        EXPECT_TRUE(got == expected) << got.size() << " of " << expected.size();
    }
}

} // namespace
