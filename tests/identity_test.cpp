// SPDX-License-Identifier: LicenseRef-Tarnix
// Real runs as other accounts. They need root. The accounts are files of the test, which the
// program finds by support/accounts.h. The machine's own accounts are not touched.
#include "cmncommand.h"
#include "cmnsystemfiles.h"
#include "descriptors.h"
#include "runas.h"
#include "spawn.h"
#include "support/accounts.h"
#include "support/command.h"
#include "support/failure.h"
#include "support/fixture.h"
#include "support/repeat.h"
#include "support/scratchdirectory.h"

#include <fcntl.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>

#include <csignal>

// PAM loads its modules at the first logon, and those that are not kept at each logon. The thread
// sanitizer does not know the lock of the dynamic loader, and would report a race.
extern "C" [[gnu::visibility("default")]] const char* __tsan_default_suppressions()
{
    return "race:ld-linux\n";
}

using namespace tarnix_cmn_4_4;
using namespace tarnix_platform;

namespace
{

const std::string password = "right word";
const std::string hash = ":$5$tarnix$cQImmrpkcGIAYlwjZgLFvo8sX1wbcmWRDjd4Vil0crB:19000:::::";

// "holder" has the right that a run needs; the other accounts do not.
const std::string standing = "# by hand\nholder SeBatchLogonRight\nstrange\nsecond SeOther\n";

const ScratchDirectory scratch; // shared by all tests: the modules of PAM stay loaded

const Lines idOfHolder{"61001"}, idOfSecond{"61002"}, idOfThird{"61009"};

struct Identity : LeakCheck {
    void SetUp() override
    {
        scratch.makeDirectory("etc/pam.d");
        scratch.write("etc/passwd", "root:x:0:0::/root:\nholder:x:61001:61101:::\n"
                                    "second:x:61002:61102:::\nthird:x:61009:61109:::\n"
                                    "expired:x:61004:61104:::\nhome:x:61005:61105:" +
                                        std::string(20000, 'e') + ":/home/of:/bin/bash\n");
        scratch.write("etc/group", "own:x:61102:\nfriends:x:61900:second\n");
        scratch.write("etc/shadow", "holder" + hash + ":\nsecond" + hash + ":\nthird" + hash +
                                        ":\nexpired" + hash + "1:\nhome" + hash + ":\nroot" + hash +
                                        ":\n");
        scratch.write("etc/pam.d/tarnix",
                      "auth required pam_unix.so nodelay\naccount required pam_unix.so\n");
        scratch.write("rights", standing);
        scratch.write("rights.new", "of an interrupted change");
        tarnix_cmn_4_4::setRightsFile(scratch.path("rights").c_str());
        chmod(scratch.path().c_str(), 0711); // the accounts can reach what is open to them
        scratch.makeDirectory("closed");
        chmod(scratch.path("closed").c_str(), 0700);
        SKIP_WITHOUT_PROC();
        SKIP_IF(withoutUsers());
        useAccountsIn(scratch.path("etc"));
    }
    ~Identity() override { EXPECT_EQ(scratch.read("rights"), standing); }

