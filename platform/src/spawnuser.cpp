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

// The program is embedded in the library and started from memory: there is no file that could be
// missing or exchanged.
bool openRunAs(UniqueFd& program)
{
    // Some systems are configured to create memory files that are not executable without this flag.
    // Older systems do not know the flag.
    constexpr unsigned int executable = 0x0010U; // MFD_EXEC
    program.reset(::memfd_create("tarnix-runas", MFD_CLOEXEC | executable));
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
    std::vector<std::string> arguments{"tarnix-runas", std::to_string(identity.uid),
                                       std::to_string(identity.gid), plan.directory,
                                       std::to_string(paths.size())};
    arguments.insert(arguments.end(), paths.begin(), paths.end());
    arguments.insert(arguments.end(), plan.words.begin(), plan.words.end());
    return arguments;
}

std::vector<std::string> markedEnvironment()
{
    std::vector<std::string> marked;
    for (char* const* variable = environ; variable != nullptr && *variable != nullptr; ++variable) {
        marked.push_back(kRunAsMark + std::string(*variable));
    }
    return marked;
}

// From the moment that the child has switched user, that user can stop it. The start must not wait
// for that without a limit.
constexpr DWORD kStartTimeout = 10000;

// Killed first: the user can stop the child, and waiting for its end would then never return.
void killAndDiscard(Child& child)
{
    ::syscall(SYS_pidfd_send_signal, child.pidfd.get(), SIGKILL, nullptr, 0);
    discardChild(child);
}

// Whether the child has ended, or runs another program than the one that switches user.
bool hasLeftRunAs(const Child& child, int program)
{
    struct stat current {
    };
    struct stat runAs {
    };
    const std::string link = "/proc/" + std::to_string(child.pid) + "/exe";
    if (::stat(link.c_str(), &current) == 0 && ::fstat(program, &runAs) == 0) {
        return current.st_ino != runAs.st_ino || current.st_dev != runAs.st_dev;
    }
    return awaitDescriptor(child.pidfd.get(), 0);
}

enum class StartStatus { reported, unreported, stalled };

// The status pipe gets a failure, or is closed by the start of the command. A process that was
// forked meanwhile may hold the pipe open: so the program that the child runs is checked too.
StartStatus awaitStatus(int status, int program, const Child& child)
{
    constexpr DWORD interval = 100;
    for (DWORD waited = 0; waited < kStartTimeout; waited += interval) {
        if (awaitDescriptor(status, interval)) {
            return StartStatus::reported;
        }
        if (hasLeftRunAs(child, program)) {
            return awaitDescriptor(status, 0) ? StartStatus::reported : StartStatus::unreported;
        }
    }
    return StartStatus::stalled;
}

bool awaitCommand(const ChildPlan& plan, int status, int program, Child& child)
{
    switch (awaitStatus(status, program, child)) {
    case StartStatus::unreported:
        return true;
    case StartStatus::stalled:
        killAndDiscard(child);
        return fail(ETIMEDOUT, "timed out starting the command as the user");
    case StartStatus::reported:
        break;
    }
    RunAsFailure failure{};
    const ssize_t got = readSome(status, &failure, sizeof failure);
    if (got == 0) {
        return true; // closed by the start of the command
    }
    killAndDiscard(child);
    switch (got == static_cast<ssize_t>(sizeof failure) ? failure.step : RunAsStep::identity) {
    case RunAsStep::keyring:
        return fail(failure.error, "cannot create session keyring of user");
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
    const std::vector<std::string> variables = markedEnvironment();
    const std::vector<char*> environment = pointersTo(variables);
    ChildSide side;
    side.arguments = arguments.data();
    side.environment = environment.data();
    side.standard = plan.standard;
    side.runAs = program.get();
    side.status = writer.get();
    side.groups = identity.groups.data();
    side.groupCount = identity.groups.size();
    if (!startChild(side, child)) {
        return failStep(plan, side.failedStep, side.error);
    }
    writer.reset();
    return awaitCommand(plan, reader.get(), program.get(), child);
}

} // namespace tarnix_platform
