// This process: its descriptors and children, which a run must leave as they were; others that a
// test begins beside it; and a root that may see other files.
#ifndef TARNIX_PROCESSSTATE_H
#define TARNIX_PROCESSSTATE_H

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sched.h>
#include <string>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>
#include <vector>

struct ProcessState {
    long descriptors = 0;
    long children = 0; // zombies included

    static ProcessState now()
    {
        namespace fs = std::filesystem;
        if (!std::ifstream("/proc/thread-self/children"))
            throw std::runtime_error("this kernel does not tell children");
        const fs::directory_iterator open("/proc/self/fd");
        ProcessState state{std::distance(begin(open), end(open)), 0};
        for (const auto& task : fs::directory_iterator("/proc/self/task")) {
            std::ifstream children(task.path() / "children");
            for (long pid = 0; children >> pid;)
                ++state.children;
        }
        return state;
    }

    bool operator==(const ProcessState& other) const
    {
        return descriptors == other.descriptors && children == other.children;
    }
};

inline std::ostream& operator<<(std::ostream& out, const ProcessState& state)
{
    return out << state.descriptors << " descriptors, " << state.children << " children";
}

// Every test ends with the descriptors and children that it began with.
class NothingLeft : public testing::Test
{
protected:
    void begin() { m_Before = ProcessState::now(); } // after what stays for good was made
    void TearDown() override { EXPECT_EQ(ProcessState::now(), m_Before); }

private:
    ProcessState m_Before = ProcessState::now();
};

// Begins the work in a process of its own, which an exception ends. To be called while there is one
// thread only: a lock that another holds would stay taken in the child.
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
    EXPECT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
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
