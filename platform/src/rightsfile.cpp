// The file of the accounts' rights.
#include "rightsfile.h"

#include "descriptors.h"
#include "errors.h"
#include "filereplacement.h"
#include "pathsetting.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <climits>
#include <cstdint>
#include <functional>
#include <string_view>
#include <system_error>
#include <thread>
#include <utility>

namespace tarnix_platform
{

namespace
{

PathSetting g_pathSetting;

std::string currentPath()
{
    return g_pathSetting.pathOr(TARNIX_RIGHTS_FILE);
}

using Lines = std::vector<std::string>;

constexpr mode_t kOwnerOnly = S_IRUSR | S_IWUSR;
constexpr std::chrono::seconds kLockTimeout{10};
constexpr std::chrono::milliseconds kLockInterval{1};

std::string quoted(const std::string& path)
{
    return "'" + path + "'";
}

std::string directoryOf(const std::string& path)
{
    return path.substr(0, path.find_last_of('/') + 1) + ".";
}

// Whoever may write the file could grant rights, and whoever may write its directory could put
// another file there. A sticky directory is refused too: it lets anybody create the missing file.
bool isTrusted(int fd, const std::string& path)
{
    struct stat info {
    };
    if (::fstat(fd, &info) != 0) {
        return fail(errno, "cannot check " + quoted(path));
    }
    if (info.st_uid != 0 && info.st_uid != ::geteuid()) {
        return fail(EPERM, "cannot trust rights of another owner, in " + quoted(path));
    }
    if ((info.st_mode & (S_IWGRP | S_IWOTH)) != 0) {
        return fail(EPERM,
                    "cannot trust rights that group or others may write, in " + quoted(path));
    }
    return true;
}

bool isTrustedDirectory(const std::string& path)
{
    const UniqueFd directory = openFile(path.c_str(), O_PATH | O_DIRECTORY);
    if (!directory) {
        return errno == ENOENT || fail(errno, "cannot open directory " + quoted(path));
    }
    return isTrusted(directory.get(), path);
}

bool readText(int fd, std::string& text)
{
    char piece[4096];
    ssize_t got = 0;
    while ((got = readSome(fd, piece, sizeof piece)) > 0) {
        text.append(piece, static_cast<std::size_t>(got));
    }
    return got == 0;
}

// A missing file has no lines. It is opened without waiting: at its path may be a named pipe.
bool readLines(const std::string& path, Lines& lines)
{
    lines.clear();
    if (!isTrustedDirectory(directoryOf(path))) {
        return false;
    }
    const UniqueFd file = openFile(path.c_str(), O_RDONLY | O_NONBLOCK);
    if (!file) {
        return errno == ENOENT || fail(errno, "cannot read " + quoted(path));
    }
    if (!isTrusted(file.get(), path)) {
        return false;
    }
    std::string text;
    if (!readText(file.get(), text)) {
        return fail(errno, "cannot read " + quoted(path));
    }
    for (std::size_t begin = 0; begin < text.size();) {
        const std::size_t end = std::min(text.find('\n', begin), text.size());
        lines.push_back(text.substr(begin, end - begin));
        begin = end + 1;
    }
    return true;
}

// A process. Its number alone is used again after its end.
struct Owner {
    std::uint64_t pid = 0;
    std::uint64_t startTime = 0;

    bool operator==(const Owner& other) const
    {
        return pid == other.pid && startTime == other.startTime;
    }
};

constexpr std::string_view kMark = " #added ";
constexpr char kOwnStatus[] = "/proc/self/stat";

bool readNumber(std::string_view& text, std::uint64_t& number)
{
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    text.remove_prefix(static_cast<std::size_t>(end - text.data()));
    return error == std::errc();
}

// The owner in the text "PID START" of a line.
bool parseOwner(std::string_view text, Owner& owner)
{
    if (!readNumber(text, owner.pid) || text.empty() || text.front() != ' ') {
        return false;
    }
    text.remove_prefix(1);
    return readNumber(text, owner.startTime) && text.empty();
}

// A line of the file: whole, what it grants ("account right"), and, if a process has added it, who.
struct Grant {
    explicit Grant(std::string_view line) : text(line)
    {
        const std::size_t mark = line.rfind(kMark);
        isAdded =
            mark != std::string_view::npos && parseOwner(line.substr(mark + kMark.size()), owner);
        if (isAdded) {
            text = line.substr(0, mark);
        }
    }

