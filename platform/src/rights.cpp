// The store of the accounts' rights: one text file, replaced whole at each change.
#include "rights.h"

#include "handles.h"
#include "logon.h"
#include "pathsetting.h"
#include "uniquefd.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <vector>

namespace tarnix_platform
{

namespace
{

PathSetting g_rightsFile;

std::string rightsFile()
{
    return g_rightsFile.pathOr(TARNIX_RIGHTS_FILE);
}

using Lines = std::vector<std::string>;

constexpr mode_t kOwnRights = S_IRUSR | S_IWUSR;

// A file that does not exist holds nothing.
bool readLines(const std::string& path, Lines& lines)
{
    lines.clear();
    const UniqueFd file = openFile(path.c_str(), O_RDONLY);
    if (!file) {
        return errno == ENOENT ? true : fail(errno, path);
    }
    std::string text;
    char piece[4096];
    for (;;) {
        const ssize_t got = ::read(file.get(), piece, sizeof piece);
        if (got < 0 && errno == EINTR) {
            continue;
        }
        if (got < 0) {
            return fail(errno, path);
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

// The new file gets the owner and the permissions of the old one.
bool keepAccess(const std::string& path, int fd)
{
    struct stat old {
    };
    return ::stat(path.c_str(), &old) != 0 ||
           (::fchown(fd, old.st_uid, old.st_gid) == 0 && dropAccessList(fd) &&
            ::fchmod(fd, old.st_mode & 07777) == 0);
}

// Written beside the file, to the disk, and then put in its place: at any moment the name leads to
// the whole old file or the whole new one.
bool replaceFile(const std::string& path, const Lines& lines)
{
    std::string text;
    for (const std::string& line : lines) {
        text.append(line).push_back('\n');
    }
    const std::string beside = path + ".new";
    ::unlink(beside.c_str()); // of a change that was broken off; never somebody else's open file
    const UniqueFd file =
        openFile(beside.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW, kOwnRights);
    if (!file) {
        return fail(errno, beside);
    }
    if (!keepAccess(path, file.get()) || !writeAll(file.get(), text.data(), text.size()) ||
        ::fsync(file.get()) != 0 || std::rename(beside.c_str(), path.c_str()) != 0) {
        const int error = errno;
        ::unlink(beside.c_str());
        return fail(error, path);
    }
    const UniqueFd directory = openFile((path.substr(0, path.find_last_of('/') + 1) + ".").c_str(),
                                        O_RDONLY | O_DIRECTORY);
    if (directory) {
        ::fsync(directory.get());
    }
    return true;
}

std::string lineOf(const std::string& account, const std::string& right)
{
    return account + " " + right;
}

// A file of its own is locked: the store itself is another file after each change.
bool change(const std::function<bool(Lines&)>& edit)
{
    const std::string path = rightsFile();
    ::mkdir(path.substr(0, path.find_last_of('/') + 1).c_str(), S_IRWXU);
    const UniqueFd lock =
        openFile((path + ".lock").c_str(), O_RDWR | O_CREAT | O_NOFOLLOW, kOwnRights);
    if (!lock) {
        return fail(errno, path + ".lock");
    }
    while (::flock(lock.get(), LOCK_EX) != 0) {
        if (errno != EINTR) {
            return fail(errno, path + ".lock");
        }
    }
    // Not left to the closing: a process that the host has forked meanwhile has the file open too.
    struct Unlock {
        int fd;
        ~Unlock() { ::flock(fd, LOCK_UN); }
    } const unlock{lock.get()};
    Lines lines;
    return readLines(path, lines) && (!edit(lines) || replaceFile(path, lines));
}

class Policy : public Object
{
};

NTSTATUS toStatus(bool good)
{
    return good ? 0 : static_cast<NTSTATUS>(0xC0000000U | GetLastError());
}

// Rights have ASCII names without white space; anything else is no right.
bool readRight(const LSA_UNICODE_STRING& text, std::string& right)
{
    right.clear();
    for (std::size_t i = 0; i < text.Length / sizeof(wchar_t); ++i) {
        const wchar_t unit = text.Buffer[i];
        if (unit <= L' ' || unit > L'~') {
            return fail(EINVAL);
        }
        right.push_back(static_cast<char>(unit));
    }
    return !right.empty() || fail(EINVAL);
}

// Account names with white space or a line end could forge another account's line.
bool checkAccount(LSA_HANDLE policy, PSID account, std::string& name)
{
    if (!find<Policy>(policy)) {
        return false;
    }
    name = accountOf(account);
    const bool plain =
        std::none_of(name.begin(), name.end(), [](char c) { return c >= '\0' && c <= ' '; });
    return (plain && !name.empty()) || fail(EINVAL);
}

bool readRights(const LSA_UNICODE_STRING* rights, DWORD count, std::vector<std::string>& names)
{
    for (DWORD i = 0; i < count; ++i) {
        names.emplace_back();
        if (!readRight(rights[i], names.back())) {
            return false;
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

bool removeRights(const std::string& account, bool all, const std::vector<std::string>& rights)
{
    return change([&](Lines& lines) {
        const auto goes = [&](const std::string& line) {
            if (all) {
                return line.compare(0, account.size() + 1, account + " ") == 0;
            }
            return std::any_of(rights.begin(), rights.end(), [&](const std::string& right) {
                return line == lineOf(account, right);
            });
        };
        const auto end = std::remove_if(lines.begin(), lines.end(), goes);
        const bool changed = end != lines.end();
        lines.erase(end, lines.end());
        return changed;
    });
}

// The array and its texts in one block.
LSA_UNICODE_STRING* pack(const std::vector<std::string>& rights)
{
    std::size_t units = 0;
    for (const std::string& right : rights) {
        units += right.size() + 1;
    }
    const std::size_t head = rights.size() * sizeof(LSA_UNICODE_STRING);
    auto* block = static_cast<LSA_UNICODE_STRING*>(std::malloc(head + units * sizeof(wchar_t)));
    if (block == nullptr) {
        return nullptr;
    }
    auto* text = reinterpret_cast<wchar_t*>(block + rights.size());
    for (std::size_t i = 0; i < rights.size(); ++i) {
        const std::size_t bytes = rights[i].size() * sizeof(wchar_t);
        block[i] = {static_cast<std::uint16_t>(bytes),
                    static_cast<std::uint16_t>(bytes + sizeof(wchar_t)), text};
        text = std::copy(rights[i].begin(), rights[i].end(), text);
        *text++ = L'\0';
    }
    return block;
}

} // namespace

bool holdsRight(const std::string& account, const std::string& right)
{
    Lines lines;
    return readLines(rightsFile(), lines) &&
           std::find(lines.begin(), lines.end(), lineOf(account, right)) != lines.end();
}

void setRightsFile(const char* path)
{
    g_rightsFile.set(path);
}

NTSTATUS LsaOpenPolicy(LSA_UNICODE_STRING* systemName, LSA_OBJECT_ATTRIBUTES* attributes,
                       DWORD /*access*/, LSA_HANDLE* policy)
{
    if (systemName != nullptr || attributes == nullptr || policy == nullptr) {
        return toStatus(fail(EINVAL));
    }
    const HANDLE handle = openHandle(std::make_shared<Policy>());
    if (handle == nullptr) {
        return toStatus(false);
    }
    *policy = handle;
    return 0;
}

NTSTATUS LsaEnumerateAccountRights(LSA_HANDLE policy, PSID account, LSA_UNICODE_STRING** rights,
                                   DWORD* count)
{
    std::string name;
    Lines lines;
    if (!checkAccount(policy, account, name) || !readLines(rightsFile(), lines)) {
        return toStatus(false);
    }
    // A longer one would wrap in the 16 bits of its length, and might then read as another right.
    constexpr std::size_t longest = UINT16_MAX / sizeof(wchar_t) - 1;
    const std::string start = name + " ";
    std::vector<std::string> found;
    for (const std::string& line : lines) {
        if (line.size() > start.size() && line.size() <= start.size() + longest &&
            line.compare(0, start.size(), start) == 0) {
            found.push_back(line.substr(start.size()));
        }
    }
    if (found.empty()) {
        return toStatus(fail(ENOENT));
    }
    *rights = pack(found);
    *count = static_cast<DWORD>(found.size());
    return *rights != nullptr ? 0 : toStatus(fail(ENOMEM));
}

NTSTATUS LsaAddAccountRights(LSA_HANDLE policy, PSID account, LSA_UNICODE_STRING* rights,
                             DWORD count)
{
    std::string name;
    std::vector<std::string> names;
    return toStatus(checkAccount(policy, account, name) && readRights(rights, count, names) &&
                    addRights(name, names));
}

NTSTATUS LsaRemoveAccountRights(LSA_HANDLE policy, PSID account, BOOLEAN allRights,
                                LSA_UNICODE_STRING* rights, DWORD count)
{
    std::string name;
    std::vector<std::string> names;
    return toStatus(checkAccount(policy, account, name) && readRights(rights, count, names) &&
                    removeRights(name, allRights != 0, names));
}

NTSTATUS LsaFreeMemory(void* memory)
{
    std::free(memory);
    return 0;
}

NTSTATUS LsaClose(LSA_HANDLE policy)
{
    return toStatus(find<Policy>(policy) && CloseHandle(policy));
}

DWORD LsaNtStatusToWinError(NTSTATUS status)
{
    return static_cast<DWORD>(status) & 0x3FFFFFFF;
}

} // namespace tarnix_platform
