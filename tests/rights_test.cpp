// SPDX-License-Identifier: LicenseRef-Tarnix
// The file of the accounts' rights, and what makes its use safe.
#include "descriptors.h"
#include "filelock.h"
#include "rightsfile.h"
#include "rightsline.h"
#include "support/brief.h"
#include "support/failure.h"
#include "support/fixture.h"
#include "support/scratchdirectory.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/syscall.h>

#include <climits>
#include <csignal>
#include <iterator>
#include <thread>

using namespace tarnix_platform;

namespace
{

constexpr DWORD defaultTimeout = 10000; // milliseconds

const std::string standing = "holder SeBatchLogonRight\n";

struct Rights : LeakCheck {
    void SetUp() override
    {
        SKIP_WITHOUT_PROC();
        m_Scratch.write("rights", standing);
        setRightsFile(m_File.c_str());
        EXPECT_EQ(setLockTimeout(50), defaultTimeout);
    }
    ~Rights() override
    {
        setLockTimeout(defaultTimeout);
        setRightsFile(nullptr);
    }

    bool add() { return addRights("second", {"SeOther"}, m_Added); }
    bool remove() { return removeRights("second", {"SeOther"}, m_Added); }
    static bool isHeld() { return holdsRight("second", "SeOther"); }

    const ScratchDirectory m_Scratch;
    const std::string m_File = m_Scratch.path("rights"), m_Lock = m_File + ".lock";
    AddedRights m_Added;
};

// Ends a child. Its status.
int killed(pid_t child) { return kill(child, SIGKILL) == 0 ? waitForChild(child) : -1; }

TEST_F(Rights, ThatOthersMayWriteAreRefused)
{
    const uid_t self = geteuid();
    const struct {
        const char* name;
        mode_t fileMode, directoryMode;
        uid_t owner;
        bool isTrusted, isDirectoryTrusted;
    } cases[] = {
        {"of the owner", 0644, 0755, self, true, true},
        {"of a group", 0664, 0755, self, false, true},
        {"of all", 0602, 0755, self, false, true},
        {"in a directory of a group", 0644, 0775, self, false, false},
        {"in a sticky directory", 0644, 01777, self, false, false},
        // Only root can give a file away.
        {"of another owner", 0644, 0755, 61001, self != 0, true},
    };
    for (const auto& test : cases) {
        SCOPED_TRACE(test.name);
        chmod(m_File.c_str(), test.fileMode);
        chmod(m_Scratch.path().c_str(), test.directoryMode);
        std::filesystem::remove(m_Lock);
        const int given = chown(m_File.c_str(), test.owner, getegid());
        EXPECT_EQ(given == 0, self == 0 || test.owner == self);
        EXPECT_EQ(holdsRight("holder", "SeBatchLogonRight"), test.isTrusted);
        SetLastError(0);
        EXPECT_EQ(add(), test.isTrusted);
        EXPECT_EQ(GetLastError(), test.isTrusted ? 0U : static_cast<DWORD>(EPERM));
        EXPECT_EQ(std::filesystem::exists(m_Lock), test.isDirectoryTrusted);
        m_Added = AddedRights();
    }
    if (withoutUsers().empty()) { // everybody trusts files of root
        EXPECT_TRUE(chown(m_File.c_str(), 0, 0) == 0 && seteuid(61001) == 0);
        EXPECT_TRUE(holdsRight("holder", "SeBatchLogonRight"));
        EXPECT_EQ(seteuid(0), 0);
    }
}

TEST_F(Rights, UnusablePaths)
{
    std::filesystem::create_symlink("rights", m_Scratch.path("link"));
    m_Scratch.makeDirectory("directory");
    EXPECT_EQ(mkfifo(m_Scratch.path("pipe").c_str(), 0600), 0);
    // If it were cut to what the system takes, it would name the file.
    std::string tooLong = m_File + 'x';
    tooLong.insert(tooLong.rfind('/'), PATH_MAX - tooLong.size(), '/');
    const struct {
        std::string path;
        DWORD readError, addError; // 0: works
    } rows[] = {
        {m_Scratch.path("link"), ELOOP, ELOOP},
        {m_Scratch.path("directory"), EISDIR, EISDIR},
        {m_Scratch.path("pipe"), EACCES, 0}, // does not block the caller
        {m_File + "/rights", ENOTDIR, ENOTDIR},
        {std::filesystem::relative(m_File), EINVAL, EINVAL},
        {tooLong, ENAMETOOLONG, ENAMETOOLONG},
        {m_Scratch.path("none/none/rights"), EACCES, ENOENT},
        {m_Scratch.path("new/rights"), EACCES, 0}, // creates the directory
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.path);
        setRightsFile(row.path.c_str());
        expectFailure(holdsRight("holder", "SeBatchLogonRight"), row.readError);
        SetLastError(0);
        EXPECT_EQ(add(), row.addError == 0);
        EXPECT_EQ(GetLastError(), row.addError);
    }
    EXPECT_EQ(std::filesystem::status(m_Scratch.path("new")).permissions(),
              std::filesystem::perms(0700));
    EXPECT_TRUE(remove());
}

