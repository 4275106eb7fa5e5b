// SPDX-License-Identifier: LicenseRef-Tarnix
// The file of the accounts' rights.
#include "rightsfile.h"

#include "descriptors.h"
#include "errors.h"
#include "filelock.h"
#include "filereplacement.h"
#include "pathsetting.h"
#include "rightsline.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <string_view>
#include <utility>

namespace tarnix_platform
{

namespace
{

PathSetting g_pathSetting;

using Lines = std::vector<std::string>;

constexpr mode_t kOwnerOnly = S_IRUSR | S_IWUSR;

std::string quoted(const std::string& path)
{
    return "'" + path + "'";
}

bool hasTrustedOwner(const struct stat& info)
{
    return info.st_uid == 0 || info.st_uid == ::geteuid();
}

// Whoever may write the file could grant rights, and whoever may write its directory could put
// another file there. A sticky directory is refused too: it lets anybody create the missing file.
// Returns null, or the reason.
const char* distrust(const struct stat& info)
{
    if (!hasTrustedOwner(info)) {
        return "cannot trust rights of another owner, in ";
    }
    return (info.st_mode & (S_IWGRP | S_IWOTH)) == 0
               ? nullptr
               : "cannot trust rights that group or others may write, in ";
}

bool isTrusted(const UniqueFd& fd, const std::string& path)
{
    struct stat info {
    };
    if (::fstat(fd.get(), &info) != 0) {
        return fail(errno, "cannot check " + quoted(path));
    }
    const char* reason = distrust(info);
    return reason == nullptr || fail(EPERM, reason + quoted(path));
}

// The place that is set now. A missing directory is no failure.
bool openPlace(RightsPlace& place)
{
    place.path = g_pathSetting.pathOr(TARNIX_RIGHTS_FILE);
    if (place.path.front() != '/') {
        return fail(EINVAL, "cannot use relative path of rights " + quoted(place.path));
    }
    if (place.path.size() >= PATH_MAX) {
        return fail(ENAMETOOLONG, "cannot open rights");
    }
    const std::string directory = place.directoryPath();
    place.directory = openFile(directory.c_str(), O_PATH | O_DIRECTORY);
    return (place.directory && moveAboveStandard(place.directory)) || errno == ENOENT ||
           fail(errno, "cannot open directory " + quoted(directory));
}

bool readText(int fd, std::string& text)
{
    char piece[BUFSIZ];
    ssize_t got{};
    while ((got = readSome(fd, piece, sizeof piece)) > 0) {
        text.append(piece, static_cast<std::size_t>(got));
    }
    return got == 0;
}

// Appends the lines. A missing file has none. It is opened without waiting: at its path may be a
// named pipe.
bool readLines(const RightsPlace& place, Lines& lines)
{
    if (!place.directory) {
        return true;
    }
    if (!isTrusted(place.directory, place.directoryPath())) {
        return false;
    }
    const UniqueFd file = place.open(O_RDONLY | O_NONBLOCK);
    if (!file) {
        return errno == ENOENT ||
               fail(errno, (errno == ELOOP ? "cannot trust symbolic link " : "cannot read ") +
                               quoted(place.path));
    }
    if (!isTrusted(file, place.path)) {
        return false;
    }
    std::string text;
    if (!readText(file.get(), text)) {
        return fail(errno, "cannot read " + quoted(place.path));
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
bool copyAccess(const RightsPlace& place, FileReplacement& file)
{
    struct stat old {
    };
    return ::fstatat(place.directory.get(), place.name(), &old, AT_SYMLINK_NOFOLLOW) != 0 ||
           (::fchown(file.fd(), old.st_uid, old.st_gid) == 0 &&
            file.setMode(old.st_mode & ALLPERMS));
}

// A second descriptor of the open file, which is closed in children as the first is.
UniqueFd duplicate(int fd)
{
    return UniqueFd(::fcntl(fd, F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
}

// `copy` receives a descriptor of the new file, if it is not null.
bool replaceFile(const RightsPlace& place, const Lines& lines, UniqueFd* copy = nullptr)
{
    std::string text;
    for (const std::string& line : lines) {
        text.append(line).push_back('\n');
    }
    const std::string temporary = std::string(place.name()) + ".new";
    // A change that was interrupted may have left one. It is not reused: somebody could hold it
    // open.
    ::unlinkat(place.directory.get(), temporary.c_str(), 0);
    FileReplacement file;
    if (!isWithinFileSizeLimit(text.size()) ||
        !file.create(temporary, kOwnerOnly, place.directory.get())) {
        return fail(errno, "cannot create " + quoted(place.path + ".new"));
    }
    if (copy != nullptr) {
        *copy = duplicate(file.fd());
        if (!*copy) {
            return fail(errno, "cannot keep open " + quoted(place.path + ".new"));
        }
    }
    // After a crash of the system the old file is as good: only lines of processes change, and
    // those of a former boot grant nothing.
    const bool good = copyAccess(place, file) && writeAll(file.fd(), text.data(), text.size()) &&
                      file.commitSynced(place.name());
    return good || fail(errno, "cannot replace " + quoted(place.path));
}

// Changes are locked on a separate file, because each of them replaces the rights file itself. Who
// can open the lock file can lock it, and stop every change.
bool openLock(const RightsPlace& place, UniqueFd& lock)
{
    const std::string name = std::string(place.name()) + ".lock";
    lock =
        openFileAt(place.directory.get(), name.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW, kOwnerOnly);
    struct stat info {
    };
    if (!lock || !moveAboveStandard(lock) || ::fstat(lock.get(), &info) != 0) {
        return fail(errno, "cannot open lock file " + quoted(place.path + ".lock"));
    }
    if (!hasTrustedOwner(info)) {
        return fail(EPERM,
                    "cannot trust lock file of another owner, " + quoted(place.path + ".lock"));
    }
    return ::fchmod(lock.get(), kOwnerOnly) == 0 ||
           fail(errno, "cannot set mode of lock file " + quoted(place.path + ".lock"));
}

// Reads the lines for a change, which also removes what processes that run no longer have left.
// `hadLeftovers` is whether there was any.
bool readForChange(const RightsPlace& place, Lines& lines, bool& hadLeftovers)
{
    if (!readLines(place, lines)) {
        return false;
    }
    const auto end = std::remove_if(lines.begin(), lines.end(), isLeftover);
    hadLeftovers = end != lines.end();
    lines.erase(end, lines.end());
    return true;
}

std::string lineOf(const std::string& account, const std::string& right)
{
    return account + " " + right;
}

Lines linesOf(const std::string& account, const std::vector<std::string>& names,
              const std::string& mark)
{
    Lines lines;
    for (const std::string& name : names) {
        lines.push_back(lineOf(account, name) + mark);
    }
    return lines;
}

// Opens what a change needs, and what the removal of added rights will need.
bool prepare(AddedRights& added)
{
    if (!markThisProcess(added.mark) || !openPlace(added.place)) {
        return false;
    }
    const std::string directory = added.place.directoryPath();
    if (!added.place.directory) {
        if (::mkdir(directory.c_str(), S_IRWXU) != 0 && errno != EEXIST) {
            return fail(errno, "cannot create directory " + quoted(directory));
        }
        if (!openPlace(added.place)) {
            return false;
        }
    }
    // Nothing is created in a directory that is refused.
    if (!isTrusted(added.place.directory, directory) || !openLock(added.place, added.lock)) {
        return false;
    }
    added.spare = duplicate(added.lock.get());
    added.process = ::getpid();
    return added.spare || fail(errno, "cannot keep open the lock of " + quoted(added.place.path));
}

bool addLines(const Lines& added, AddedRights& rights)
{
    FileLock lock;
    Lines lines;
    bool hadLeftovers{};
    if (!lock.acquire(rights.lock.get(), rights.place.path + ".lock") ||
        !readForChange(rights.place, lines, hadLeftovers)) {
        return false;
    }
    lines.insert(lines.end(), added.begin(), added.end());
    return replaceFile(rights.place, lines, &rights.file);
}

// Whether the open file still has a name.
bool isLinked(const UniqueFd& file)
{
    struct stat info {
    };
    ::fstat(file.get(), &info);
    return info.st_nlink != 0; // also after a failure
}

// True only if the lines are in no file any more.
bool removeByReplacing(const Lines& added, const AddedRights& rights)
{
    Lines lines;
    bool changed{};
    if (!readForChange(rights.place, lines, changed)) {
        return false;
    }
    bool foundAll = true;
    for (const std::string& line : added) {
        const auto found = std::find(lines.begin(), lines.end(), line);
        if (found != lines.end()) {
            lines.erase(found);
            changed = true;
        } else {
            foundAll = false;
        }
    }
    if (changed && !replaceFile(rights.place, lines)) {
        return false;
    }
    return foundAll || !isLinked(rights.file);
}

// Where the text has this line, or npos.
std::size_t findLine(const std::string& text, const std::string& line)
{
    return ('\n' + text + '\n').find('\n' + line + '\n');
}

// Overwrites the marks of the lines that the file has.
bool disownLines(const UniqueFd& file, const Lines& added)
{
    std::string text;
    ::lseek(file.get(), 0, SEEK_SET);
    if (!readText(file.get(), text)) {
        return false;
    }
    for (const std::string& line : added) {
        const std::size_t at = findLine(text, line);
        if (at == std::string::npos) {
            continue;
        }
        const std::string mark = disowned(RightsLine(line).mark);
        const std::size_t begin = at + line.size() - mark.size();
        text.replace(begin, mark.size(), mark);
        if (!isWithinFileSizeLimit(begin + mark.size()) ||
            ::pwrite(file.get(), mark.data(), mark.size(), static_cast<off_t>(begin)) !=
                static_cast<ssize_t>(mark.size())) {
            return false;
        }
    }
    return ::fsync(file.get()) == 0;
}

// Makes the lines leftovers, which grant nothing and which the next change removes. This needs no
// space on the disk. Besides the present file it changes the one that the lines were added to, if
// that still has a name: it may have been moved, or this process may no longer open the present
// file. The last error stays as it was.
bool disown(const Lines& added, const AddedRights& rights)
{
    const UniqueFd present = rights.place.open(O_RDWR | O_NONBLOCK);
    const bool isMissing = !present && errno == ENOENT;
    struct stat info {
    };
    const bool isUsable =
        present && ::fstat(present.get(), &info) == 0 && distrust(info) == nullptr;
    const bool isOwnLinked = isLinked(rights.file);
    return (isUsable || isMissing || isOwnLinked) &&
           (!isOwnLinked || disownLines(rights.file, added)) &&
           (!isUsable || disownLines(present, added));
}

bool removeLines(const Lines& added, AddedRights& rights)
{
    // If the lock file has been deleted, other processes lock a new one.
    if (!isLinked(rights.lock) && !openLock(rights.place, rights.lock)) {
        return false;
    }
    FileLock lock;
    return lock.acquire(rights.lock.get(), rights.place.path + ".lock") &&
           (removeByReplacing(added, rights) || disown(added, rights));
}

} // namespace

void setRightsFile(const char* path)
{
    g_pathSetting.set(path);
}

std::string RightsPlace::directoryPath() const
{
    return std::string(path.c_str(), name());
}

const char* RightsPlace::name() const
{
    return path.c_str() + path.find_last_of('/') + 1;
}

UniqueFd RightsPlace::open(int flags) const
{
    return openFileAt(directory.get(), name(), flags | O_NOFOLLOW);
}

bool holdsRight(const std::string& account, const std::string& right)
{
    RightsPlace place;
    Lines lines;
    if (!openPlace(place) || !readLines(place, lines)) {
        return false;
    }
    const std::string wanted = lineOf(account, right);
    return std::any_of(lines.begin(), lines.end(),
                       [&](const std::string& line) {
                           return RightsLine(line).granted == wanted && !isLeftover(line);
                       }) ||
           fail(EACCES, "account lacks " + right);
}

bool rightsOf(const std::string& account, std::vector<std::string>& rights)
{
    rights.clear();
    RightsPlace place;
    Lines lines;
    if (!openPlace(place) || !readLines(place, lines)) {
        return false;
    }
    std::string ownMark;
    markThisProcess(ownMark);
    const std::string start = account + " ";
    for (const std::string& line : lines) {
        const RightsLine parts(line);
        if (parts.granted.size() > start.size() && parts.granted.substr(0, start.size()) == start &&
            (parts.mark.empty() || parts.mark == ownMark)) {
            rights.emplace_back(parts.granted.substr(start.size()));
        }
    }
    return true;
}

bool addRights(const std::string& account, const std::vector<std::string>& names,
               AddedRights& rights)
{
    AddedRights added;
    if (!prepare(added)) {
        return false;
    }
    const Lines lines = linesOf(account, names, added.mark);
    rights = std::move(added); // before the change: if memory runs out after it, it can be undone
    if (!addLines(lines, rights)) {
        rights = AddedRights();
        return false;
    }
    return true;
}

bool removeRights(const std::string& account, const std::vector<std::string>& names,
                  AddedRights& rights)
{
    if (rights.process != ::getpid()) {
        return true; // nothing was added, or by the process that this one is a copy of
    }
    const Lines lines = linesOf(account, names, rights.mark);
    rights.spare.reset();
    if (!removeLines(lines, rights)) {
        return false;
    }
    rights = AddedRights();
    return true;
}

} // namespace tarnix_platform