    static Outcome as(const std::string& user, const std::string& command,
                      const std::string& word = password, const std::string& directory = "/")
    {
        CCmnExecPipeWindows runner;
        return exec(runner, command, 60, directory, user, word);
    }
};

TEST_F(Identity, TheChildIsTheUserPermanently)
{
    const std::string commands =
        "echo $(id -u) $(id -G);"
        // No id and no capability of root: the child cannot get them back.
        "grep -cE \"^([UG]id:.*[[:space:]]0|Cap[^B].*:.*[1-9a-f])\" /proc/self/status;"
        "echo $(ls /proc/self/fd);" // the last one is the listed directory
        // A new session: the child cannot reach the caller's terminal.
        "test $(cut -d\" \" -f6 /proc/self/stat) = $$ && echo session;"
        "umask;"
        "cut -d\" \" -f41 /proc/self/stat;" // the scheduling policy
        "cat /proc/$$/environ /proc/$$/cmdline | grep -ac \"right[ ]word\";" // the password
        "echo again > /dev/stdout";
    const mode_t former = umask(0);
    sched_param realTime{1}, ordinary{0};
    sched_setscheduler(0, SCHED_FIFO, &realTime); // needs a capability that not every root has
    EXPECT_EQ(as("second", "sh -c '" + commands + "'").lines,
              (Lines{"61002 61102 61900", "0", "0 1 2 3", "session", "0022", "0", "0", "again"}));
    sched_setscheduler(0, SCHED_OTHER, &ordinary);
    umask(027);
    EXPECT_EQ(run("sh -c umask").lines, Lines{"0027"});
    umask(former);
}

TEST_F(Identity, AnAccountInManyGroups)
{
    std::string groups = scratch.read("etc/group");
    for (int group = 2000000000; group < 2000012500; ++group)
        groups += "g" + std::to_string(group) + ":x:" + std::to_string(group) + ":holder\n";
    scratch.write("etc/group", groups);
    EXPECT_EQ(as("holder", "sh -c 'id -G | wc -w'").lines, Lines{"12501"});
}

// Puts the program that switches user where it is installed, in a mount namespace of its own and a
// file system that covers the first directory of the path that exists.
bool installProgram(mode_t mode, uid_t owner, const std::string& addition)
{
    const std::filesystem::path file = TARNIX_RUNAS_FILE, copy = scratch.path("etc/program");
    copy_file(TARNIX_BUILT_RUNAS, copy, std::filesystem::copy_options::overwrite_existing);
    std::ofstream(copy, std::ios::app) << addition;
    std::filesystem::path top = file.parent_path();
    while (!exists(top))
        top = top.parent_path();
    return top != "/" && enterNamespaces({}).empty() &&
           mount("none", top.c_str(), "tmpfs", 0, "mode=755") == 0 &&
           create_directories(file.parent_path()) && copy_file(copy, file) &&
           chown(file.c_str(), owner, 0) == 0 && chmod(file.c_str(), mode) == 0;
}

// Fails the system calls from here on, also in children. 0: they seem to be done; -1: they kill.
bool filterCalls(const std::vector<unsigned int>& calls, int error)
{
    const unsigned int action =
        error < 0 ? SECCOMP_RET_KILL : SECCOMP_RET_ERRNO | static_cast<unsigned int>(error);
    sock_filter steps[] = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, calls.front(), 1, 0),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, calls.back(), 0, 1),
        BPF_STMT(BPF_RET | BPF_K, action),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
    };
    const sock_fprog filter = {std::size(steps), steps};
    // The first makes the second permitted without CAP_SYS_ADMIN.
    return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
           prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter) == 0;
}

