// SPDX-License-Identifier: LicenseRef-Tarnix
// A line of the rights file, and the process that has added it.
#include "rightsline.h"

#include "descriptors.h"
#include "errors.h"
#include "neverdestroyed.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <cinttypes>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <system_error>

namespace tarnix_platform
{

namespace
{

constexpr std::string_view kMark = " #added ";
constexpr char kOwnStatus[] = "/proc/self/stat";
constexpr char kBootId[] = "/proc/sys/kernel/random/boot_id";
constexpr std::string_view kUnknownBoot = "-";

std::string readBootId()
{
    const UniqueFd file = openFile(kBootId, O_RDONLY);
    char text[BUFSIZ];
    const ssize_t got = readSome(file.get(), text, sizeof text);
    return got > 0 ? std::string(text, std::find(text, text + got, '\n'))
                   : std::string(kUnknownBoot);
}

// No two programs that one process executes have read the clock at the same nanosecond.
struct ThisImage {
    const std::uint64_t number =
        static_cast<std::uint64_t>(std::chrono::steady_clock::now().time_since_epoch().count());
    const std::string boot = readBootId();
};

const ThisImage& thisImage()
{
    return neverDestroyed<ThisImage>();
}

struct Owner {
    std::uint64_t pid{};
    std::uint64_t startTime{};
    std::uint64_t image{};
    std::string_view boot = kUnknownBoot;
};

bool readNumber(std::string_view& text, std::uint64_t& number)
{
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    text.remove_prefix(static_cast<std::size_t>(end - text.data()));
    return error == std::errc();
}

bool skipBlank(std::string_view& text)
{
    const bool good = !text.empty() && text.front() == ' ';
    text.remove_prefix(static_cast<std::size_t>(good));
    return good;
}

bool parseMark(std::string_view mark, Owner& owner)
{
    mark.remove_prefix(kMark.size());
    if (!readNumber(mark, owner.pid) || !skipBlank(mark) || !readNumber(mark, owner.startTime)) {
        return false;
    }
    if (mark.empty()) {
        return true; // the older form
    }
    if (!skipBlank(mark) || !readNumber(mark, owner.image) || !skipBlank(mark)) {
        return false;
    }
    owner.boot = mark;
    return !mark.empty() && mark.find(' ') == std::string_view::npos;
}

struct Status {
    std::uint64_t pid{};
    std::uint64_t startTime{};
    bool hasEnded{}; // but has not been reaped
};

// Returns 0 or an errno.
int readStatus(const std::string& path, Status& status)
{
    const UniqueFd file = openFile(path.c_str(), O_RDONLY);
    char piece[BUFSIZ]; // more than the file has
    const ssize_t got = file ? readSome(file.get(), piece, sizeof piece) : -1;
    if (got == -1) {
        return errno;
    }
    const std::string text(piece, static_cast<std::size_t>(got));
    // The name of the program comes second, in parentheses, and may hold any character. The three
    // values after it are the fields 3, 20 and 22.
    const char* const rest = std::strrchr(text.c_str(), ')');
    char state{};
    std::uint64_t threads{};
    if (rest == nullptr || std::sscanf(text.c_str(), "%" SCNu64, &status.pid) != 1 ||
        std::sscanf(rest,
                    ") %c %*s %*s %*s %*s %*s %*s %*s %*s %*s %*s %*s %*s %*s %*s %*s %*s %" SCNu64
                    " %*s %" SCNu64,
                    &state, &threads, &status.startTime) != 3) {
        return EINVAL;
    }
    // The state is that of the first thread, which can end before others.
    status.hasEnded = (state == 'Z' || state == 'X') && threads <= 1;
    return 0;
}

// Of an owner whose id no other process has taken over.
bool isThisProcess(const Owner& owner)
{
    Status self;
    return readStatus(kOwnStatus, self) == 0 && self.pid == owner.pid;
}

bool isGone(const Owner& owner)
{
    const std::string& boot = thisImage().boot;
    if (owner.pid == 0 ||
        (owner.boot != boot && owner.boot != kUnknownBoot && boot != kUnknownBoot)) {
        return true;
    }
    Status now;
    const int error = readStatus("/proc/" + std::to_string(owner.pid) + "/stat", now);
    if (error == ENOENT || error == ESRCH) {
        return ::access(kOwnStatus, F_OK) == 0;
    }
    return error == 0 && (now.hasEnded || now.startTime != owner.startTime ||
                          (owner.image != thisImage().number && isThisProcess(owner)));
}

} // namespace

RightsLine::RightsLine(std::string_view line) : granted(line)
{
    Owner owner;
    const std::size_t at = line.rfind(kMark);
    if (at != std::string_view::npos && parseMark(line.substr(at), owner)) {
        granted = line.substr(0, at);
        mark = line.substr(at);
    }
}

bool markThisProcess(std::string& mark)
{
    Status self;
    const int error = readStatus(kOwnStatus, self);
    if (error != 0) {
        return fail(error, std::string("cannot read '") + kOwnStatus + "'");
    }
    mark = kMark;
    for (const std::uint64_t number : {self.pid, self.startTime, thisImage().number}) {
        mark.append(std::to_string(number)).push_back(' ');
    }
    mark.append(thisImage().boot);
    return true;
}

bool isLeftover(std::string_view line)
{
    const RightsLine parts(line);
    Owner owner;
    return !parts.mark.empty() && parseMark(parts.mark, owner) && isGone(owner);
}

std::string disowned(std::string_view mark)
{
    std::string zeros(kMark);
    for (const char c : mark.substr(kMark.size())) {
        zeros.push_back(c == ' ' ? ' ' : '0');
    }
    return zeros;
}

} // namespace tarnix_platform
