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
#include <chrono>
#include <functional>
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

// `edit` returns whether it has changed the lines.
bool change(const std::function<bool(Lines&)>& edit)
{
    const std::string path = currentPath();
    ::mkdir(path.substr(0, path.find_last_of('/') + 1).c_str(), S_IRWXU);
    ChangeLock lock;
    Lines lines;
    // The directory first: nothing is created in one that is refused.
    return isTrustedDirectory(directoryOf(path)) && lock.acquire(path + ".lock") &&
           readLines(path, lines) && (!edit(lines) || replaceFile(path, lines));
}

std::string lineOf(const std::string& account, const std::string& right)
{
    return account + " " + right;
}

bool startsWith(const std::string& line, const std::string& start)
{
    return line.compare(0, start.size(), start) == 0;
}

bool removeLines(const std::function<bool(const std::string&)>& matches)
{
    return change([&](Lines& lines) {
        const auto end = std::remove_if(lines.begin(), lines.end(), matches);
        const bool changed = end != lines.end();
        lines.erase(end, lines.end());
        return changed;
    });
}

} // namespace

void setRightsFile(const char* path)
{
    g_pathSetting.set(path);
}

bool holdsRight(const std::string& account, const std::string& right)
{
    Lines lines;
    return readLines(currentPath(), lines) &&
           std::find(lines.begin(), lines.end(), lineOf(account, right)) != lines.end();
}

bool rightsOf(const std::string& account, std::vector<std::string>& rights)
{
    rights.clear();
    Lines lines;
    if (!readLines(currentPath(), lines)) {
        return false;
    }
    const std::string start = account + " ";
    for (const std::string& line : lines) {
        if (line.size() > start.size() && startsWith(line, start)) {
            rights.push_back(line.substr(start.size()));
        }
    }
    return true;
}

bool addRights(const std::string& account, const std::vector<std::string>& rights)
{
    return change([&](Lines& lines) {
        bool changed = false;
        for (const std::string& right : rights) {
            const std::string line = lineOf(account, right);
            if (std::find(lines.begin(), lines.end(), line) == lines.end()) {
                lines.push_back(line);
                changed = true;
            }
        }
        return changed;
    });
}

bool removeRights(const std::string& account, const std::vector<std::string>& rights)
{
    return removeLines([&](const std::string& line) {
        return std::any_of(rights.begin(), rights.end(), [&](const std::string& right) {
            return line == lineOf(account, right);
        });
    });
}

bool removeAllRights(const std::string& account)
{
    return removeLines([&](const std::string& line) { return startsWith(line, account + " "); });
}

} // namespace tarnix_platform
