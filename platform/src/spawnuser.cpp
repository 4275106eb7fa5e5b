// SPDX-License-Identifier: LicenseRef-Tarnix
// The start of a command as another user, through a small program that switches user.
#include "spawnuser.h"

#include "descriptors.h"
#include "errors.h"
#include "polling.h"
#include "runas.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <climits>
#include <system_error>
#include <utility>

namespace tarnix_platform
{

namespace
{

#ifndef MFD_EXEC
#define MFD_EXEC 0x0010U
#endif

// See runasimage.cpp.
extern "C" const unsigned char tarnix_runas_begin[] __attribute__((visibility("hidden")));
extern "C" const unsigned char tarnix_runas_end[] __attribute__((visibility("hidden")));

std::size_t programSize()
{
    return static_cast<std::size_t>(tarnix_runas_end - tarnix_runas_begin);
}

// The program is embedded in the library and started from memory: there is no file that could be
// missing or exchanged. Returns 0 or an errno.
int openInMemory(UniqueFd& program)
{
    if (!isWithinFileSizeLimit(programSize())) {
        return errno;
    }
    // Some systems are configured to create memory files that are not executable without this flag.
    // Older systems do not know the flag.
    program.reset(::memfd_create("tarnix-runas", MFD_CLOEXEC | MFD_EXEC));
    if (!program && errno == EINVAL) {
        program.reset(::memfd_create("tarnix-runas", MFD_CLOEXEC));
    }
    const bool good = program && writeAll(program.get(), tarnix_runas_begin, programSize()) &&
                      moveAbove(program, kRunAsProgram);
    return good ? 0 : errno;
}

bool isEmbeddedProgram(int file)
{
    std::vector<unsigned char> bytes(programSize() + 1);
    std::size_t size = 0;
    ssize_t got;
    while (size < bytes.size() &&
           (got = readSome(file, bytes.data() + size, bytes.size() - size)) > 0) {
        size += static_cast<std::size_t>(got);
    }
    return size == programSize() && std::equal(tarnix_runas_begin, tarnix_runas_end, bytes.begin());
}

// The same program as a file, for systems that refuse programs in memory. It starts as root, so
// nobody else may be able to change it, and it must be that of this version of the library. Returns
// 0 or an errno.
int openInstalled(UniqueFd& program)
{
    program = openFile(TARNIX_RUNAS_FILE, O_RDONLY | O_NONBLOCK);
    struct stat info {
    };
    if (!program || ::fstat(program.get(), &info) != 0) {
        return errno;
    }
    if (!S_ISREG(info.st_mode) || info.st_uid != 0 || (info.st_mode & (S_IWGRP | S_IWOTH)) != 0) {
        return EPERM;
    }
    if (!isEmbeddedProgram(program.get())) {
        return ENOEXEC;
    }
    return moveAbove(program, kRunAsProgram) ? 0 : errno;
}

std::vector<std::string> runAsArguments(const ChildPlan& plan, const Identity& identity,
                                        const std::vector<std::string>& paths)
{
    constexpr int usualMask = S_IWGRP | S_IWOTH;
    std::vector<std::string> arguments{"tarnix-runas",
                                       std::to_string(identity.uid),
                                       std::to_string(identity.gid),
                                       std::to_string(plan.mask < 0 ? usualMask : plan.mask),
                                       std::to_string(plan.endsWithCaller ? ::getpid() : 0),
                                       plan.directory,
                                       std::to_string(paths.size())};
    arguments.insert(arguments.end(), paths.begin(), paths.end());
    arguments.insert(arguments.end(), plan.words.begin(), plan.words.end());
    return arguments;
}

std::vector<std::string> markedEnvironment(const ChildPlan& plan)
{
    std::vector<std::string> marked;
    for (const std::string& variable : plan.environment) {
        marked.push_back(kRunAsMark + variable);
    }
    if (!plan.inheritsEnvironment) {
        return marked;
    }
    for (char* const* variable = environ; variable != nullptr && *variable != nullptr; ++variable) {
        marked.push_back(kRunAsMark + std::string(*variable));
    }
    return marked;
}

// From the moment that the child has switched user, that user can stop it. The start must not wait
// for that without a limit.
constexpr DWORD kStartTimeout = 10000;
std::atomic<DWORD> g_startTimeout{kStartTimeout};

// What a link of the system leads to; empty if it cannot be read.
std::string targetOf(const std::string& link)
{
    char target[PATH_MAX];
    const ssize_t length = ::readlink(link.c_str(), target, sizeof target);
    return std::string(target, static_cast<std::size_t>(std::max<ssize_t>(length, 0)));
}

// Whether the child has ended, or runs another program than the one that switches user. Compares
// names: to look at the file could block in a file system of the user.
bool hasLeftRunAs(const Child& child, int program)
{
    const std::string current = targetOf("/proc/" + std::to_string(child.pid) + "/exe");
    const std::string runAs = targetOf("/proc/self/fd/" + std::to_string(program));
    return !current.empty() && !runAs.empty() ? current != runAs
                                              : awaitDescriptor(child.pidfd.get(), 0);
}

enum class StartStatus { ended, started, failed, unwatched, stalled };

// Reads the reports until one is a failure, or the start of the command closes the pipe. Without a
// report before that end, the command is not what has closed it. A process that was forked
// meanwhile may hold the pipe open: so the program that the child runs is checked too.
StartStatus awaitStart(int status, int program, const Child& child, RunAsReport& report)
{
    constexpr DWORD interval = 100;
    StartStatus current = StartStatus::ended;
    const Deadline deadline(g_startTimeout.load(std::memory_order_relaxed));
    while (!deadline.passed()) {
        if (!awaitDescriptor(status, interval)) {
            if (errno != ETIMEDOUT) {
                report.error = errno;
                return StartStatus::unwatched;
            }
            if (!hasLeftRunAs(child, program)) {
                continue;
            }
            if (!awaitDescriptor(status, 0)) {
                return current;
            }
        }
        if (readSome(status, &report, sizeof report) != static_cast<ssize_t>(sizeof report)) {
            return current;
        }
        if (report.step != RunAsStep::command) {
            return StartStatus::failed;
        }
        current = StartStatus::started;
    }
    return StartStatus::stalled;
}

bool failReported(const ChildPlan& plan, const RunAsReport& report)
{
    switch (report.step) {
    case RunAsStep::scheduling:
        return fail(report.error, "cannot leave real-time scheduling");
    case RunAsStep::keyring:
        return fail(report.error, "cannot create session keyring of user");
    case RunAsStep::directory:
        return failStep(plan, ChildStep::enterDirectory, report.error);
    case RunAsStep::program:
        return failStep(plan, ChildStep::execute, report.error);
    default:
        return fail(report.error, "cannot switch user");
    }
}

bool awaitCommand(const ChildPlan& plan, int status, int program, Child& child)
{
    RunAsReport report{};
    const StartStatus started = awaitStart(status, program, child, report);
    if (started == StartStatus::started) {
        return true;
    }
    killAndDiscard(child);
    switch (started) {
    case StartStatus::stalled:
        return fail(ETIMEDOUT, "timed out starting the command as the user");
    case StartStatus::failed:
        return failReported(plan, report);
    case StartStatus::unwatched:
        return fail(report.error, "cannot wait for the start of the command");
    default:
        return fail(ENOEXEC, "program that switches user ended before the command's start");
    }
}

// Whether the program of ours could not be executed. It gets the command's words and variables: too
// many are not its failure.
bool isRunAsRefused(const ChildSide& side)
{
    return side.failedStep == ChildStep::execute && side.error != E2BIG;
}

bool failRunAs(int error, const char* need, int fileError)
{
    return fail(error, std::string("cannot start the program that switches user (") + need +
                           "; " TARNIX_RUNAS_FILE ": " +
                           std::generic_category().message(fileError) + ")");
}

// From memory or, if that is refused, from the installed file.
bool startRunAs(const ChildPlan& plan, ChildSide& side, UniqueFd& program, Child& child)
{
    int error = openInMemory(program);
    const char* need = "memfd_create";
    if (error == 0) {
        side.runAs = program.get();
        if (startChild(side, child)) {
            return true;
        }
        if (!isRunAsRefused(side)) {
            return failStep(plan, side.failedStep, side.error);
        }
        error = std::exchange(side.error, 0);
        need = "execveat";
    }
    const int fileError = openInstalled(program);
    if (fileError != 0) {
        return failRunAs(error, need, fileError);
    }
    side.runAs = program.get();
    return startChild(side, child) ||
           (isRunAsRefused(side) ? failRunAs(error, need, side.error)
                                 : failStep(plan, side.failedStep, side.error));
}

} // namespace

void setUserStartLimit(DWORD milliseconds)
{
    g_startTimeout.store(milliseconds, std::memory_order_relaxed);
}

bool spawnAsUser(const ChildPlan& plan, const Identity& identity, Child& child)
{
    UniqueFd program;
    UniqueFd reader;
    UniqueFd writer;
    if (!openPipe(reader, writer) || !moveAbove(writer, kRunAsProgram)) {
        return fail(errno);
    }
    const std::vector<std::string> texts = runAsArguments(plan, identity, candidatesOf(plan));
    const std::vector<char*> arguments = pointersTo(texts);
    const std::vector<std::string> variables = markedEnvironment(plan);
    const std::vector<char*> environment = pointersTo(variables);
    ChildSide side;
    side.arguments = arguments.data();
    side.environment = environment.data();
    side.standard = plan.standard.data();
    side.status = writer.get();
    side.groups = identity.groups.data();
    side.groupCount = identity.groups.size();
    if (!startRunAs(plan, side, program, child)) {
        return false;
    }
    writer.reset();
    return awaitCommand(plan, reader.get(), program.get(), child);
}

} // namespace tarnix_platform