// Whoever can open the lock file can hold the lock. A process that is forked meanwhile cannot.
TEST_F(Rights, TheLockIsTheOwnersAlone)
{
    m_Scratch.write("rights.lock", "");
    chmod(m_Lock.c_str(), 0644);
    EXPECT_TRUE(add());
    EXPECT_EQ(std::filesystem::status(m_Lock).permissions(), std::filesystem::perms(0600));
    pid_t forked = -1;
    const UniqueFd file = openFile(m_Lock.c_str(), O_RDWR);
    {
        FileLock held;
        EXPECT_TRUE(held.acquire(file.get(), m_Lock));
        forked = forkChild([] { return pause() == 0; });
        expectFailure(add(), ETIMEDOUT);
    }
    EXPECT_TRUE(add());
    EXPECT_TRUE(remove());
    EXPECT_EQ(killed(forked), SIGKILL);
    if (chown(m_Lock.c_str(), 61001, getegid()) == 0)
        expectFailure(add(), EPERM);
    std::filesystem::remove(m_Lock);
    std::filesystem::create_symlink("rights", m_Lock);
    expectFailure(add(), ELOOP);
    expectFailure(FileLock().acquire(-1, m_Lock), EBADF); // at once
}

// A process adds a right, and removes it when the file is somewhere else, or cannot be written.
TEST_F(Rights, ThatWereAddedAreRemovedInTrouble)
{
    const uid_t user = geteuid(), other = user == 0 ? 61001 : user;
    const auto move = [&](const char* from, const char* to) {
        std::filesystem::rename(m_Scratch.path(from), m_Scratch.path(to));
    };
    const std::string present = m_Scratch.path("d/rights");
    UniqueFd newLock;
    const auto holdNewLock = [&] {
        std::filesystem::remove(present + ".lock");
        newLock = openFile((present + ".lock").c_str(), O_RDWR | O_CREAT, 0600);
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
        {"small limit", [&] { setLimit(RLIMIT_FSIZE, 10); }, EFBIG, "d/rights"},
        {"limit that suffices", [&] { setLimit(RLIMIT_FSIZE, standing.size()); }, 0, "d/rights"},
        {"no longer root", [&] { EXPECT_EQ(seteuid(other), 0); }, 0, "d/rights"},
        {"file that others may write", [&] { chmod(present.c_str(), 0666); }, 0, "d/rights"},
        {"lock replaced and held", holdNewLock, ETIMEDOUT, "d/rights"},
    };
    for (const auto& test : cases) {
        SCOPED_TRACE(test.name);
        m_Scratch.makeDirectory("d");
        m_Scratch.write("d/rights", standing);
        setRightsFile(present.c_str());
        EXPECT_TRUE(add());
        test.trouble();
        const DWORD error = remove() ? 0 : GetLastError();
        newLock.reset();
        EXPECT_EQ(seteuid(user), 0);
        setLimit(RLIMIT_FSIZE, RLIM_INFINITY); // a failure is written to a file
        chmod(present.c_str(), 0644);
        EXPECT_EQ(error, static_cast<DWORD>(test.error));
        setRightsFile(m_Scratch.path(test.file).c_str());
        EXPECT_EQ(isHeld(), error != 0);
        EXPECT_TRUE(remove()); // the second attempt
        expectFailure(isHeld(), EACCES);
    }
}

