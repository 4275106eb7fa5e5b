// The platform layer below the runner, where runs of commands do not reach.
#include "cmnexecpipewindows.h"
#include "descriptors.h"
#include "platform.h"
#include "rightsfile.h"
#include "rightsline.h"
#include "spawn.h"
#include "support/fixture.h"
#include "support/scratchdirectory.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/ptrace.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>

#include <climits>
#include <csignal>
#include <thread>

using namespace tarnix_platform;

namespace
{

using Platform = LeakCheck;

constexpr char pipeName[] = R"(\\.\pipe\test)";

HANDLE makeServer()
{
    return CreateNamedPipeA(pipeName, PIPE_ACCESS_DUPLEX, 0, 1, 0, 0, 0, nullptr);
}
HANDLE makeClient()
{
    return CreateFileA(pipeName, GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr);
}
HANDLE makeEvent() { return CreateEventA(nullptr, false, false, nullptr); }

// Expects that a call failed with this error.
void expectFailure(BOOL result, DWORD error)
{
    EXPECT_FALSE(result);
    EXPECT_EQ(GetLastError(), error);
}

// A runner that has started its child, and reads of one byte.
struct Started : tarnix_cmn_4_4::CCmnExecPipeWindows {
    HANDLE client = nullptr, process = nullptr;
    DWORD pid = 0, count = 0, status = 0;
    OVERLAPPED read{};
    char byte = 0;

    explicit Started(const std::string& command)
    {
        EXPECT_EQ(ExecPipe(command, ""), 0);
        client = m_OutputHandle;
        process = m_ProcessHandle;
        pid = m_ProcessId;
        read.hEvent = m_ReadEvent;
    }
    BOOL readFrom(HANDLE end) { return ReadFile(end, &byte, 1, &count, &read); }
    BOOL result(BOOL wait = true) { return GetOverlappedResult(client, &read, &count, wait); }
    char next() { return readFrom(client) || result() ? byte : '-'; }
    // Waits until the child is a zombie, without the layer noticing.
    bool awaitEnd() const
    {
        return waitid(P_PID, static_cast<id_t>(pid), nullptr, WEXITED | WNOWAIT) == 0;
    }
};

struct Rights : LeakCheck {
    void SetUp() override
    {
        SKIP_WITHOUT_PROC();
        m_Scratch.write("rights", "holder SeBatchLogonRight\n");
        setRightsFile(m_File.c_str());
    }
    ~Rights() override { setRightsFile(nullptr); }

