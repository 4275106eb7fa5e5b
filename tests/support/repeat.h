// SPDX-License-Identifier: LicenseRef-Tarnix
// Text and work that a test needs many times over.
#ifndef TARNIX_SUPPORT_REPEAT_H
#define TARNIX_SUPPORT_REPEAT_H

#include <string>
#include <thread>
#include <vector>

inline std::string repeated(const std::string& text, int times)
{
    std::string all;
    while (times-- > 0)
        all += text;
    return all;
}

// Calls work(0), work(1) and so on, each on its own thread, and waits for all of them.
template <typename Work>
void runOnThreads(int count, const Work& work)
{
    std::vector<std::thread> threads;
    for (int i = 0; i < count; ++i)
        threads.emplace_back(work, i);
    for (std::thread& thread : threads)
        thread.join();
}

#endif