// A change keeps the lines of others, except those that ended processes have left.
TEST_F(Rights, OtherLinesAndTheAccessStay)
{
    const std::string others = "# by hand\n\n \nsecond\nsecond \na b #added\na b #added 1\n"
                               "a b #added x 2\na b #added 1 2x\na b #added 1x 2\n"
                               "a b #added 1 2 3\na b #added 1 2 3 \na b #added 1 2 3 4 5\n"
                               "a b #added 1 2 x 4\na b #added 1 2 3x4\n" +
                               std::string(9000, 'l') + " SeOther\n";
    m_Scratch.write("rights",
                    others + "a b #added 1 999999999\na b #added 4194304 1\na b #added 1 2 3 x\n"
                             "a b #added 0 0 0 0\nholder SeBatchLogonRight");
    chmod(m_File.c_str(), 0640);
    const gid_t group = geteuid() == 0 ? 61101 : getegid();
    EXPECT_EQ(chown(m_File.c_str(), geteuid(), group), 0);
    EXPECT_TRUE(add());
    EXPECT_EQ(m_Scratch.read("rights"), others + standing + "second SeOther" + m_Added.mark + '\n');
    // A forked copy of the process removes nothing.
    EXPECT_EQ(waitForChild(forkChild([&] { return remove(); })), 0);
    EXPECT_TRUE(isHeld());
    EXPECT_TRUE(remove());
    EXPECT_EQ(m_Scratch.read("rights"), others + standing);
    struct stat info = {};
    EXPECT_EQ(stat(m_File.c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 07777, 0640U);
    EXPECT_EQ(info.st_gid, group);
}

// The length of a right has 16 bits. A longer one, cut to them, could be another right.
TEST_F(Rights, OfAnAccount)
{
    const std::string longest(UINT16_MAX / sizeof(wchar_t) - 1, 'l');
    m_Scratch.write("rights", "second Se1\nsecond " + longest + "\nsecond l" + longest +
                                  "\nsecond Se2" + longest +
                                  "l\nsecondary Se2\nsecond \nsecond Se3 #added 1 2\n");
    EXPECT_TRUE(addRights("second", {"Se4", "Se~"}, m_Added));
    LSA_OBJECT_ATTRIBUTES attributes{};
    LSA_HANDLE policy = nullptr;
    EXPECT_EQ(LsaOpenPolicy(nullptr, &attributes, 0, &policy), 0);
    char second[] = "second", third[] = "third";
    LSA_UNICODE_STRING* rights = nullptr;
    DWORD count = 0;
    const auto enumerate = [&](char* account) {
        return LsaNtStatusToWinError(LsaEnumerateAccountRights(policy, account, &rights, &count));
    };
    EXPECT_EQ(enumerate(second), 0U);
    std::vector<std::string> names;
    for (DWORD i = 0; i < count; ++i) {
        const std::wstring name = rights[i].Buffer;
        EXPECT_EQ(rights[i].Length, name.size() * sizeof(wchar_t));
        EXPECT_EQ(rights[i].MaximumLength, rights[i].Length + sizeof(wchar_t));
        names.push_back(brief(std::string(name.begin(), name.end())));
    }
    EXPECT_EQ(names, (std::vector<std::string>{"Se1", brief(longest), "Se4", "Se~"}));
    EXPECT_EQ(LsaRemoveAccountRights(policy, second, false, rights + 2, 2), 0); // not its own
    EXPECT_EQ(LsaFreeMemory(rights), 0);
    EXPECT_EQ(enumerate(third), DWORD{ENOENT});
    EXPECT_TRUE(removeRights("second", {"Se4", "Se~"}, m_Added));
    chmod(m_File.c_str(), 0666);
    EXPECT_EQ(enumerate(second), DWORD{EPERM});
    EXPECT_EQ(LsaClose(policy), 0);
    EXPECT_EQ(LsaNtStatusToWinError(LsaClose(policy)), DWORD{EBADF});
}

// Their last line is of a process that has ended.
TEST_F(Rights, InFilesOfReleasedVersions)
{
    for (const auto& release : std::filesystem::directory_iterator(TARNIX_CORPUS)) {
        SCOPED_TRACE(release.path());
        std::filesystem::copy_file(release.path() / "rights", m_File,
                                   std::filesystem::copy_options::overwrite_existing);
        EXPECT_TRUE(holdsRight("holder", "SeBatchLogonRight"));
        EXPECT_TRUE(holdsRight("second", "SeBatchLogonRight"));
        expectFailure(isHeld(), EACCES);
    }
}

// If the file cannot be replaced, the mark of the line is overwritten, and nothing else.
TEST_F(Rights, AreRevokedInPlace)
{
    const std::vector<std::string> names{"SeGone", "SeOther", "SeOther"};
    for (const std::string rest : {"\nholder SeBatchLogonRight\n", ""}) {
        EXPECT_TRUE(addRights("second", names, m_Added));
        const std::string line = "second SeOther" + m_Added.mark,
                          similar = 'x' + line + '\n' + line + "1\n",
                          revoked = "second SeOther" + disowned(m_Added.mark);
        m_Scratch.write("rights", line + '\n' + similar + line + rest);
        std::filesystem::rename(m_File, m_Scratch.path("moved"));
        EXPECT_TRUE(removeRights("second", names, m_Added));
        EXPECT_FALSE(std::filesystem::exists(m_File));
        EXPECT_EQ(m_Scratch.read("moved"), revoked + '\n' + similar + revoked + rest);
    }
}

// In doubt, a process that has added a right still runs; but this one cannot add any.
TEST_F(Rights, WithoutProc)
{
    EXPECT_TRUE(add());
    const pid_t child = forkChild([&] {
        const std::string missing = enterNamespaces({});
        if (!missing.empty() || mount("none", "/proc", "tmpfs", 0, nullptr) != 0) {
            m_Scratch.write("missing", missing + ' ');
            return true;
        }
        EXPECT_TRUE(isHeld());
        EXPECT_TRUE(isLeftover("a" + disowned(" #added 12 3")));
        expectFailure(add(), ENOENT);
        return !HasFailure();
    });
    EXPECT_EQ(waitForChild(child), 0);
    EXPECT_TRUE(remove());
    SKIP_IF(m_Scratch.read("missing"));
}

// The caller has closed its standard error. A descriptor that stays open does not take its place.
TEST_F(Rights, WithoutAStandardDescriptor)
{
    const int error = dup(STDERR_FILENO);
    close(STDERR_FILENO);
    const HANDLE copy = openDescriptor(error);
    EXPECT_TRUE(add());
    EXPECT_EQ(dup(error), STDERR_FILENO);
    EXPECT_TRUE(CloseHandle(copy));
    EXPECT_TRUE(remove());
    close(error);
}

// A field of a process's status, after its program's name, which has no blank.
std::string statusField(pid_t process, int number)
{
    std::ifstream file("/proc/" + std::to_string(process) + "/stat");
    return *std::next(std::istream_iterator<std::string>(file), number - 1);
}

// A right that a process has added ends with the process, and with the program that it runs.
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
    pid_t child = forkChild([] { return pause() == 0; });
    for (const auto& test : cases) {
        EXPECT_EQ(holds(getpid(), test.end), test.own) << test.name;
        EXPECT_EQ(holds(child, test.end), test.other) << test.name;
    }
    kill(child, SIGKILL);
    waitid(P_PID, static_cast<id_t>(child), nullptr, WEXITED | WNOWAIT);
    EXPECT_FALSE(holds(child, rest)); // it is a zombie
    waitForChild(child);
    // It goes on after its first thread has ended.
    child = forkChild([] {
        std::thread([] { pause(); }).detach();
        return syscall(SYS_exit, 0) == 0;
    });
    while (statusField(child, 3) != "Z")
        Sleep(0);
    EXPECT_TRUE(holds(child, rest));
    EXPECT_EQ(killed(child), SIGKILL);
}

} // namespace