    const ScratchDirectory m_Scratch;
    const std::string m_File = m_Scratch.path("rights");
};

TEST_F(Rights, ThatOthersMayWriteAreRefused)
{
    const struct {
        mode_t file, directory;
        bool trusted;
        uid_t owner = geteuid();
    } cases[] = {
        {0644, 0755, true},   {0664, 0755, false},
        {0602, 0755, false},  {0644, 0775, false},
        {0644, 01777, false}, {0644, 0755, geteuid() != 0, 61001}, // only root can give a file away
    };
    for (const auto& test : cases) {
        SCOPED_TRACE(&test - cases);
        chmod(m_File.c_str(), test.file);
        chmod(m_Scratch.path().c_str(), test.directory);
        const int given = chown(m_File.c_str(), test.owner, getegid());
        EXPECT_EQ(given == 0, geteuid() == 0 || test.owner == geteuid());
        EXPECT_EQ(holdsRight("holder", "SeBatchLogonRight"), test.trusted);
        SetLastError(0);
        AddedRights added;
        EXPECT_EQ(addRights("second", {"SeOther"}, added), test.trusted);
        EXPECT_EQ(GetLastError(), test.trusted ? 0U : static_cast<DWORD>(EPERM));
    }
    EXPECT_EQ(chown(m_File.c_str(), geteuid(), getegid()), 0);
    std::filesystem::create_symlink("rights", m_Scratch.path("link"));
    // If it were cut to what the system takes, it would name the file.
    std::string tooLong = m_File + 'x';
    tooLong.insert(tooLong.rfind('/'), PATH_MAX - tooLong.size(), '/');
    const std::pair<std::string, DWORD> refused[] = {
        {m_Scratch.path("link"), ELOOP},
        {std::filesystem::relative(m_File), EINVAL},
        {tooLong, ENAMETOOLONG},
    };
    for (const auto& [path, error] : refused) {
        SCOPED_TRACE(path);
        setRightsFile(path.c_str());
        AddedRights added;
        expectFailure(holdsRight("holder", "SeBatchLogonRight"), error);
        expectFailure(addRights("second", {"SeOther"}, added), error);
    }
}

// Whoever can open the lock file can hold the lock.
TEST_F(Rights, TheLockIsTheOwnersAlone)
{
    const std::string lock = m_Scratch.path("rights.lock");
    m_Scratch.write("rights.lock", "");
    chmod(lock.c_str(), 0644);
    AddedRights added;
    EXPECT_TRUE(addRights("second", {"SeOther"}, added));
    EXPECT_EQ(std::filesystem::status(lock).permissions(), std::filesystem::perms(0600));
    {
        const UniqueFd held = openFile(lock.c_str(), O_RDWR);
        EXPECT_EQ(flock(held.get(), LOCK_EX), 0);
        expectFailure(addRights("second", {"SeOther"}, added), ETIMEDOUT);
    }
    if (chown(lock.c_str(), 61001, getegid()) == 0)
        expectFailure(addRights("second", {"SeOther"}, added), EPERM);
}

// A process adds a right, and removes it when the file is somewhere else, or cannot be written.
TEST_F(Rights, ThatWereAddedAreRemovedInTrouble)
{
    const uid_t user = geteuid(), other = user == 0 ? 61001 : user;
    rlimit formerSize{}, formerFiles{};
    getrlimit(RLIMIT_FSIZE, &formerSize);
    getrlimit(RLIMIT_NOFILE, &formerFiles);
    const auto move = [&](const char* from, const char* to) {
        std::filesystem::rename(m_Scratch.path(from), m_Scratch.path(to));
    };
    const auto limit = [](auto resource, rlim_t value, const rlimit& former) {
        const rlimit low{value, former.rlim_max};
        EXPECT_EQ(setrlimit(resource, &low), 0);
    };
    const auto takeDescriptors = [&] {
        {
            AddedRights others;
            EXPECT_TRUE(addRights("third", {"SeOther"}, others)); // replaces the file
        }
        const int next = openFile("/", O_RDONLY).get();
        limit(RLIMIT_NOFILE, static_cast<rlim_t>(next), formerFiles);
    };
    const struct {
        const char* name;
        std::function<void()> trouble;
        bool isRemoved;
        const char* file;
    } cases[] = {
        {"directory moved", [&] { move("d", "e"); }, true, "e/rights"},
        {"file moved", [&] { move("d/rights", "d/old"); }, true, "d/old"},
        {"other file", [&] { setRightsFile(m_File.c_str()); }, true, "d/rights"},
        {"file size", [&] { limit(RLIMIT_FSIZE, 10, formerSize); }, false, "d/rights"},
        {"file replaced, no descriptor", takeDescriptors, true, "d/rights"},
        {"no longer root", [&] { EXPECT_EQ(seteuid(other), 0); }, true, "d/rights"},
    };
    for (const auto& test : cases) {
        SCOPED_TRACE(test.name);
        m_Scratch.makeDirectory("d");
        m_Scratch.write("d/rights", "holder SeBatchLogonRight\n");
        setRightsFile(m_Scratch.path("d/rights").c_str());
        AddedRights added;
        EXPECT_TRUE(addRights("second", {"SeOther"}, added));
        test.trouble();
        const bool isRemoved = removeRights("second", {"SeOther"}, added);
        const DWORD error = GetLastError();
        EXPECT_EQ(seteuid(user), 0);
        setrlimit(RLIMIT_FSIZE, &formerSize); // a failure is written to a file
        setrlimit(RLIMIT_NOFILE, &formerFiles);
        EXPECT_EQ(isRemoved, test.isRemoved);
        EXPECT_TRUE(isRemoved || error == EFBIG) << error;
        setRightsFile(m_Scratch.path(test.file).c_str());
        EXPECT_EQ(holdsRight("second", "SeOther"), !test.isRemoved);
        EXPECT_TRUE(removeRights("second", {"SeOther"}, added)); // the second attempt
        expectFailure(holdsRight("second", "SeOther"), EACCES);
    }
}

// A field of a process's status, after its program's name, which has no blank.
std::string statusField(pid_t process, int number)
{
    std::ifstream file("/proc/" + std::to_string(process) + "/stat");
    std::string field;
    for (int i = 0; i < number; ++i)
        file >> field;
    return field;
}

// The rights of lines that processes have added end with the process, and with the program that it
// runs.
TEST_F(Rights, Marks)
{
    std::string own, word, process, start, image, boot;
    EXPECT_TRUE(markThisProcess(own));
    std::istringstream(own) >> word >> process >> start >> image >> boot;
    const std::string rest = ' ' + image + ' ' + boot;
    const auto holds = [&](pid_t adder, const std::string& end) {
        m_Scratch.write("rights", "second SeOther #added " + std::to_string(adder) + ' ' +
                                      statusField(adder, 22) + end + '\n');
        return holdsRight("second", "SeOther");
    };
    const struct {
        const char* name;
        std::string end; // of the line, after the start time
        bool own, other; // whether a line of this process grants, and one of another process
    } cases[] = {
        {"unchanged", rest, true, true},
        {"other start", '1' + rest, false, false},
        {"other image", ' ' + image + "1 " + boot, false, true},
        {"other boot", rest + '1', false, false},
        {"older form", "", false, true},
        {"cut", ' ' + image, false, false},
    };
    for (const auto& test : cases) {
        SCOPED_TRACE(test.name);
        EXPECT_EQ(holds(getpid(), test.end), test.own);
        const pid_t child = forkChild([] { return pause() == 0; });
        EXPECT_EQ(holds(child, test.end), test.other);
        kill(child, SIGKILL);
        waitid(P_PID, static_cast<id_t>(child), nullptr, WEXITED | WNOWAIT);
        EXPECT_FALSE(holds(child, test.end)); // it is a zombie
        waitForChild(child);
    }
    // It goes on after its first thread has ended.
    const pid_t child = forkChild([] {
        std::thread([] { pause(); }).detach();
        return syscall(SYS_exit, 0) == 0;
    });
    while (statusField(child, 3) != "Z")
        Sleep(0);
    EXPECT_TRUE(holds(child, rest));
    kill(child, SIGKILL);
    waitForChild(child);
}

TEST_F(Platform, HandlesPipeNamesAndErrorTexts)
{
    for (HANDLE wrong : {HANDLE{nullptr}, INVALID_HANDLE_VALUE, reinterpret_cast<HANDLE>(0x1234)})
        expectFailure(CloseHandle(wrong), EBADF);
    for (int i = 0; i < 70000; ++i) // more than can be open at a time
        EXPECT_TRUE(CloseHandle(makeEvent()));
    const HANDLE event = makeEvent();
    CloseHandle(event);
    const HANDLE next = makeEvent(); // takes the same slot
    expectFailure(CloseHandle(event), EBADF);
    EXPECT_EQ(WaitForSingleObject(event, 0), WAIT_FAILED);
    const std::vector<HANDLE> full(MAXIMUM_WAIT_OBJECTS, next);
    EXPECT_EQ(WaitForMultipleObjectsEx(MAXIMUM_WAIT_OBJECTS, full.data(), false, 0, false),
              WAIT_TIMEOUT);
    const HANDLE server = makeServer(), client = makeClient();
    expectFailure(makeServer() != INVALID_HANDLE_VALUE, EBUSY);
    expectFailure(makeClient() != INVALID_HANDLE_VALUE, EBUSY);
    for (HANDLE open : {next, server, client})
        EXPECT_TRUE(CloseHandle(open));
    // The text of an error does not mention the subject of an earlier failure.
    expectFailure(makeClient() != INVALID_HANDLE_VALUE, ENOENT);
    SetLastError(ENOENT);
    constexpr DWORD flags = FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM;
    wchar_t* text = nullptr;
    FormatMessageW(flags, nullptr, ENOENT, 0, reinterpret_cast<wchar_t*>(&text), 0, nullptr);
    EXPECT_STREQ(text, L"No such file or directory");
    LocalFree(text);
    expectFailure(DisableThreadLibraryCalls(nullptr), EINVAL);
    // Closes the last handle of a running child: a later close reaps the child.
    Started left("sleep 0.1");
    EXPECT_TRUE(CloseHandle(left.process));
    EXPECT_TRUE(left.awaitEnd());
}

TEST_F(Platform, ReadsPendAndCanBeCancelledAndShareOneStream)
{
    Started child("sh -c 'sleep 0.2; printf 0123456789; exec sleep 600'");
    expectFailure(child.readFrom(child.client), ERROR_IO_PENDING);
    expectFailure(child.result(false), ERROR_IO_PENDING);
    expectFailure(child.readFrom(child.client), EBUSY); // one read at a time
    EXPECT_TRUE(CancelIo(child.client));
    expectFailure(child.result(), ECANCELED);
    std::string text(1, child.next());
    const HANDLE self = GetCurrentProcess();
    HANDLE second = nullptr, sameChild = nullptr;
    DuplicateHandle(self, child.client, self, &second, 0, false, DUPLICATE_SAME_ACCESS);
    DuplicateHandle(self, child.process, self, &sameChild, 0, false, DUPLICATE_SAME_ACCESS);
    for (HANDLE end : {second, child.client, second, second, child.client}) {
        EXPECT_TRUE(child.readFrom(end));
        text.push_back(child.byte);
    }
    EXPECT_EQ(text, "012345");
    // Bytes that were read ahead come before the child's end, through any of its handles.
    EXPECT_TRUE(TerminateProcess(child.process, 1067));
    EXPECT_TRUE(child.awaitEnd());
    EXPECT_EQ(WaitForSingleObject(child.process, 0), WAIT_TIMEOUT);
    EXPECT_EQ(WaitForSingleObject(sameChild, 0), WAIT_TIMEOUT);
    expectFailure(child.readFrom(sameChild), EBADF);
    char rest[8] = {};
    EXPECT_TRUE(ReadFile(second, rest, 8, &child.count, &child.read));
    EXPECT_EQ(std::string(rest, child.count), "6789");
    EXPECT_EQ(WaitForSingleObject(child.process, 0), WAIT_OBJECT_0);
    EXPECT_TRUE(GetExitCodeProcess(child.process, &child.status));
    EXPECT_EQ(child.status, 1067U);
    CloseHandle(second);
    CloseHandle(sameChild);
    expectFailure(child.readFrom(second), EBADF);
}

// Where the child ended.
TEST_F(Platform, TheOutputOfAGrandchildThatNeverStopsWritingIsCut)
{
    Started shell("sh -c 'yes & sleep 0.1'");
    EXPECT_EQ(WaitForSingleObject(shell.process, INFINITE), WAIT_OBJECT_0);
    int bytes = 0;
    while (bytes <= 65536 && shell.next() != '-')
        ++bytes;
    EXPECT_LE(bytes, 65536); // the capacity of a pipe
}

// Calls `work` while another process traces this child, which then cannot be reaped when it has
// ended. Returns why that is not possible.
std::string whileTraced(DWORD child, const std::function<void()>& work)
{
    const pid_t tracer = forkChild([child] {
        return ptrace(PTRACE_SEIZE, child, nullptr, nullptr) == 0 && raise(SIGSTOP) == 0;
    });
    waitid(P_PID, static_cast<id_t>(tracer), nullptr, WEXITED | WSTOPPED | WNOWAIT);
    work();
    kill(tracer, SIGKILL);
    return waitForChild(tracer) == SIGKILL ? "" : "this user cannot trace processes";
}

// The output of the child has no end of file: another process has it open.
TEST_F(Platform, ATracedChildDoesNotDelayTheTimeout)
{
    Started child("sh -c 'sleep 4 & sleep 1'");
    const HANDLE both[] = {child.process, child.read.hEvent};
    EXPECT_FALSE(child.readFrom(child.client));
    DWORD woken = WAIT_FAILED;
    const std::string missing = whileTraced(
        child.pid, [&] { woken = WaitForMultipleObjectsEx(2, both, false, 2000, false); });
    if (mustSkip(missing))
        GTEST_SKIP() << missing;
    EXPECT_EQ(woken, WAIT_TIMEOUT);
}

// With this limit the system refuses to wait for any descriptor.
TEST_F(Platform, AWaitThatTheSystemRefusesFails)
{
#ifdef __SANITIZE_ADDRESS__
    GTEST_SKIP() << "the sanitizer needs a descriptor to check the type of an object";
#endif
    Started child("sleep 600");
    EXPECT_FALSE(child.readFrom(child.client));
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    const rlimit none{0, limit.rlim_max};
    const HANDLE both[] = {child.process, child.read.hEvent};
    setrlimit(RLIMIT_NOFILE, &none);
    const DWORD woken = WaitForMultipleObjectsEx(2, both, false, 1000, false);
    const DWORD error = GetLastError();
    const BOOL result = child.result();
    setrlimit(RLIMIT_NOFILE, &limit);
    EXPECT_EQ(woken, WAIT_FAILED);
    EXPECT_EQ(error, DWORD{EINVAL});
    expectFailure(result, EINVAL);
    expectFailure(child.readFrom(child.client), ERROR_IO_PENDING); // the refused one was cancelled
    EXPECT_TRUE(TerminateProcess(child.process, 1067));
}

// A killed child may take long to end. Here a tracer delays its reaping; the child of another user
// can also be blocked in a file system of that user.
TEST_F(Platform, AKilledChildThatCannotBeReapedDoesNotBlockTheCaller)
{
    UniqueFd reader, writer;
    ASSERT_TRUE(openPipe(reader, writer));
    Child child;
    ASSERT_TRUE(spawn({{"sleep", "600"}, "", {reader.get(), writer.get(), writer.get()}}, child));
    const std::string missing =
        whileTraced(static_cast<DWORD>(child.pid), [&] { const ChildGuard guard(child); });
    EXPECT_TRUE(CloseHandle(makeEvent())); // reaps the child
    if (mustSkip(missing))
        GTEST_SKIP() << missing;
}

TEST_F(Platform, OnlyOwnRunningChildrenAreTouched)
{
    for (const DWORD id : {DWORD{0}, static_cast<DWORD>(-1), static_cast<DWORD>(getpid())})
        expectFailure(GenerateConsoleCtrlEvent(CTRL_C_EVENT, id), ESRCH);
    // Each request sends one signal.
    Started child("sh -c 'trap \"printf i\" INT; printf r; while :; do sleep 0.01; done'");
    EXPECT_EQ(child.next(), 'r');
    for (int i = 0; i < 20; ++i) {
        EXPECT_TRUE(GenerateConsoleCtrlEvent(CTRL_C_EVENT, child.pid));
        EXPECT_EQ(child.next(), 'i');
    }
    EXPECT_FALSE(child.readFrom(child.client)); // no further signal arrives
    expectFailure(GetExitCodeProcess(child.process, &child.status), EBUSY);
    EXPECT_TRUE(GenerateConsoleCtrlEvent(CTRL_BREAK_EVENT, child.pid));
    EXPECT_EQ(WaitForSingleObject(child.process, INFINITE), WAIT_OBJECT_0);
    // A child that has moved to the caller's process group; its own group still has another
    // process.
    Started moved("perl -e 'if (fork) { setpgrp(0, getpgrp(getppid)); syswrite(STDOUT, \"r\") } "
                  "sleep 600'");
    EXPECT_EQ(moved.next(), 'r');
    EXPECT_TRUE(GenerateConsoleCtrlEvent(CTRL_BREAK_EVENT, moved.pid));
    EXPECT_EQ(WaitForSingleObject(moved.process, 9000), WAIT_OBJECT_0);
    // The id may belong to another process now.
    expectFailure(GenerateConsoleCtrlEvent(CTRL_BREAK_EVENT, child.pid), ESRCH);
    expectFailure(TerminateProcess(child.process, 9), ESRCH);
}

} // namespace
