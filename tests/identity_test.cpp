// Real runs as other accounts. They need root, and a mount namespace in which the account files are
// copies: nothing of the machine is touched.
#include "cmnexecpipewindows.h"
#include "processstate.h"
#include "scratch.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <string_view>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <thread>

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

// Made once for the program: "holder" holds the right, the others do not.
class Accounts
{
public:
    Accounts()
    {
        std::filesystem::permissions(m_Scratch.path(), std::filesystem::perms(0755));
        std::filesystem::copy_file(TARNIX_TEST_CHILD, m_Scratch.path("child"));
        m_Scratch.makeDirectory("private");
        std::filesystem::permissions(m_Scratch.path("private"), std::filesystem::perms(0700));
        std::string passwd = "root:x:0:0::/root:/bin/sh\n";
        std::string shadow = "root:*:19000::::::\n";
        std::string group = "root:x:0:\nfriends:x:61900:second,holder\n";
        int uid = 61000;
        for (const std::string name : {"holder", "second", "third", "expired"}) {
            const std::string number = std::to_string(++uid);
            passwd += name + ":x:" + number + ":" + number + "::/nonexistent:/bin/sh\n";
            shadow += name + ":" + passwordHash +
                      ":19000:::::" + (name == std::string("expired") ? "1" : "") + ":\n";
            group += name + ":x:" + number + ":\n";
        }
        m_Scratch.write("passwd", passwd);
        m_Scratch.write("shadow", shadow);
        std::filesystem::permissions(m_Scratch.path("shadow"), std::filesystem::perms(0600));
        m_Scratch.write("group", group);
        m_Scratch.write("order", "passwd: files\ngroup: files\nshadow: files\n");
        m_Scratch.makeDirectory("pam");
        m_Scratch.write("pam/tarnix", "auth required pam_unix.so nodelay\naccount required "
                                      "pam_unix.so\n");
        if (unshare(CLONE_NEWNS) != 0 ||
            mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
            !bind("passwd", "/etc/passwd") || !bind("shadow", "/etc/shadow") ||
            !bind("group", "/etc/group") || !bind("order", "/etc/nsswitch.conf") ||
            !bind("pam", "/etc/pam.d")) {
            m_Missing = std::strerror(errno);
        }
        TxSetRightsFile(rightsFile().c_str());
    }

    const std::string& missing() const { return m_Missing; }
    const Scratch& scratch() const { return m_Scratch; }
    std::string rightsFile() const { return m_Scratch.path("rights"); }

private:
    bool bind(const char* from, const char* to)
    {
        return mount(m_Scratch.path(from).c_str(), to, nullptr, MS_BIND, nullptr) == 0;
    }

    Scratch m_Scratch;
    std::string m_Missing;
};

const std::string standing = "# by hand\nholder SeBatchLogonRight\nstrange\n";

class Identity : public testing::Test
{
protected:
    static void SetUpTestSuite()
    {
        if (geteuid() == 0) {
            accounts = std::make_unique<Accounts>();
        }
    }
    static void TearDownTestSuite() { accounts.reset(); }