TEST_F(Identity, FailingSystemCallsOfTheStart)
{
    constexpr int kills = -1, onlySeemsDone = 0;
    const Lines standard{"0", "1", "2", "3"}; // the last one is the listed directory
    const std::wstring staysOpen = L"cannot close inherited descriptors";
    const std::vector<unsigned int> memory{SYS_memfd_create}, link{SYS_execveat};
    const std::wstring runs, notSwitched = L"cannot switch user",
                             refused = L"cannot start the program that switches user (";
    const struct {
        const char* name;
        std::vector<unsigned int> calls;
        int error;
        std::wstring text;
        mode_t mode = 0; // 0: the program is not installed
        uid_t owner = 0;
        std::string addition = {};
    } cases[] = {
        {"no session", {SYS_setsid}, EPERM, L"cannot prepare child process"},
        {"owner of a pipe stays", {SYS_fchown}, EPERM, L"cannot change owner of pipe: Operation"},
        {"no groups", {SYS_setgroups}, EPERM, L"cannot set groups of user"},
        {"start by link, filtered", link, EPERM, runs},
        {"refused start", link, EACCES, refused + L"execveat; /"},
        {"no memory file", memory, EPERM, refused + L"memfd_create; " TARNIX_RUNAS_FILE ": No"},
        {"installed", memory, EACCES, runs, 0755},
        {"installed, writable", memory, EPERM, refused, 0775},
        {"installed, other version", memory, EPERM, refused, 0755, 0, "of another version"},
        {"installed, other owner", memory, EPERM, refused, 0755, 61001},
        {"descriptors closed one by one", {SYS_close_range}, EPERM, runs},
        {"descriptors stay open", {SYS_close_range, SYS_getdents64}, EPERM, staysOpen},
        {"killed", {SYS_arch_prctl}, kills, L"program that switches user ended before"},
        {"no keyring left", {SYS_keyctl}, EDQUOT, L"cannot create session keyring of user"},
        {"keyrings filtered", {SYS_keyctl}, EPERM, runs},
        {"capabilities not known", {SYS_capget}, EINVAL, notSwitched + L": Invalid argument"},
        {"capabilities stay", {SYS_capset}, EPERM, notSwitched},
        {"group stays", {SYS_setresgid}, EINVAL, notSwitched + L": Invalid argument"},
        {"user stays", {SYS_setresuid}, EAGAIN, notSwitched + L": Resource temporarily"},
        {"group seems switched", {SYS_setresgid}, onlySeemsDone, notSwitched},
        {"user seems switched", {SYS_setresuid}, onlySeemsDone, notSwitched},
        {"user not known", {SYS_getresuid}, EPERM, notSwitched},
    };
    const bool canMount = waitForChild(forkChild([] { return enterNamespaces({}).empty(); })) == 0;
    for (const auto& test : cases) {
        if (test.mode != 0 && !canMount)
            continue; // the program cannot be installed
        const pid_t caller = forkChild([&] {
            for (int i = 0; i < 60; ++i) // inheritable, and more than one call can list
                fcntl(STDIN_FILENO, F_DUPFD, 3);
            if ((test.mode != 0 && !installProgram(test.mode, test.owner, test.addition)) ||
                !filterCalls(test.calls, test.error))
                return false;
            const Outcome outcome = as("holder", "ls /proc/self/fd");
            EXPECT_EQ(outcome.record.getDescription().substr(0, test.text.size()), test.text);
            EXPECT_EQ(outcome.lines, test.text.empty() ? standard : Lines(1, "former"));
            return !HasFailure();
        });
        EXPECT_EQ(waitForChild(caller), 0) << test.name;
    }
}

// Each report is the step and its error; the last one counts.
TEST_F(Identity, ReportsOfTheProgramThatSwitchesUser)
{
    using Step = RunAsStep;
    const std::string tooLong(5000, 'l'), closed = scratch.path("closed/a");
    const struct {
        const char *name, *caller, *directory;
        Lines others; // number of candidates, candidates, command
        Step step;
        int error;
    } rows[] = {
        {"no candidate", "0", "", {"0", "a"}, Step::identity, EINVAL},
        {"no command", "0", "", {"1", "/bin/true"}, Step::identity, EINVAL},
        {"caller has ended", "1", "", {"1", "/bin/true", "a"}, Step::identity, ESRCH},
        {"no directory", "0", "/no", {"1", "/bin/true", "a"}, Step::directory, ENOENT},
        {"no program", "0", "", {"1", "/etc/passwd/a", "a"}, Step::program, ENOTDIR},
        {"not executable", "0", "", {"2", "/etc/passwd", "/no", "a"}, Step::program, EACCES},
        {"no such programs", "0", "", {"2", "/no", "/no", "/bin/true"}, Step::program, ENOENT},
        {"unsearchable", "0", "", {"2", closed, "/etc/passwd/a", "a"}, Step::program, ENOENT},
        {"too long", "0", "", {"2", tooLong, "/no", "a"}, Step::program, ENAMETOOLONG},
        {"second", "0", "/", {"2", "/no", "/usr/bin/test", "test", "-d", "proc"}, Step::command, 0},
    };
    for (const auto& row : rows) {
        UniqueFd reader, writer;
        ASSERT_TRUE(openPipe(reader, writer));
        ASSERT_TRUE(moveAbove(writer, kRunAsStatus));
        Lines texts{"tarnix-runas", "61001", "61101", "0", row.caller, row.directory};
        texts.insert(texts.end(), row.others.begin(), row.others.end());
        const std::vector<char*> arguments = pointersTo(texts);
        const pid_t child = forkChild([&] {
            dup2(writer.get(), kRunAsStatus);
            char* environment[] = {nullptr};
            return execve(TARNIX_BUILT_RUNAS, arguments.data(), environment) == 0;
        });
        writer.reset();
        RunAsReport report{Step::command, -1};
        while (read(reader.get(), &report, sizeof report) > 0)
            ;
        const int status = row.step == Step::command ? 0 : 127; // that of the command, if it runs
        EXPECT_EQ(WEXITSTATUS(waitForChild(child)), status) << row.name;
        EXPECT_EQ(std::pair(report.step, report.error), std::pair(row.step, row.error)) << row.name;
    }
    const pid_t unheard = forkChild([] {
        close(kRunAsStatus);
        return execl(TARNIX_BUILT_RUNAS, "tarnix-runas", "0", "0", "0", "0", "", "1", "/bin/true",
                     "a", nullptr) == 0;
    });
    EXPECT_EQ(WEXITSTATUS(waitForChild(unheard)), 126);
}

