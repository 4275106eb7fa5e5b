// What a run must leave as it was: the descriptors and the children of this process.
#ifndef TARNIX_PROCESSSTATE_H
#define TARNIX_PROCESSSTATE_H

#include <filesystem>
#include <fstream>
#include <ostream>
#include <stdexcept>
#include <string>
#include <unistd.h>

struct ProcessState {
    long descriptors = 0;
    long children = 0; // zombies included

    static ProcessState now()
    {
        namespace fs = std::filesystem;
        if (!std::ifstream("/proc/thread-self/children"))
            throw std::runtime_error("this kernel does not tell children");
        ProcessState state;
        for (const auto& entry : fs::directory_iterator("/proc/self/fd")) {
            static_cast<void>(entry);
            ++state.descriptors;
        }
        for (const auto& task : fs::directory_iterator("/proc/self/task")) {
            std::ifstream children(task.path() / "children");
            for (long pid = 0; children >> pid;) {
                ++state.children;
            }
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

#endif
