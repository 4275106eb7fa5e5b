// SPDX-License-Identifier: LicenseRef-Tarnix
// libFuzzer's main for an ordinary build. Without coverage instrumentation libFuzzer would nearly
// always change the same seed; this changes each equally often. A process for each seed would cost
// 80 ms each.
#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

extern "C" {
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);
int LLVMFuzzerRunDriver(int* argc, char*** argv, int (*)(const std::uint8_t*, std::size_t));
std::size_t LLVMFuzzerMutate(std::uint8_t* data, std::size_t size, std::size_t most);
std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size, std::size_t most,
                                    unsigned);
}

static std::vector<std::string> g_seeds;
static std::size_t g_changes = 0;

// With -mutate_depth=5 libFuzzer makes five changes to an input, one on top of the other, before it
// takes the next one.
std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size, std::size_t most,
                                    unsigned)
{
    if (const std::size_t change = g_changes++; change % 5 == 0) {
        const std::string& seed = g_seeds[change / 5 % g_seeds.size()];
        size = std::min(seed.size(), most);
        std::copy_n(seed.begin(), size, data);
    }
    return LLVMFuzzerMutate(data, size, most);
}

int main(int argc, char** argv)
{
    return LLVMFuzzerRunDriver(&argc, &argv, [](const std::uint8_t* data, std::size_t size) {
        if (g_changes == 0 && size > 0) // the seeds come first, after an empty input
            g_seeds.emplace_back(data, data + size);
        return LLVMFuzzerTestOneInput(data, size);
    });
}
