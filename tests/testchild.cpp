// The child of the runner's tests: shows what it was given, or behaves badly.
#include <csignal>
#include <cstdio>
#include <fcntl.h>
#include <fstream>
#include <iostream>
#include <string>
#include <unistd.h>

namespace
{

// Descriptors that are open at the start, up to a bound that the tests stay below.
void showDescriptors()
{
    for (int fd = 0; fd < 1000; ++fd) {
        if (fcntl(fd, F_GETFD) >= 0) {
            std::cout << fd << ' ';
        }
    }
    std::cout << '\n';
}

void showSignals()
{
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);) {
        if (line.rfind("SigBlk", 0) == 0 || line.rfind("SigIgn", 0) == 0) {
            std::cout << line << '\n';
        }
    }
    std::cout << (getpgrp() == getpid() ? "own group\n" : "foreign group\n");
}

// Ignores every polite request, and has a child of its own that does the same.
[[noreturn]] void beStubborn()
{
    std::signal(SIGINT, SIG_IGN);
    std::signal(SIGTERM, SIG_IGN);
    const pid_t child = fork();
    if (child != 0) {
        std::cout << getpid() << '\n' << child << std::endl;
    }
    for (;;) {
        pause();
    }
}

} // namespace

int main(int argc, char** argv)
{
    const std::string mode = argc > 1 ? argv[1] : "";
    if (mode == "descriptors") {
        showDescriptors();
    } else if (mode == "signals") {
        showSignals();
    } else if (mode == "stubborn") {
        beStubborn();
    } else {
        return 2;
    }
    return 0;
}