TEST_F(Identity, AProgramThatIsStillBeingWritten)
{
    const std::string program = scratch.path("program");
    std::filesystem::copy_file("/bin/echo", program);
    const int writer = open(program.c_str(), O_WRONLY | O_CLOEXEC);
    EXPECT_NE(as("holder", program).record.getDescription().find(L"file busy"), std::wstring::npos);
    const pid_t holder = forkChild([] { return usleep(50000) == 0; });
    close(writer);
    EXPECT_EQ(as("holder", program + " found").lines, Lines{"found"});
    EXPECT_EQ(waitForChild(holder), 0);
    std::filesystem::remove(program);
}

TEST_F(Identity, Tokens)
{
    HANDLE token = nullptr, refused = &token;
    const HANDLE event = CreateEventA(nullptr, false, false, nullptr), output = openDescriptor(1);
    EXPECT_TRUE(LogonUserA("second", ".", password.c_str(), LOGON32_LOGON_NETWORK, 0, &token));
    EXPECT_FALSE(LogonUserA("second", ".", password.c_str(), LOGON32_LOGON_BATCH, 0, &refused));
    EXPECT_EQ(refused, nullptr);
    alignas(TOKEN_USER) unsigned char bytes[sizeof(TOKEN_USER) + sizeof "second"];
    DWORD length = 0;
    expectFailure(GetTokenInformation(event, TokenUser, bytes, sizeof bytes, &length), EBADF);
    expectFailure(GetTokenInformation(token, TokenUser, nullptr, sizeof bytes, &length), EINVAL);
    expectFailure(GetTokenInformation(token, TokenUser, bytes, sizeof bytes - 1, &length), ERANGE);
    EXPECT_EQ(length, sizeof bytes);
    EXPECT_TRUE(GetTokenInformation(token, TokenUser, bytes, sizeof bytes, &length));
    EXPECT_STREQ(static_cast<char*>(reinterpret_cast<TOKEN_USER*>(bytes)->User.Sid), "second");
    STARTUPINFOA startup{sizeof startup, STARTF_USESTDHANDLES, output, output, output};
    PROCESS_INFORMATION information{};
    char command[] = "true";
    for (const auto& [user, error] : {std::pair(HANDLE{nullptr}, DWORD{EACCES}), {event, EBADF}})
        expectFailure(CreateProcessAsUserA(user, nullptr, command, nullptr, nullptr, false, 0,
                                           nullptr, nullptr, &startup, &information),
                      error);
    expectRefusedStarts(
        [&](auto... arguments) { return CreateProcessAsUserA(token, arguments...); }, startup);
    for (const HANDLE open : {token, event, output})
        EXPECT_TRUE(CloseHandle(open));
}

