// Real runs as other accounts. They need root, and a mount namespace in which the account files are
// the test's own: nothing of the machine is touched.
#include "cmnexecpipewindows.h"
#include "processstate.h"
#include "scratch.h"

#include <csignal>
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
using Lines = std::vector<std::string>;

namespace
{

constexpr char password[] = "right word";
constexpr char passwordHash[] = "$6$tarnixsalt$OuyeuLhzveeqL4q1CD4I9Qwd3pB8wDNMcU3lWRutYTTjVJQtRf5."
                                "5f4i08HIlZgh5CyNSbkTOhvqMIcvxA/PN/";

const std::string standing = "# by hand\nholder SeBatchLogonRight\nstrange\n";

// Made once for the program: "holder" holds the right, the others do not.
class Accounts : public Scratch
{
public:
    std::string missing = "it needs root";

    Accounts()
    {
        std::string passwd = "root:x:0:0::/root:/bin/sh\n";
        std::string shadow = "root:*:19000::::::\n";
        std::string group = "root:x:0:\nfriends:x:61900:second,holder\n";
        int uid = 61000;
        for (const std::string name : {"holder", "second", "third", "expired"}) {
            const std::string number = std::to_string(++uid);
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

    std::string rights() const { return read("rights"); }
    void resetRights() const { write("rights", standing); }
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
        accounts->resetRights();
        Lines lines;
        CCmnExecPipeWindows().Exec("true", lines, "", 60, "", "holder", password);
        begin();
    }
    void TearDown() override
    {
        NothingLeft::TearDown();
        if (accounts->missing.empty()) {
            EXPECT_EQ(accounts->rights(), standing);
            EXPECT_EQ(prctl(PR_GET_DUMPABLE), 1);
        }
    }

    static Lines as(const std::string& user, const std::string& command)
    {
        CCmnExecPipeWindows runner;
        Lines lines;
        const int result = runner.Exec(command, lines, "", 60, "/", user, password);
        EXPECT_TRUE(result == 0 || result == 11) << result;
        return lines;
    }

    static std::unique_ptr<Accounts> accounts;
};

std::unique_ptr<Accounts> Identity::accounts;

TEST_F(Identity, TheChildIsTheUserForGood)
{
    for (const std::string user : {"holder", "second"}) {
        EXPECT_EQ(as(user, "id -un"), Lines{user});
        EXPECT_EQ(as(user, "id -Gn"), Lines{user + " friends"});
        EXPECT_EQ(as(user, "sh -c 'grep -c \"^[UG]id:.0\" /proc/self/status; :'"), Lines{"0"});
        EXPECT_EQ(as(user, "grep CapEff /proc/self/status"), Lines{"CapEff:\t0000000000000000"});
        EXPECT_EQ(as(user, "ls /proc/self/fd"), (Lines{"0", "1", "2", "3"})); // 3 is the directory
        // A session of its own: the caller's terminal is out of reach.
        EXPECT_EQ(as(user, "sh -c 'test $(cut -d\" \" -f6 /proc/self/stat) = $$ && echo own'"),
                  Lines{"own"});
        EXPECT_EQ(as(user, "sh -c 'echo again > /dev/stdout'"), Lines{"again"});
        EXPECT_EQ(as(user, "cat /etc/shadow"), Lines{"cat: /etc/shadow: Permission denied"});
    }
}

TEST_F(Identity, Refusals)
{
    const struct {
        std::string user;
        std::string password;
        std::string dir;
        std::wstring text;
        uid_t caller = 0;
    } cases[] = {
        {"holder", "wrong", "/", L"the logon of 'holder' was refused, Authentication failure"},
        {"holder", "", "/", L"was refused"},
        {"nobody-here", password, "/", L"there is no such account"},
        {"expired", password, "/", L"was refused, User account has expired"},
        {"holder", password, accounts->path("private"), L"Permission denied"},
        {"second", password, "/no/such/dir", L"cannot enter directory"},
        {"second", password, "/", L"this process may not take another identity", 61001},
    };
    for (const auto& test : cases) {
        CCmnExecPipeWindows runner;
        Lines lines{"former"};
        EXPECT_EQ(seteuid(test.caller), 0);
        EXPECT_EQ(runner.Exec("id -u", lines, "", 60, test.dir, test.user, test.password), 3);
        EXPECT_EQ(seteuid(0), 0);
        EXPECT_EQ(lines, Lines{"former"}); // nothing ran as the caller
        const ECmnExecPipe record = runner.getLastError();
        EXPECT_EQ(record.getCode(), ECmnExecPipe::CREATE_CHILD_PROCESS_FAILED);
        EXPECT_NE(record.getDescription().find(test.text), std::wstring::npos)
            << test.user << " " << test.dir;
    }
    EXPECT_EQ(prctl(PR_SET_DUMPABLE, 1), 0); // as it was before the change of the caller
}

TEST_F(Identity, TheRightIsAddedForTheRunOnly)
{
    CCmnExecPipeWindows first;
    Lines lines;
    // A run that times out keeps the right until the object ends.
    EXPECT_EQ(first.Exec("sh -c 'echo in; exec sleep 600'", lines, "", 1, "/", "second", password),
              5);
    EXPECT_EQ(accounts->rights(), standing + "second SeBatchLogonRight\n");
    CCmnExecPipeWindows other;
    EXPECT_EQ(other.Exec("id -u", lines, "", 60, "/", "holder", password), 0); // needs no lock
    EXPECT_EQ(other.Exec("id -u", lines, "", 60, "/", "third", password), 3);  // and this one does
    EXPECT_EQ(other.getLastError().getCode(), 9);
    EXPECT_EQ(other.getLastError().getSubject(), "third");
    // Used for another account without a word of its end, it gives up the former one's right.
    EXPECT_EQ(first.Exec("id -un", lines, "", 60, "/", "holder", password), 0);
    EXPECT_EQ(lines, Lines{"holder"});
    EXPECT_EQ(accounts->rights(), standing);
    EXPECT_EQ(as("third", "id -un"), Lines{"third"});
    EXPECT_EQ(as("second", "id -un"), Lines{"second"});
}

// Whoever the child becomes may stop it: the start must neither hang nor run anything else.
TEST_F(Identity, AUserWhoStopsHisChildGainsNothing)
{
    const pid_t attacker = beginApart([] {
        bool good = setresgid(61002, 61002, 61002) == 0 && setresuid(61002, 61002, 61002) == 0;
        // The next process ids, each as soon as it is permitted.
        for (pid_t next = 0; good; next = (next + 1) % 200) {
            if (kill(getpid() + 1 + next, SIGSTOP) == 0)
                kill(getpid() + 1 + next, SIGCONT);
        }
        return good;
    });
    onThreads(2, [](int caller) {
        const std::string user = caller == 0 ? "second" : "holder";
        for (int i = 0; i < 30; ++i) {
            CCmnExecPipeWindows runner;
            Lines lines;
            runner.Exec("id -un", lines, "", 60, "/", user, password);
            EXPECT_TRUE(lines.empty() || lines == Lines{user});
        }
    });
    EXPECT_EQ(kill(attacker, SIGKILL), 0);
    waitpid(attacker, nullptr, 0);
}

TEST_F(Identity, ARunThatIsKilledLeavesAWholeFile)
{
    for (int round = 0; round < 20; ++round) {
        const pid_t pid = beginApart([] {
            while (as("second", "true").empty()) {
            }
            return false;
        });
        // Killed wherever it is: after a number of looks that differs from round to round.
        for (int look = 0; look < 300 * round; ++look)
            std::this_thread::yield();
        kill(pid, SIGKILL);
        ASSERT_EQ(waitpid(pid, nullptr, 0), pid);
        const std::string rights = accounts->rights();
        EXPECT_TRUE(rights == standing || rights == standing + "second SeBatchLogonRight\n")
            << rights;
        EXPECT_EQ(as("second", "id -un"), Lines{"second"});
        accounts->resetRights();
    }
}

TEST_F(Identity, TwoHundredRunsAndManyWriters)
{
    // Other accounts' rights change at the same time, from several processes.
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
    for (int i = 0; i < 200; ++i)
        ASSERT_EQ(as("second", "id -un"), Lines{"second"});
    for (const pid_t pid : writers)
        endApart(pid);
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
            const char* hit = piece;
            while ((hit = std::search(hit, last, end.rbegin(), end.rend())) != last) {
                ++found;
                ++hit;
            }
        }
    }
    std::memset(piece, 0, sizeof piece);
    close(memory);
    return found;
}

TEST_F(Identity, ThePasswordIsWiped)
{
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
