// The start of a command as another user, through a small program that switches user.
#include "spawnuser.h"

#include "descriptors.h"
#include "errors.h"
#include "polling.h"
#include "runas.h"

#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>

namespace tarnix_platform
{

namespace
{

extern "C" const unsigned char tarnix_runas_begin[] __attribute__((visibility("hidden")));
extern "C" const unsigned char tarnix_runas_end[] __attribute__((visibility("hidden")));
asm(".pushsection .rodata\n"
    ".balign 16\n"
    ".hidden tarnix_runas_begin\n"
    ".hidden tarnix_runas_end\n"
    ".globl tarnix_runas_begin, tarnix_runas_end\n"
    "tarnix_runas_begin:\n"
    ".incbin \"" TARNIX_RUNAS_PROGRAM "\"\n"
    "tarnix_runas_end:\n"
    ".popsection\n");

// The program lies in the library and is started from memory: there is no file of it that could be
// missing or exchanged.
bool openRunAs(UniqueFd& program)
{
    // Without it such a file is no program on systems that are set up so. Older systems do not know
    // the flag.
    constexpr unsigned int isProgram = 0x0010U; // MFD_EXEC
    program.reset(::memfd_create("tarnix-runas", MFD_CLOEXEC | isProgram));
    if (!program && errno == EINVAL) {
        program.reset(::memfd_create("tarnix-runas", MFD_CLOEXEC));
    }
    const auto size = static_cast<std::size_t>(tarnix_runas_end - tarnix_runas_begin);
    return (program && writeAll(program.get(), tarnix_runas_begin, size) &&
            moveAbove(program, kRunAsProgram)) ||
           fail(errno, "cannot prepare switch of user");
}

std::vector<std::string> runAsArguments(const ChildPlan& plan, const Identity& identity,
                                        const std::vector<std::string>& paths)
{
    std::string groups;
    for (const gid_t group : identity.groups) {
        groups += (groups.empty() ? "" : ",") + std::to_string(group);
    }
    std::vector<std::string> arguments{
        "tarnix-runas", std::to_string(identity.uid), std::to_string(identity.gid), groups,
        plan.directory, std::to_string(paths.size())};
    arguments.insert(arguments.end(), paths.begin(), paths.end());
    arguments.insert(arguments.end(), plan.words.begin(), plan.words.end());
    return arguments;
}

// The user can stop the child from the moment that it is his; a start must not wait for him.
constexpr DWORD kUserPatience = 10000;

// Killed first: it is the user's by now, and who stops it would stop this too.
void discardOfUser(Child& child)
{
    ::syscall(SYS_pidfd_send_signal, child.pidfd.get(), SIGKILL, nullptr, 0);
    discardChild(child);
}

// Whether the child has ended or runs another program than the one that takes the identity.
bool hasGoneOn(const Child& child, int program)
{
    struct stat now {
    };
    struct stat former {
    };
    const std::string link = "/proc/" + std::to_string(child.pid) + "/exe";
    if (::stat(link.c_str(), &now) == 0 && ::fstat(program, &former) == 0) {
        return now.st_ino != former.st_ino || now.st_dev != former.st_dev;
    }
    return awaitDescriptor(child.pidfd.get(), 0);
}

enum class Start { reported, silent, stalled };

// The failure is reported, or the pipe ends with the start of the command. That end does not come
// while a process that was forked meanwhile holds the pipe too: then the child is looked at.
Start awaitStatus(int status, int program, const Child& child)
{
    constexpr DWORD look = 100;
    for (DWORD waited = 0; waited < kUserPatience; waited += look) {
        if (awaitDescriptor(status, look)) {
            return Start::reported;
        }
        if (hasGoneOn(child, program)) {
            return awaitDescriptor(status, 0) ? Start::reported : Start::silent;
        }
    }
    return Start::stalled;
}

bool awaitCommand(const ChildPlan& plan, int status, int program, Child& child)
{
    switch (awaitStatus(status, program, child)) {
    case Start::silent:
        return true;
    case Start::stalled:
        discardOfUser(child);
        return fail(ETIMEDOUT, "timed out starting the command as the user");
    case Start::reported:
        break;
    }
    RunAsFailure failure{};
    const ssize_t got = readSome(status, &failure, sizeof failure);
    if (got == 0) {
        return true; // closed by the start of the command
    }
    discardOfUser(child);
    switch (got == static_cast<ssize_t>(sizeof failure) ? failure.step : RunAsStep::identity) {
    case RunAsStep::directory:
        return failStep(plan, ChildStep::enterDirectory, failure.error);
    case RunAsStep::program:
        return failStep(plan, ChildStep::execute, failure.error);
    default:
        return fail(failure.error, "cannot switch user");
    }
}

} // namespace

bool spawnAsUser(const ChildPlan& plan, const Identity& identity, Child& child)
{
    UniqueFd program;
    if (!openRunAs(program)) {
        return false;
    }
    UniqueFd reader;
    UniqueFd writer;
    if (!openPipe(reader, writer) || !moveAbove(writer, kRunAsProgram)) {
        return fail(errno);
    }
    const std::vector<std::string> texts =
        runAsArguments(plan, identity, candidatesOf(plan.words.front()));
    const std::vector<char*> arguments = pointersTo(texts);
    ChildSide side;
    side.arguments = arguments.data();
    side.environment = environ;
    side.standard = plan.standard;
    side.runAs = program.get();
    side.status = writer.get();
    if (!startChild(side, child)) {
        return failStep(plan, side.failedStep, side.error);
    }
    writer.reset();
    return awaitCommand(plan, reader.get(), program.get(), child);
}

} // namespace tarnix_platform