TEST_F(Identity, RefusedRuns)
{
    const std::wstring failed = L"cannot log on (Authentication failure) as '";
    const std::string usual = scratch.read("etc/pam.d/tarnix"),
                      permits = "auth required pam_permit.so\naccount required pam_permit.so\n";
    const struct {
        const char* name;
        std::string user;
        std::wstring text;
        // Without rules of PAM: the usual ones.
        std::string word = password, command = "id", directory = "/", rules = {};
        uid_t caller = 0;
    } cases[] = {
        {"wrong password", "holder", failed + L"holder': Permission", "wrong"},
        {"unknown", "nobody-here", failed + L"nobody-here': Permission"},
        {"long", std::string(300, 'n'), failed + std::wstring(156, L'n') + L": Permission denied"},
        {"expired", "expired", L"(User account has expired) as 'expired'"},
        {"known to PAM only", "nobody-here", L"(no such account)", "", "id", "/", permits},
        {"renamed", "anonymous", L"(PAM changed the account)", "a@b", "id", "/",
         "auth sufficient pam_ftp.so\naccount sufficient pam_permit.so\n"},
        {"directory", "holder", L"cannot enter directory", password, "id", scratch.path("closed")},
        {"not root", "second", L"must be root to switch user", password, "id", "/", {}, 61001},
        {"no program", "holder", L"cannot start program '/no/such'", password, "/no/such"},
    };
    for (const auto& test : cases) {
        scratch.write("etc/pam.d/tarnix", test.rules.empty() ? usual : test.rules);
        EXPECT_EQ(seteuid(test.caller), 0);
        const Outcome outcome = as(test.user, test.command, test.word, test.directory);
        EXPECT_EQ(seteuid(0), 0);
        EXPECT_EQ(outcome.lines, Lines{"former"}); // the command did not run as the caller instead
        EXPECT_NE(outcome.record.getDescription().find(test.text), std::wstring::npos)
            << test.name << ": " << outcome.record.getDescription();
    }
}

TEST_F(Identity, TheRightIsAddedOnlyForTheRun)
{
    CCmnExecPipeWindows first;
    // After a timeout the runner keeps the right until its next run or its end.
    EXPECT_EQ(exec(first, "sh -c 'echo in; exec cat'", 1, "/", "second", password).result, 5);
    const std::string added = "second SeBatchLogonRight #added " + std::to_string(getpid()) + ' ';
    EXPECT_EQ(scratch.read("rights").find(standing + added), 0U);
    EXPECT_EQ(as("holder", "id -u").lines, idOfHolder);  // needs no added right
    EXPECT_EQ(as("third", "id -u").record.getCode(), 9); // needs the lock
    // A run as another account first revokes the right of the former account.
    EXPECT_EQ(exec(first, "id -u", 60, "/", "holder", password).lines, idOfHolder);
    EXPECT_EQ(scratch.read("rights"), standing);
    EXPECT_EQ(as("third", "id -u").lines, idOfThird);
}

