// The file of the accounts' rights, and what makes its use safe.
#include "descriptors.h"
#include "rightsfile.h"
#include "rightsline.h"
#include "support/failure.h"
#include "support/fixture.h"
#include "support/scratchdirectory.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>

#include <algorithm>
#include <climits>
#include <csignal>
#include <thread>

using namespace tarnix_platform;

namespace
{

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
    const std::string lock = m_Scratch.path("rights.lock");
    const struct {
        const char* name;
        mode_t fileMode, directoryMode;
        bool isTrusted, isDirectoryTrusted;
        uid_t owner = geteuid();
    } cases[] = {
        {"of the owner", 0644, 0755, true, true},
        {"of a group", 0664, 0755, false, true},
        {"of all", 0602, 0755, false, true},
        {"in a directory of a group", 0644, 0775, false, false},
        {"in a sticky directory", 0644, 01777, false, false},
        // Only root can give a file away.
        {"of another owner", 0644, 0755, geteuid() != 0, true, 61001},
    };
    for (const auto& test : cases) {
        SCOPED_TRACE(test.name);
        chmod(m_File.c_str(), test.fileMode);
        chmod(m_Scratch.path().c_str(), test.directoryMode);
        std::filesystem::remove(lock);
        const int given = chown(m_File.c_str(), test.owner, getegid());
        EXPECT_EQ(given == 0, geteuid() == 0 || test.owner == geteuid());
        EXPECT_EQ(holdsRight("holder", "SeBatchLogonRight"), test.isTrusted);
        SetLastError(0);
        AddedRights added;
        EXPECT_EQ(addRights("second", {"SeOther"}, added), test.isTrusted);
        EXPECT_EQ(GetLastError(), test.isTrusted ? 0U : static_cast<DWORD>(EPERM));
        EXPECT_EQ(std::filesystem::exists(lock), test.isDirectoryTrusted);
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
    const auto addOfAnother = [] { // replaces the file
        AddedRights others;
        EXPECT_TRUE(addRights("third", {"SeOtherWithALongName"}, others));
    };
    const auto takeDescriptors = [&] {
        addOfAnother();
        const int next = openFile("/", O_RDONLY).get();
        limit(RLIMIT_NOFILE, static_cast<rlim_t>(next), formerFiles);
    };
    AddedRights added;
    const std::string standing = "holder SeBatchLogonRight\n";
    const auto limitToAddedLine = [&] { // which takes less than the new file would
        addOfAnother();
        limit(RLIMIT_FSIZE, (standing + "second SeOther" + added.mark).size(), formerSize);
    };
    const std::string present = m_Scratch.path("d/rights");
    UniqueFd newLock;
    const auto holdNewLock = [&] {
        const std::string lock = m_Scratch.path("d/rights.lock");
        std::filesystem::remove(lock);
        newLock = openFile(lock.c_str(), O_RDWR | O_CREAT, 0600);
        EXPECT_EQ(flock(newLock.get(), LOCK_EX), 0);
    };
    const struct {
        const char* name;
        std::function<void()> trouble;
        int error; // 0: the right is removed
        const char* file;
    } cases[] = {
        {"directory moved", [&] { move("d", "e"); }, 0, "e/rights"},
        {"file moved", [&] { move("d/rights", "d/old"); }, 0, "d/old"},
        {"other file", [&] { setRightsFile(m_File.c_str()); }, 0, "d/rights"},
        {"small limit", [&] { limit(RLIMIT_FSIZE, 10, formerSize); }, EFBIG, "d/rights"},
        {"limit that suffices", [&] { limit(RLIMIT_FSIZE, standing.size(), formerSize); }, 0,
         "d/rights"},
        {"limit for the line only", limitToAddedLine, 0, "d/rights"},
        {"file replaced, no descriptor", takeDescriptors, 0, "d/rights"},
        {"no longer root", [&] { EXPECT_EQ(seteuid(other), 0); }, 0, "d/rights"},
        {"file that others may write", [&] { chmod(present.c_str(), 0666); }, 0, "d/rights"},
        {"lock replaced and held", holdNewLock, ETIMEDOUT, "d/rights"},
    };
    for (const auto& test : cases) {
        SCOPED_TRACE(test.name);
        m_Scratch.makeDirectory("d");
        m_Scratch.write("d/rights", standing);
        setRightsFile(present.c_str());
        EXPECT_TRUE(addRights("second", {"SeOther"}, added));
        test.trouble();
        const bool isRemoved = removeRights("second", {"SeOther"}, added);
        const DWORD error = isRemoved ? 0 : GetLastError();
        newLock.reset();
        EXPECT_EQ(seteuid(user), 0);
        setrlimit(RLIMIT_FSIZE, &formerSize); // a failure is written to a file
        setrlimit(RLIMIT_NOFILE, &formerFiles);
        chmod(present.c_str(), 0644);
        EXPECT_EQ(error, static_cast<DWORD>(test.error));
        setRightsFile(m_Scratch.path(test.file).c_str());
        EXPECT_EQ(holdsRight("second", "SeOther"), !isRemoved);
        EXPECT_TRUE(removeRights("second", {"SeOther"}, added)); // the second attempt
        expectFailure(holdsRight("second", "SeOther"), EACCES);
    }
}

// A change keeps the lines of others, except those that ended processes have left.
TEST_F(Rights, OtherLinesAndTheAccessStay)
{
    const std::string others = "# by hand\n\n \nsecond\nsecond \na b #added\na b #added 1\n"
                               "a b #added x 2\na b #added 1 2x\na b #added 1x 2\n"
                               "a b #added 1 2 3\na b #added 1 2 3 \na b #added 1 2 3 4 5\n" +
                               std::string(9000, 'l') + " SeOther\n";
    m_Scratch.write("rights",
                    others + "a b #added 1 999999999\na b #added 4194304 1\na b #added 1 2 3 x\n"
                             "a b #added 0 0 0 0\nholder SeBatchLogonRight");
    chmod(m_File.c_str(), 0640);
    const gid_t group = geteuid() == 0 ? 61101 : getegid();
    EXPECT_EQ(chown(m_File.c_str(), geteuid(), group), 0);
    const std::string standing = others + "holder SeBatchLogonRight\n";
    AddedRights added;
    EXPECT_TRUE(addRights("second", {"SeOther"}, added));
    EXPECT_EQ(m_Scratch.read("rights"), standing + "second SeOther" + added.mark + '\n');
    // A forked copy of the process removes nothing.
    EXPECT_EQ(waitForChild(forkChild([&] { return removeRights("second", {"SeOther"}, added); })),
              0);
    EXPECT_TRUE(holdsRight("second", "SeOther"));
    EXPECT_TRUE(removeRights("second", {"SeOther"}, added));
    EXPECT_EQ(m_Scratch.read("rights"), standing);
    struct stat info {
    };
    EXPECT_EQ(stat(m_File.c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 07777, 0640U);
    EXPECT_EQ(info.st_gid, group);
}

TEST_F(Rights, OfAnAccount)
{
    m_Scratch.write("rights", "second Se1\nsecondary Se2\nsecond \nsecond Se3 #added 1 2\n");
    AddedRights added;
    EXPECT_TRUE(addRights("second", {"Se4", "Se5"}, added));
    std::vector<std::string> rights;
    EXPECT_TRUE(rightsOf("second", rights));
    EXPECT_EQ(rights, (std::vector<std::string>{"Se1", "Se4", "Se5"}));
}

// The length of a right has 16 bits. A longer one, cut to them, could be another right.
TEST_F(Rights, LongNames)
{
    const std::string longest(UINT16_MAX / sizeof(wchar_t) - 1, 'l');
    m_Scratch.write("rights", "second Se1\nsecond " + longest + "\nsecond l" + longest +
                                  "\nsecond Se2" + longest + "l\n");
    LSA_OBJECT_ATTRIBUTES attributes{};
    LSA_HANDLE policy = nullptr;
    EXPECT_EQ(LsaOpenPolicy(nullptr, &attributes, 0, &policy), 0);
    char second[] = "second", third[] = "third";
    LSA_UNICODE_STRING* rights = nullptr;
    DWORD count = 0;
    EXPECT_EQ(LsaEnumerateAccountRights(policy, second, &rights, &count), 0);
    ASSERT_EQ(count, 2U);
    EXPECT_EQ(std::wstring(rights[0].Buffer), L"Se1");
    EXPECT_EQ(rights[0].Length, 3 * sizeof(wchar_t));
    EXPECT_EQ(std::wstring(rights[1].Buffer), std::wstring(longest.size(), L'l'));
    EXPECT_EQ(rights[1].MaximumLength, (longest.size() + 1) * sizeof(wchar_t));
    LsaFreeMemory(rights);
    EXPECT_EQ(LsaNtStatusToWinError(LsaEnumerateAccountRights(policy, third, &rights, &count)),
              static_cast<DWORD>(ENOENT));
    EXPECT_EQ(LsaClose(policy), 0);
}

// If the file cannot be replaced, the mark of the line is overwritten, and nothing else.
TEST_F(Rights, AreRevokedInPlace)
{
    for (const std::string rest : {"\nholder SeBatchLogonRight\n", ""}) {
        setRightsFile(m_File.c_str());
        AddedRights added;
        EXPECT_TRUE(addRights("second", {"SeOther"}, added));
        const std::string mark = added.mark, line = "second SeOther" + mark,
                          similar = 'x' + line + '\n' + line + "1\n";
        m_Scratch.write("rights", similar + line + rest);
        std::filesystem::rename(m_File, m_Scratch.path("moved"));
        EXPECT_TRUE(removeRights("second", {"SeOther"}, added));
        const std::string revoked = "second SeOther" + disowned(mark);
        EXPECT_EQ(m_Scratch.read("moved"), similar + revoked + rest);
        EXPECT_TRUE(isLeftover(revoked)); // the next change removes it
    }
}

TEST_F(Rights, WithoutAFile)
{
    setRightsFile(m_Scratch.path("none/rights").c_str());
    expectFailure(holdsRight("holder", "SeBatchLogonRight"), EACCES);
    AddedRights added;
    EXPECT_TRUE(addRights("second", {"SeOther"}, added)); // creates the directory
    EXPECT_EQ(std::filesystem::status(m_Scratch.path("none")).permissions(),
              std::filesystem::perms(0700));
    EXPECT_TRUE(removeRights("second", {"SeOther"}, added));
    // A named pipe does not block the caller.
    EXPECT_EQ(mkfifo(m_Scratch.path("pipe").c_str(), 0600), 0);
    setRightsFile(m_Scratch.path("pipe").c_str());
    expectFailure(holdsRight("holder", "SeBatchLogonRight"), EACCES);
}

// In doubt, a process that has added a right still runs; but this one cannot add any.
TEST_F(Rights, WithoutProc)
{
    AddedRights added;
    EXPECT_TRUE(addRights("second", {"SeOther"}, added));
    const pid_t child = forkChild([&] {
        const std::string missing = enterNamespaces({});
        if (!missing.empty() || mount("none", "/proc", "tmpfs", 0, nullptr) != 0) {
            m_Scratch.write("missing", missing + ' ');
            return true;
        }
        const bool holds = holdsRight("second", "SeOther");
        AddedRights none;
        const bool adds = addRights("third", {"SeOther"}, none);
        m_Scratch.write("result", (holds ? "held, " : "not held, ") +
                                      (adds ? "added" : std::to_string(GetLastError())));
        return true;
    });
    EXPECT_EQ(waitForChild(child), 0);
    if (mustSkip(m_Scratch.read("missing")))
        GTEST_SKIP() << m_Scratch.read("missing");
    EXPECT_EQ(m_Scratch.read("result"), "held, " + std::to_string(ENOENT));
}

// The calling process has no descriptor 0, 1 or 2. Those that stay open do not take their place.
TEST_F(Rights, WithoutStandardDescriptors)
{
    int former[3];
    for (int fd = 0; fd < 3; ++fd) {
        former[fd] = fcntl(fd, F_DUPFD_CLOEXEC, 3);
        close(fd);
    }
    AddedRights added;
    const bool holds = holdsRight("holder", "SeBatchLogonRight");
    const bool isAdded = addRights("second", {"SeOther"}, added);
    const int lowest = std::min(
        {added.place.directory.get(), added.lock.get(), added.file.get(), added.spare.get()});
    const bool isRemoved = removeRights("second", {"SeOther"}, added);
    for (int fd = 0; fd < 3; ++fd) {
        dup2(former[fd], fd);
        close(former[fd]);
    }
    EXPECT_TRUE(holds);
    EXPECT_TRUE(isAdded);
    EXPECT_GT(lowest, 2);
    EXPECT_TRUE(isRemoved);
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
        {"unknown boot", ' ' + image + " -", true, true},
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

} // namespace
