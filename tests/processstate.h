// What tests of real runs share: a run and what it came to; the descriptors and children of this
// process, which a run must leave as they were; other processes that a test begins beside it.
#ifndef TARNIX_PROCESSSTATE_H
#define TARNIX_PROCESSSTATE_H

#include "cmnexecpipewindows.h"
#include "scratch.h"

#include <sched.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <functional>

using Lines = std::vector<std::string>;

struct Outcome {
    int result = -1, status = -1; // status -1: none
    Lines lines{"former"};
    tarnix_cmn_4_4::ECmnExecPipe record;
};

inline Outcome exec(tarnix_cmn_4_4::CCmnExecPipeWindows& runner, const std::string& command,
                    unsigned long seconds = 60, const std::string& directory = "",
                    const std::string& user = "", const std::string& password = "")
{
    Outcome outcome;
    outcome.result = runner.Exec(command, outcome.lines, "", seconds, directory, user, password);
    outcome.record = runner.getLastError();
    runner.getExitStatus(outcome.status);
    return outcome;
}

inline Outcome run(const std::string& command, unsigned long seconds = 60)
{
    tarnix_cmn_4_4::CCmnExecPipeWindows runner;
    return exec(runner, command, seconds);
}

// The number of open descriptors, and whether there are children, zombies among them.
inline std::pair<long, bool> processState()
{
    const std::filesystem::directory_iterator open("/proc/self/fd");
    siginfo_t info;
    return {std::distance(begin(open), end(open)),
            waitid(P_ALL, 0, &info, WEXITED | WNOHANG | WNOWAIT | __WALL) == 0};
}

// Every test ends with the descriptors and children that it began with.
class NothingLeft : public testing::Test
{
protected:
    void TearDown() override { EXPECT_EQ(processState(), m_Before); }

    const std::pair<long, bool> m_Before = processState();
};

// Begins the work in a process of its own, which an exception ends. While there are other threads
// it must need no lock: one that another thread holds stays taken in the child.
inline pid_t beginApart(const std::function<bool()>& work) noexcept
{
    const pid_t child = fork();
    if (child == 0)
        _exit(work() ? 0 : 1);
    return child;
}

// What the work returned must be true.
inline void endApart(pid_t child)
{
    int status = -1;
    EXPECT_TRUE(waitpid(child, &status, 0) == child && status == 0) << status;
}

// Gives this process, for good, mounts of its own, with these files in place of the system's, and
// other namespaces if they are named. The empty text, or what failed: root in a container often may
// not.
inline std::string enterNamespaces(const std::vector<std::pair<std::string, const char*>>& files,
                                   int others = 0)
{
    bool good = unshare(CLONE_NEWNS | others) == 0 &&
                mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
    for (const auto& [file, target] : files)
        good = good && mount(file.c_str(), target, nullptr, MS_BIND, nullptr) == 0;
    return good ? "" : std::strerror(errno);
}

// Tells whether to skip a test for what is missing; where root is promised it must not be.
inline bool mustSkip(const std::string& missing)
{
    EXPECT_TRUE(missing.empty() || !std::getenv("TARNIX_REQUIRE_ROOT_TESTS")) << missing;
    return !missing.empty();
}

#endif
