// Real runs as other accounts. They need root, and a mount namespace in which the account files are
// the test's own: nothing of the machine is touched.
#include "cmnexecpipewindows.h"
#include "processstate.h"
#include "scratch.h"

#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <string_view>
#include <sys/prctl.h>

// PAM loads and unloads its modules for each logon. The loader's own lock is not seen by the thread
// sanitizer, which then takes two of these for a race.
extern "C" [[gnu::visibility("default")]] const char* __tsan_default_suppressions()
{
    return "race:ld-linux\n";
}

using namespace tarnix_cmn_4_4;

namespace
{

constexpr char password[] = "right word";
constexpr char passwordHash[] = "$6$tarnixsalt$OuyeuLhzveeqL4q1CD4I9Qwd3pB8wDNMcU3lWRutYTTjVJQtRf5."
                                "5f4i08HIlZgh5CyNSbkTOhvqMIcvxA/PN/";

const std::string standing = "# by hand\nholder SeBatchLogonRight\nstrange\n";

// Made once for the program: "holder" holds the right, the others do not.
struct Accounts : Scratch {
    std::string missing = "it needs root";

    Accounts()
    {
        std::string passwd, shadow, group = "friends:x:61900:second,holder\n";
        int uid = 61000;
        for (const std::string name : {"root", "holder", "second", "third", "expired"}) {
            const std::string number = name == "root" ? "0" : std::to_string(++uid);
            passwd += name + ":x:" + number + ":" + number + "::/nonexistent:/bin/sh\n";
            shadow +=
                name + ":" + passwordHash + ":19000:::::" + (name == "expired" ? "1" : "") + ":\n";
            group += name + ":x:" + number + ":\n";
        }
        write("passwd", passwd);
        write("shadow", shadow);
        write("group", group);
        write("order", "passwd: files\ngroup: files\nshadow: files\n");
        makeDirectory("pam");
        write("pam/tarnix", "auth required pam_unix.so nodelay\naccount required pam_unix.so\n");
        makeDirectory("private");
        std::filesystem::permissions(path(), std::filesystem::perms(0755));
        for (const char* own : {"shadow", "private"})
            std::filesystem::permissions(path(own), std::filesystem::perms(0700));
        if (geteuid() == 0) {
            missing = enterNamespaces({{path("passwd"), "/etc/passwd"},
                                       {path("shadow"), "/etc/shadow"},
                                       {path("group"), "/etc/group"},
                                       {path("order"), "/etc/nsswitch.conf"},
                                       {path("pam"), "/etc/pam.d"}});
        }
        TxSetRightsFile(path("rights").c_str());
    }
};

class Identity : public NothingLeft
{
protected:
    static void SetUpTestSuite() { accounts = std::make_unique<Accounts>(); }
    static void TearDownTestSuite() { accounts.reset(); }

    void SetUp() override
    {
        if (mustSkip(accounts->missing))
            GTEST_SKIP() << accounts->missing;
        accounts->write("rights", standing);
    }
    void TearDown() override
    {
        NothingLeft::TearDown();
        if (accounts->missing.empty()) {
            EXPECT_EQ(accounts->read("rights"), standing);
            EXPECT_EQ(prctl(PR_GET_DUMPABLE), 1);
        }
    }

    static Outcome as(const std::string& user, const std::string& command)
    {
        CCmnExecPipeWindows runner;
        return exec(runner, command, 60, "/", user, password);
    }