    std::string_view text;
    bool isAdded = false;
    Owner owner;
};

// Reads the status file of a process. Returns 0 or an errno.
int readOwner(const std::string& path, Owner& owner)
{
    const UniqueFd file = openFile(path.c_str(), O_RDONLY);
    char status[1024]; // the fields that count are within the first 500 bytes
    const ssize_t got = file ? readSome(file.get(), status, sizeof status) : -1;
    if (got < 0) {
        return errno;
    }
    std::string_view text(status, static_cast<std::size_t>(got));
    const bool good = readNumber(text, owner.pid);
    // The name of the program comes second, in parentheses, and may hold any character.
    text.remove_prefix(std::min(text.rfind(')'), text.size()));
    constexpr int fieldsBeforeStart = 20;
    for (int i = 0; i < fieldsBeforeStart; ++i) {
        text.remove_prefix(std::min(text.find(' '), text.size()));
        text.remove_prefix(std::min<std::size_t>(1, text.size()));
    }
    return good && readNumber(text, owner.startTime) ? 0 : EINVAL;
}

bool readThisProcess(Owner& owner)
{
    const int error = readOwner(kOwnStatus, owner);
    return error == 0 || fail(error, std::string("cannot read '") + kOwnStatus + "'");
}

// When in doubt, as without a /proc, the owner counts as running.
bool isGone(const Owner& owner)
{
    Owner now;
    const int error = readOwner("/proc/" + std::to_string(owner.pid) + "/stat", now);
    if (error == ENOENT || error == ESRCH) {
        return ::access(kOwnStatus, F_OK) == 0;
    }
    return error == 0 && !(now == owner);
}

bool isLeftover(const std::string& line)
{
    const Grant grant(line);
    return grant.isAdded && isGone(grant.owner);
}

// The new file gets the owner and the mode of the old one. False if one of them cannot be set:
// they decide who may grant rights, so the old file then stays.
bool copyAccess(const std::string& path, FileReplacement& file)
{
    struct stat old {
    };
    return ::stat(path.c_str(), &old) != 0 ||
           (::fchown(file.fd(), old.st_uid, old.st_gid) == 0 && file.setMode(old.st_mode & 07777));
}

// A second descriptor of the open file, which is closed in children as the first is.
UniqueFd duplicate(int fd)
{
    return UniqueFd(::fcntl(fd, F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
}

// The current path of the open file; other text if it has none any more. Needs no permission.
std::string pathOf(const UniqueFd& file)
{
    char path[PATH_MAX];
    const std::string link = "/proc/self/fd/" + std::to_string(file.get());
    const ssize_t size = ::readlink(link.c_str(), path, sizeof path);
    return std::string(path, size > 0 ? static_cast<std::size_t>(size) : 0);
}

// `copy` receives a descriptor of the new file, if it is not null.
bool replaceFile(const std::string& path, const Lines& lines, UniqueFd* copy = nullptr)
{
    std::string text;
    for (const std::string& line : lines) {
        text.append(line).push_back('\n');
    }
    const std::string temporary = path + ".new";
    // A change that was interrupted may have left one. It is not reused: somebody could hold it
    // open.
    ::unlink(temporary.c_str());
    FileReplacement file;
    if (!file.create(temporary, kOwnerOnly)) {
        return fail(errno, "cannot create " + quoted(temporary));
    }
    if (copy != nullptr) {
        *copy = duplicate(file.fd());
        if (!*copy) {
            return fail(errno, "cannot keep open " + quoted(temporary));
        }
    }
    const bool good = copyAccess(path, file) && writeAll(file.fd(), text.data(), text.size()) &&
                      file.commitToDisk(path);
    return good || fail(errno, "cannot replace " + quoted(path));
}

// The exclusive lock for a change. It is held on a separate file, because each change replaces the
// rights file itself.
class ChangeLock
{
public:
    ChangeLock() = default;
    // Closing does not release the lock if a process that was forked meanwhile has the file open
    // too.
    ~ChangeLock()
    {
        if (m_Fd >= 0) {
            ::flock(m_Fd, LOCK_UN);
        }
    }
    ChangeLock(const ChangeLock&) = delete;
    ChangeLock& operator=(const ChangeLock&) = delete;

    // `held` is a descriptor of the lock file, or -1. It saves opening the file, unless the file
    // has been deleted since: then other processes lock a new one.
    bool acquire(const std::string& path, int held = -1)
    {
        struct stat info {
        };
        if (held >= 0 && ::fstat(held, &info) == 0 && info.st_nlink > 0) {
            m_Fd = held;
        } else {
            m_File = openFile(path.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW, kOwnerOnly);
            m_Fd = m_File.get();
        }
        return m_Fd >= 0 ? wait(path) : fail(errno, "cannot open lock file " + quoted(path));
    }

    int fd() const { return m_Fd; }

private:
    // Polls, because a wait of the system has no timeout. A process that is stopped while it holds
    // the lock would otherwise stop every other one.
    bool wait(const std::string& path)
    {
        const auto deadline = std::chrono::steady_clock::now() + kLockTimeout;
        while (::flock(m_Fd, LOCK_EX | LOCK_NB) != 0) {
            if (errno != EWOULDBLOCK && errno != EINTR) {
                return fail(errno, "cannot lock " + quoted(path));
            }
            if (std::chrono::steady_clock::now() >= deadline) {
                return fail(ETIMEDOUT, "timed out locking " + quoted(path));
            }
            std::this_thread::sleep_for(kLockInterval);
        }
        return true;
    }

    UniqueFd m_File;
    int m_Fd = -1;
};

bool removeLines(Lines& lines, const std::function<bool(const std::string&)>& matches)
{
    const auto end = std::remove_if(lines.begin(), lines.end(), matches);
    const bool changed = end != lines.end();
    lines.erase(end, lines.end());
    return changed;
}

// Reads the lines for a change, which also removes what processes that have ended have left.
// `hadLeftovers` is whether there was any.
bool readForChange(const std::string& path, Lines& lines, bool& hadLeftovers)
{
    if (!readLines(path, lines)) {
        return false;
    }
    hadLeftovers = removeLines(lines, isLeftover);
    return true;
}

// Nothing is created in a directory that is refused.
bool beginChange(const std::string& path, ChangeLock& lock)
{
    ::mkdir(path.substr(0, path.find_last_of('/') + 1).c_str(), S_IRWXU);
    return isTrustedDirectory(directoryOf(path)) && lock.acquire(path + ".lock");
}

std::string lineOf(const std::string& account, const std::string& right)
{
    return account + " " + right;
}

bool startsWith(std::string_view line, std::string_view start)
{
    return line.substr(0, start.size()) == start;
}

std::string markOf(const Owner& owner)
{
    return std::string(kMark).append(std::to_string(owner.pid) + " " +
                                     std::to_string(owner.startTime));
}

bool removeByReplacing(const std::vector<std::string>& added, const std::string& path)
{
    Lines lines;
    bool changed = false;
    if (!readForChange(path, lines, changed)) {
        return false;
    }
    for (const std::string& line : added) {
        const auto found = std::find(lines.begin(), lines.end(), line);
        if (found != lines.end()) {
            lines.erase(found);
            changed = true;
        }
    }
    return !changed || replaceFile(path, lines);
}

// Where the text has this line, or npos.
std::size_t findLine(const std::string& text, const std::string& line)
{
    std::size_t at = text.find(line);
    while (at != std::string::npos) {
        const std::size_t end = at + line.size();
        if ((at == 0 || text[at - 1] == '\n') && (end == text.size() || text[end] == '\n')) {
            break;
        }
        at = text.find(line, at + 1);
    }
    return at;
}

// Overwrites the owners of the lines by zeros, which no process has for its number: the lines grant
// nothing from then on, and the next change removes them. This needs no space on the disk. The last
// error stays as it was.
bool disown(const std::vector<std::string>& added, const AddedRights& rights)
{
    const UniqueFd opened = openFile(rights.path.c_str(), O_RDWR | O_NONBLOCK | O_NOFOLLOW);
    const bool isCurrent = !rights.fileName.empty() && pathOf(rights.file) == rights.fileName;
    const int file = opened ? opened.get() : isCurrent ? rights.file.get() : -1;
    std::string text;
    if (::lseek(file, 0, SEEK_SET) != 0 || !readText(file, text)) {
        return false;
    }
    for (const std::string& line : added) {
        const std::size_t at = findLine(text, line);
        if (at == std::string::npos) {
            continue;
        }
        const std::size_t begin = at + line.rfind(kMark) + kMark.size();
        const std::size_t size = at + line.size() - begin;
        std::replace_if(
            text.begin() + static_cast<std::ptrdiff_t>(begin),
            text.begin() + static_cast<std::ptrdiff_t>(begin + size),
            [](char c) { return c != ' '; }, '0');
        if (::pwrite(file, text.data() + begin, size, static_cast<off_t>(begin)) !=
            static_cast<ssize_t>(size)) {
            return false;
        }
    }
    return ::fsync(file) == 0;
}

} // namespace

void setRightsFile(const char* path)
{
    g_pathSetting.set(path);
}

bool holdsRight(const std::string& account, const std::string& right)
{
    Lines lines;
    const std::string wanted = lineOf(account, right);
    return readLines(currentPath(), lines) &&
           std::any_of(lines.begin(), lines.end(), [&](const std::string& line) {
               return Grant(line).text == wanted && !isLeftover(line);
           });
}

bool rightsOf(const std::string& account, std::vector<std::string>& rights)
{
    rights.clear();
    Lines lines;
    if (!readLines(currentPath(), lines)) {
        return false;
    }
    Owner self;
    const bool isKnown = readOwner(kOwnStatus, self) == 0;
    const std::string start = account + " ";
    for (const std::string& line : lines) {
        const Grant grant(line);
        if (grant.text.size() > start.size() && startsWith(grant.text, start) &&
            (!grant.isAdded || (isKnown && grant.owner == self))) {
            rights.emplace_back(grant.text.substr(start.size()));
        }
    }
    return true;
}

bool addRights(const std::string& account, const std::vector<std::string>& names,
               AddedRights& rights)
{
    AddedRights added;
    added.path = currentPath();
    added.process = ::getpid();
    ChangeLock lock;
    Lines lines;
    Owner self;
    bool hadLeftovers = false;
    if (!readThisProcess(self) || !beginChange(added.path, lock) ||
        !readForChange(added.path, lines, hadLeftovers)) {
        return false;
    }
    added.mark = markOf(self);
    added.lock = duplicate(lock.fd());
    added.spare = duplicate(lock.fd());
    if (!added.lock || !added.spare) {
        return fail(errno, "cannot keep open the lock of " + quoted(added.path));
    }
    for (const std::string& name : names) {
        lines.push_back(lineOf(account, name) + added.mark);
    }
    rights = std::move(added); // before the change: if memory runs out after it, it can be undone
    if (!replaceFile(rights.path, lines, &rights.file)) {
        rights = AddedRights();
        return false;
    }
    rights.fileName = pathOf(rights.file);
    return true;
}

bool removeRights(const std::string& account, const std::vector<std::string>& names,
                  AddedRights& rights)
{
    if (rights.process != ::getpid()) {
        return true; // nothing was added, or by the process that this one is a copy of
    }
    std::vector<std::string> lines;
    lines.reserve(names.size());
    for (const std::string& name : names) {
        lines.push_back(lineOf(account, name) + rights.mark);
    }
    rights.spare.reset();
    {
        ChangeLock lock; // released before `rights` closes the file
        if (!lock.acquire(rights.path + ".lock", rights.lock.get()) ||
            (!removeByReplacing(lines, rights.path) && !disown(lines, rights))) {
            return false;
        }
    }
    rights = AddedRights();
    return true;
}

} // namespace tarnix_platform