    void SetUp() override
    {
        const std::string missing = accounts ? accounts->missing() : "it needs root";
        if (!missing.empty()) {
            ASSERT_EQ(std::getenv("TARNIX_REQUIRE_ROOT_TESTS"), nullptr) << missing;
            GTEST_SKIP() << missing;
        }
        accounts->scratch().write("rights", standing);
        Lines lines;
        CCmnExecPipeWindows().Exec("true", lines, "", 60, "", "holder", password);
        m_Before = ProcessState::now();
    }
    void TearDown() override
    {
        if (accounts && accounts->missing().empty()) {
            EXPECT_EQ(ProcessState::now(), m_Before);
            EXPECT_EQ(accounts->scratch().read("rights"), standing);
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
    ProcessState m_Before;
};

std::unique_ptr<Accounts> Identity::accounts;

TEST_F(Identity, TheChildIsTheUserForGood)
{
    const std::string child = accounts->scratch().path("child");
    for (const std::string user : {"holder", "second"}) {
        EXPECT_EQ(as(user, "id -un"), Lines{user});
        EXPECT_EQ(as(user, "id -Gn"), Lines{user + " friends"});
        EXPECT_EQ(as(user, "sh -c 'grep -c \"^[UG]id:.0\" /proc/self/status; :'"), Lines{"0"});
        EXPECT_EQ(as(user, "grep CapEff /proc/self/status"), Lines{"CapEff:\t0000000000000000"});
        EXPECT_EQ(as(user, child + " descriptors"), Lines{"0 1 2 "});
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
        int code;
        std::wstring text;
    } cases[] = {
        {"holder", "wrong", "/", 4, L"the logon of 'holder' was refused, Authentication failure"},
        {"holder", "", "/", 4, L"was refused"},
        {"nobody-here", password, "/", 4, L"there is no such account"},
        {"expired", password, "/", 4, L"was refused, User account has expired"},
        {"holder", password, accounts->scratch().path("private"), 4, L"Permission denied"},
        {"second", password, "/no/such/dir", 4, L"cannot enter directory"},
    };
    for (const auto& test : cases) {
        CCmnExecPipeWindows runner;
        Lines lines{"former"};
        EXPECT_EQ(runner.Exec("id -u", lines, "", 60, test.dir, test.user, test.password), 3);
        EXPECT_EQ(lines, Lines{"former"}); // nothing ran as the caller
        const ECmnExecPipe record = runner.getLastError();
        EXPECT_EQ(record.getCode(), test.code);
        EXPECT_NE(record.getDescription().find(test.text), std::wstring::npos)
            << std::string(record.getDescription().begin(), record.getDescription().end());
    }
}

TEST_F(Identity, AnOrdinaryCallerIsRefused)
{
    const pid_t pid = fork();
    if (pid == 0) {
        bool good = setresuid(61001, 61001, 61001) == 0;
        CCmnExecPipeWindows runner;
        Lines lines;
        good = good && runner.Exec("id -u", lines, "", 60, "/", "second", password) == 3 &&
               lines.empty() &&
               runner.getLastError().getDescription().find(L"may not take another identity") !=
                   std::wstring::npos;
        _exit(good ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(waitpid(pid, &status, 0), pid);
    EXPECT_EQ(status, 0);
}

TEST_F(Identity, TheRightIsAddedForTheRunOnly)
{
    CCmnExecPipeWindows first;
    Lines lines;
    // A run that times out keeps the right until the object ends.
    EXPECT_EQ(first.Exec("sh -c 'echo in; exec sleep 600'", lines, "", 1, "/", "second", password),
              5);
    EXPECT_EQ(accounts->scratch().read("rights"), standing + "second SeBatchLogonRight\n");
    CCmnExecPipeWindows other;
    EXPECT_EQ(other.Exec("id -u", lines, "", 60, "/", "holder", password), 0); // needs no lock
    EXPECT_EQ(other.Exec("id -u", lines, "", 60, "/", "third", password), 3);  // and this one does
    EXPECT_EQ(other.getLastError().getCode(), 9);
    EXPECT_EQ(other.getLastError().getSubject(), "third");
    // Used for another account without a word of its end, it gives up the former one's right.
    EXPECT_EQ(first.Exec("id -un", lines, "", 60, "/", "holder", password), 0);
    EXPECT_EQ(lines, Lines{"holder"});
    EXPECT_EQ(accounts->scratch().read("rights"), standing);
    EXPECT_EQ(as("third", "id -un"), Lines{"third"});
    EXPECT_EQ(as("second", "id -un"), Lines{"second"});
}

// Whoever the child becomes may stop it: the start must neither hang nor show him the caller.
// Whoever the child becomes may stop it: the start must neither hang nor run anything else.
TEST_F(Identity, AUserWhoStopsHisChildGainsNothing)
{
    const pid_t attacker = fork();
    if (attacker == 0) {
        if (setresgid(61002, 61002, 61002) != 0 || setresuid(61002, 61002, 61002) != 0) {
            _exit(1);
        }
        // The next process ids, each as soon as it is permitted.
        for (pid_t pid = getpid() + 1;; pid = pid < getpid() + 200 ? pid + 1 : getpid() + 1) {
            if (kill(pid, SIGSTOP) == 0) {
                kill(pid, SIGCONT);
            }
        }
    }
    std::vector<std::thread> callers;
    for (const std::string user : {"second", "holder"}) {
        callers.emplace_back([user] {
            for (int i = 0; i < 30; ++i) {
                CCmnExecPipeWindows runner;
                Lines lines;
                runner.Exec("id -un", lines, "", 60, "/", user, password);
                EXPECT_TRUE(lines.empty() || lines == Lines{user});
            }
        });
    }
    for (std::thread& caller : callers) {
        caller.join();
    }
    kill(attacker, SIGKILL);
    waitpid(attacker, nullptr, 0);
}

TEST_F(Identity, ARunThatIsKilledLeavesAWholeFile)
{
    for (int round = 0; round < 20; ++round) {
        const pid_t pid = fork();
        if (pid == 0) {
            for (;;) {
                as("second", "true");
            }
        }
        // Killed wherever it is: after a number of looks that differs from round to round.
        for (int look = 0; look < 300 * round; ++look) {
            std::this_thread::yield();
        }
        kill(pid, SIGKILL);
        ASSERT_EQ(waitpid(pid, nullptr, 0), pid);
        const std::string rights = accounts->scratch().read("rights");
        EXPECT_TRUE(rights == standing || rights == standing + "second SeBatchLogonRight\n")
            << rights;
        EXPECT_EQ(as("second", "id -un"), Lines{"second"});
        accounts->scratch().write("rights", standing);
    }
}

TEST_F(Identity, TwoHundredRunsAndManyWriters)
{
    // Other accounts' rights change at the same time, from several processes.
    std::vector<pid_t> writers;
    for (int w = 0; w < 3; ++w) {
        writers.push_back(fork());
        if (writers.back() == 0) {
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
            _exit(good ? 0 : 1);
        }
    }
    for (int i = 0; i < 200; ++i) {
        ASSERT_EQ(as("second", "id -un"), Lines{"second"});
    }
    for (const pid_t pid : writers) {
        int status = 0;
        waitpid(pid, &status, 0);
        EXPECT_EQ(status, 0);
    }
}

// Searches this process's own memory, as a core would show it, without leaving copies about.
int copiesOf(const std::string& secret)
{
    static char piece[1 << 20];
    const int memory = open("/proc/self/mem", O_RDONLY | O_CLOEXEC);
    std::ifstream maps("/proc/self/maps");
    const auto own = reinterpret_cast<std::uintptr_t>(piece);
    int found = 0;
    for (std::string line; std::getline(maps, line);) {
        std::uintptr_t begin = 0;
        std::uintptr_t end = 0;
        char access[5] = {};
        if (std::sscanf(line.c_str(), "%lx-%lx %4s", &begin, &end, access) != 3 ||
            std::strncmp(access, "rw", 2) != 0 || end - begin > std::uintptr_t{1} << 32) {
            continue; // a sanitizer's shadow is larger than any memory
        }
        // Pieces overlap by what could be cut; the buffer itself is passed over.
        for (std::uintptr_t at = begin; at < end; at += sizeof piece - secret.size()) {
            if (at < own + sizeof piece && own < at + sizeof piece) {
                continue;
            }
            const ssize_t got =
                pread(memory, piece, std::min(end - at, sizeof piece), static_cast<off_t>(at));
            const std::string_view view(piece, got > 0 ? static_cast<std::size_t>(got) : 0);
            for (std::size_t hit = view.find(secret); hit != std::string_view::npos;
                 hit = view.find(secret, hit + 1)) {
                ++found;
            }
        }
    }
    std::memset(piece, 0, sizeof piece);
    close(memory);
    return found;
}

TEST_F(Identity, ThePasswordIsWiped)
{
    // Built where it is needed and zeroed again, so that no copy of the test's own counts.
    struct Secret {
        std::string text = "unheard of word, long enough for the heap";
        Secret() { change(); }
        ~Secret() { change(); }
        void change()
        {
            for (volatile char& c : text) {
                c = static_cast<char>(c ^ 1);
            }
        }
    };
    {
        CCmnExecPipeWindows runner;
        Lines lines;
        {
            const Secret given;
            runner.Exec("id -u", lines, "", 60, "/", "holder", given.text); // refused, but tried
        }
        EXPECT_EQ(copiesOf(Secret().text), 2); // the searched one, and the runner's
        runner.Exec("true", lines, "", 60, "/", "", "another");
        EXPECT_EQ(copiesOf(Secret().text), 1);
    }
    EXPECT_EQ(copiesOf(Secret().text), 1);
}

} // namespace