    static std::unique_ptr<Accounts> accounts;
};

std::unique_ptr<Accounts> Identity::accounts;

TEST_F(Identity, TheChildIsTheUserForGood)
{
    for (const std::string user : {"holder", "second"}) {
        const std::pair<const char*, std::string> cases[] = {
            {"id -un", user},
            {"id -Gn", user + " friends"},
            {"sh -c 'grep -c \"^[UG]id:.0\" /proc/self/status; :'", "0"},
            {"grep CapEff /proc/self/status", "CapEff:\t0000000000000000"},
            {"sh -c 'echo $(ls /proc/self/fd)'", "0 1 2 3"}, // 3 is the directory
            // A session of its own: the caller's terminal is out of reach.
            {"sh -c 'test $(cut -d\" \" -f6 /proc/self/stat) = $$ && echo own'", "own"},
            {"sh -c 'echo again > /dev/stdout'", "again"},
            {"cat /etc/shadow", "cat: /etc/shadow: Permission denied"},
        };
        for (const auto& [command, line] : cases)
            EXPECT_EQ(as(user, command).lines, Lines{line});
    }
}

TEST_F(Identity, Refusals)
{
    const struct {
        std::string user, password, dir;
        std::wstring text;
        uid_t caller = 0;
        std::string command = "id -u";
    } cases[] = {
        {"holder", "wrong", "/", L"the logon of 'holder' was refused, Authentication failure"},
        {"holder", "", "/", L"was refused"},
        {"nobody-here", password, "/", L"there is no such account"},
        {"expired", password, "/", L"was refused, User account has expired"},
        {"holder", password, accounts->path("private"), L"Permission denied"},
        {"second", password, "/no/such/dir", L"cannot enter directory"},
        {"second", password, "/", L"this process may not take another identity", 61001},
        {"second", password, "/", L"cannot start program '/no/such'", 0, "/no/such"},
    };
    for (const auto& test : cases) {
        CCmnExecPipeWindows runner;
        EXPECT_EQ(seteuid(test.caller), 0);
        const Outcome outcome = exec(runner, test.command, 60, test.dir, test.user, test.password);
        EXPECT_EQ(seteuid(0), 0);
        EXPECT_EQ(outcome.result, 3);
        EXPECT_EQ(outcome.lines, Lines{"former"}); // nothing ran as the caller
        EXPECT_EQ(outcome.record.getCode(), ECmnExecPipe::CREATE_CHILD_PROCESS_FAILED);
        EXPECT_NE(outcome.record.getDescription().find(test.text), std::wstring::npos)
            << test.user << " " << test.dir;
    }
    EXPECT_EQ(prctl(PR_SET_DUMPABLE, 1), 0); // as it was before the change of the caller
}

TEST_F(Identity, TheRightIsAddedForTheRunOnly)
{
    CCmnExecPipeWindows first;
    // A run that times out keeps the right until the object ends.
    EXPECT_EQ(exec(first, "sh -c 'echo in; exec sleep 600'", 1, "/", "second", password).result, 5);
    EXPECT_EQ(accounts->read("rights"), standing + "second SeBatchLogonRight\n");
    EXPECT_EQ(as("holder", "id -un").lines, Lines{"holder"}); // needs no lock
    EXPECT_EQ(as("third", "id -un").record.getCode(), 9);     // and this one does
    // Used for another account without a word of its end, it gives up the former one's right.
    EXPECT_EQ(exec(first, "id -un", 60, "/", "holder", password).lines, Lines{"holder"});
    EXPECT_EQ(accounts->read("rights"), standing);
    EXPECT_EQ(as("third", "id -un").lines, Lines{"third"});
}

// Other accounts' rights change at the same time, from several processes; some are killed wherever
// they are.
TEST_F(Identity, ManyWritersKeepTheFileWhole)
{
    std::vector<pid_t> writers;
    for (int w = 0; w < 3; ++w) {
        writers.push_back(beginApart([w] {
            LSA_OBJECT_ATTRIBUTES attributes{};
            LSA_HANDLE policy = nullptr;
            bool good = LsaOpenPolicy(nullptr, &attributes, 0, &policy) == 0;
            std::string sid(8, '\0'); // size and user id are not looked at
            sid += "writer" + std::to_string(w);
            std::wstring name = L"SeOther";
            LSA_UNICODE_STRING right{28, 32, name.data()};
            for (int i = 0; i < 100; ++i) {
                good = good && LsaAddAccountRights(policy, sid.data(), &right, 1) == 0 &&
                       LsaRemoveAccountRights(policy, sid.data(), true, nullptr, 0) == 0;
            }
            return good;
        }));
    }
    for (int i = 0; i < 100; ++i)
        ASSERT_EQ(as("second", "id -un").lines, Lines{"second"});
    for (const pid_t pid : writers)
        endApart(pid);
    for (int round = 0; round < 20; ++round) {
        const pid_t pid = beginApart([] {
            while (as("second", "true").result == 0) {
            }
            return false;
        });
        // After a number of looks that differs from round to round.
        for (int look = 0; look < 300 * round; ++look)
            std::this_thread::yield();
        kill(pid, SIGKILL);
        ASSERT_EQ(waitpid(pid, nullptr, 0), pid);
        const std::string rights = accounts->read("rights");
        EXPECT_TRUE(rights == standing || rights == standing + "second SeBatchLogonRight\n")
            << rights;
        accounts->write("rights", standing);
    }
}

// Whoever the child becomes may stop it: the start must neither hang nor run anything else.
TEST_F(Identity, AUserWhoStopsHisChildGainsNothing)
{
    const pid_t attacker = beginApart([] {
        if (setresgid(61002, 61002, 61002) != 0 || setresuid(61002, 61002, 61002) != 0)
            return false;
        for (pid_t next = 1;; next = next % 200 + 1) { // each as soon as it is permitted
            if (kill(getpid() + next, SIGSTOP) == 0)
                kill(getpid() + next, SIGCONT);
        }
    });
    for (int i = 0; i < 30; ++i) {
        const Lines lines = as("second", "id -un").lines;
        EXPECT_TRUE(lines == Lines{"former"} || lines == Lines{} || lines == Lines{"second"});
    }
    kill(attacker, SIGKILL);
    EXPECT_EQ(waitpid(attacker, nullptr, 0), attacker);
}

// What such a process has open stays open when the library closes it.
TEST_F(Identity, AHostThatForksMeanwhile)
{
    int gate[2];
    ASSERT_EQ(pipe2(gate, O_CLOEXEC), 0);
    std::atomic<bool> over{false};
    std::vector<pid_t> workers;
    std::thread forking([&] {
        while (!over && workers.size() < 300) {
            workers.push_back(fork());
            if (workers.back() == 0) {
                close(gate[1]);
                char end = 0;
                _exit(read(gate[0], &end, 1) == 0 ? 0 : 1);
            }
        }
    });
    for (int i = 0; i < 10; ++i)
        EXPECT_EQ(as("second", "id -un").lines, Lines{"second"});
    over = true;
    forking.join();
    close(gate[1]);
    for (const pid_t worker : workers)
        endApart(worker);
    close(gate[0]);
}

// Kept backwards, so that no copy of the test's own counts.
constexpr char backwards[] = "paeh eht rof hguone gnol ,drow fo draehnu";
constexpr std::string_view end(backwards, 20); // what an allocator leaves in memory that was freed

std::string secret() { return std::string(std::rbegin(backwards) + 1, std::rend(backwards)); }

// Searches this process's own memory, as a core would show it, without leaving copies about.
int copiesOfSecret()
{
    static char piece[1 << 20];
    const int memory = open("/proc/self/mem", O_RDONLY | O_CLOEXEC);
    std::ifstream maps("/proc/self/maps");
    int found = 0;
    for (std::string line; std::getline(maps, line);) {
        std::uintptr_t at = 0, stop = 0;
        std::sscanf(line.c_str(), "%lx-%lx", &at, &stop);
        if (stop - at > std::uintptr_t{1} << 32)
            continue; // a sanitizer's shadow is larger than any memory
        // Pieces overlap by what could be cut; the buffer itself is passed over.
        for (; at < stop; at += sizeof piece - sizeof backwards) {
            const auto own = reinterpret_cast<std::uintptr_t>(piece);
            const bool isOwn = at < own + sizeof piece && own < at + sizeof piece;
            const std::size_t size = isOwn ? 0 : std::min(stop - at, sizeof piece);
            const ssize_t got = pread(memory, piece, size, static_cast<off_t>(at));
            const char* const last = piece + std::max(got, ssize_t{0});
            // By its first byte: most memory is zero, and a sanitizer looks at each step of a loop.
            const auto next = [last](const char* from) {
                return static_cast<const char*>(
                    std::memchr(from, end.back(), static_cast<std::size_t>(last - from)));
            };
            for (const char* hit = next(piece); hit; hit = next(hit + 1))
                found += static_cast<std::size_t>(last - hit) >= end.size() &&
                         std::equal(end.rbegin(), end.rend(), hit);
        }
    }
    std::memset(piece, 0, sizeof piece);
    close(memory);
    return found;
}

TEST_F(Identity, ThePasswordIsWiped)
{
#ifdef __SANITIZE_THREAD__
    GTEST_SKIP() << "to search the sanitizer's own memory would make all of it resident";
#endif
    for (const bool anotherRun : {false, true}) {
        {
            CCmnExecPipeWindows runner;
            Lines lines;
            runner.Exec("id -u", lines, "", 60, "/", "holder", secret()); // refused, but tried
            EXPECT_EQ(copiesOfSecret(), 1);                               // the runner's
            if (anotherRun)
                runner.Exec("true", lines, "", 60, "/", "", "another");
            EXPECT_EQ(copiesOfSecret(), anotherRun ? 0 : 1);
        }
        EXPECT_EQ(copiesOfSecret(), 0);
    }
}

} // namespace