TEST_F(Identity, CommandsWithOptions)
{
    const auto shell = [](const std::string& script, const std::string& user = "second") {
        return CCmnCommand({"sh", "-c", script}).setUser(user, password).setDirectory("/");
    };
    const auto account = [&](CCmnCommand command) {
        return command.setEnvironment(CCmnCommand::Environment::account).setVariable("A", "b");
    };
    const struct {
        const char* name;
        CCmnCommand command;
        std::string outcome;
    } rows[] = {
        {"umask", shell("umask").setUmask(0), "|0000"},
        {"account",
         account(shell("echo $HOME $USER $LOGNAME $SHELL $PATH $A; env | wc -l", "home")),
         "|/home/of home home /bin/bash /usr/local/bin:/usr/bin:/bin b|7"}, // the shell adds PWD
        {"root", account(shell("echo $HOME $SHELL $PATH; id -u; umask", "root")),
         "|/root /bin/sh /usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin|0|0022"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(textOf(row.command.run()), row.outcome) << row.name;
        EXPECT_EQ(scratch.read("rights"), standing); // the right is needed by the start only
    }
    struct Runner : CCmnExecPipeWindows {
        using CCmnExecPipeWindows::m_Lock;
    };
    EXPECT_TRUE(Runner::m_Lock.tryLock()); // a start waits for it
    runOnThreads(2, [&](int thread) {
        if (thread == 0)
            EXPECT_EQ(textOf(shell("id -u").run()), "|61002");
        else if (usleep(200000) == 0)
            Runner::m_Lock.unlock();
    });
    prctl(PR_SET_CHILD_SUBREAPER, 1);
    CCmnCommand command = shell("echo $$; exec sleep 99", "holder");
    const pid_t left = leftByKilledCaller(command.setEndsWithCaller(true));
    ASSERT_GT(left, 0);
    EXPECT_EQ(waitForChild(left), SIGKILL);
    prctl(PR_SET_CHILD_SUBREAPER, 0);
}

// Whatever the environment holds, it takes effect in the command only, which gets all of it.
TEST_F(Identity, AHostileEnvironment)
{
    const std::string bad = scratch.path("bad");
    scratch.makeDirectory("bad");
    scratch.write("bad/libc.so.6", "not a library");
    Lines variables{"", "=", "\x02\xfe=", std::string(131000, 'l')};
    for (const char* name : {"LD_PRELOAD", "LD_AUDIT", "GCONV_PATH", "LOCPATH", "GLIBC_TUNABLES",
                             "LC_ALL", "MALLOC_PERTURB_", "TMPDIR", "IFS", "PATH"})
        variables.push_back(std::string(name) + '=' + bad);
    const auto readEnvironment = [&] {
        std::vector<char*> pointers = pointersTo(variables);
        char** const former = std::exchange(environ, pointers.data());
        Outcome outcome = as("second", "/bin/sed 's/\\x00/\\x01/g' /proc/self/environ");
        environ = former;
        return outcome;
    };
    const Lines lines = readEnvironment().lines;
    std::string expected, got;
    for (std::size_t i = 2; i < lines.size(); ++i) // after the complaints of the command's loader
        got += lines[i];
    for (const std::string& variable : variables)
        expected += variable + '\x01';
    EXPECT_TRUE(got == expected) << got.size() << " of " << expected.size();
    variables.push_back("LD_LIBRARY_PATH=" + bad);
    EXPECT_EQ(readEnvironment().status, 127); // of the command, which has started
}

// Reversed, so that the test's own copy does not count.
constexpr char backwards[] = "paeh eht rof hguone gnol ,drow fo draehnu";

std::string secret() { return std::string(std::rbegin(backwards) + 1, std::rend(backwards)); }

// How often this process has the end of the secret: an allocator overwrites starts of freed blocks.
int copiesOfSecret()
{
    // Too large to be searched itself, as a sanitizer's shadow memory is.
    static char piece[1 << 28];
    const UniqueFd memory = openFile("/proc/self/mem", O_RDONLY);
    std::ifstream maps("/proc/self/maps");
    std::size_t from = 0, to = 0;
    int found = 0;
    for (char dash = 0; maps >> std::hex >> from >> dash >> to; maps.ignore(9999, '\n')) {
        const ssize_t size =
            to - from < sizeof piece ? pread(memory.get(), piece, to - from, off_t(from)) : 0;
        const std::reverse_iterator end(piece), begin(piece + std::max<ssize_t>(size, 0));
        for (auto at = begin; (at = std::search(at, end, backwards, backwards + 20)) != end; ++at)
            ++found;
    }
    return found;
}

TEST_F(Identity, ThePasswordIsWiped)
{
#ifdef __SANITIZE_THREAD__
    GTEST_SKIP() << "the search would make all of the sanitizer's shadow memory resident";
#endif
    Lines lines;
    auto first = std::make_unique<CCmnExecPipeWindows>();
    first->Exec("id", lines, "", 60, "/", "holder", secret()); // a wrong password
    EXPECT_EQ(copiesOfSecret(), 1);
    CCmnExecPipeWindows second(*first), third(*first);
    first.reset();
    second.Exec("true", lines, "", 60, "/", "", "another");
    third = CCmnExecPipeWindows();
    EXPECT_EQ(copiesOfSecret(), 0);
    auto command = std::make_unique<CCmnCommand>(Lines{"id"});
    command->setUser("holder", "a former one").setUser("holder", secret());
    const CCmnCommand copy(*command);
    EXPECT_EQ(command->run().end, SCmnCommandOutcome::End::notStarted);
    EXPECT_EQ(copiesOfSecret(), 2);
    command->setUser("holder", "another");
    *command = CCmnCommand(copy);
    command.reset();
    EXPECT_EQ(copiesOfSecret(), 1);
}

} // namespace
