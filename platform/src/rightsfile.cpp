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
#include <cstdint>
#include <functional>
#include <string_view>
#include <system_error>
#include <thread>

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
    char piece[4096];
    for (;;) {
        const ssize_t got = readSome(file.get(), piece, sizeof piece);
        if (got < 0) {
            return fail(errno, "cannot read " + quoted(path));
        }
        if (got == 0) {
            break;
        }
        text.append(piece, static_cast<std::size_t>(got));
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

bool replaceFile(const std::string& path, const Lines& lines)
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
        if (m_File) {
            ::flock(m_File.get(), LOCK_UN);
        }
    }
    ChangeLock(const ChangeLock&) = delete;
    ChangeLock& operator=(const ChangeLock&) = delete;

    bool acquire(const std::string& path)
    {
        m_File = openFile(path.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW, kOwnerOnly);
        return m_File ? wait(path) : fail(errno, "cannot open lock file " + quoted(path));
    }

private:
    // Polls, because a wait of the system has no timeout. A process that is stopped while it holds
    // the lock would otherwise stop every other one.
    bool wait(const std::string& path)
    {
        const auto deadline = std::chrono::steady_clock::now() + kLockTimeout;
        while (::flock(m_File.get(), LOCK_EX | LOCK_NB) != 0) {
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
};

bool removeLines(Lines& lines, const std::function<bool(const std::string&)>& matches)
{
    const auto end = std::remove_if(lines.begin(), lines.end(), matches);
    const bool changed = end != lines.end();
    lines.erase(end, lines.end());
    return changed;
}

// `edit` returns whether it has changed the lines. Each change also removes what processes that
// have ended have left.
bool change(const std::function<bool(Lines&)>& edit)
{
    const std::string path = currentPath();
    ::mkdir(path.substr(0, path.find_last_of('/') + 1).c_str(), S_IRWXU);
    ChangeLock lock;
    Lines lines;
    // The directory first: nothing is created in one that is refused.
    if (!isTrustedDirectory(directoryOf(path)) || !lock.acquire(path + ".lock") ||
        !readLines(path, lines)) {
        return false;
    }
    const bool hadLeftovers = removeLines(lines, isLeftover);
    const bool isEdited = edit(lines);
    return (!hadLeftovers && !isEdited) || replaceFile(path, lines);
}

std::string lineOf(const std::string& account, const std::string& right)
{
    return account + " " + right;
}

bool startsWith(std::string_view line, std::string_view start)
{
    return line.substr(0, start.size()) == start;
}

std::string markedLine(const std::string& account, const std::string& right, const Owner& owner)
{
    return lineOf(account, right)
        .append(kMark)
        .append(std::to_string(owner.pid) + " " + std::to_string(owner.startTime));
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

bool addRights(const std::string& account, const std::vector<std::string>& rights)
{
    Owner self;
    return readThisProcess(self) && change([&](Lines& lines) {
               for (const std::string& right : rights) {
                   lines.push_back(markedLine(account, right, self));
               }
               return !rights.empty();
           });
}

bool removeRights(const std::string& account, const std::vector<std::string>& rights)
{
    Owner self;
    return readThisProcess(self) && change([&](Lines& lines) {
               bool changed = false;
               for (const std::string& right : rights) {
                   const auto found =
                       std::find(lines.begin(), lines.end(), markedLine(account, right, self));
                   if (found != lines.end()) {
                       lines.erase(found);
                       changed = true;
                   }
               }
               return changed;
           });
}

bool removeAllRights(const std::string& account)
{
    return change([&](Lines& lines) {
        return removeLines(
            lines, [&](const std::string& line) { return startsWith(line, account + " "); });
    });
}

} // namespace tarnix_platform
