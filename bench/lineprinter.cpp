// SPDX-License-Identifier: LicenseRef-Tarnix
// Prints a number of lines of a size, 40 bytes if none is given, as fast as a pipe takes them.
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <string>

int main(int argc, char** argv)
{
    const std::size_t lines = argc > 1 ? std::strtoul(argv[1], nullptr, 10) : 0;
    const std::size_t size = argc > 2 ? std::strtoul(argv[2], nullptr, 10) : 40;
    const std::string line = std::string(size - 1, 'l') + '\n';
    std::string block;
    while (block.size() + size <= 64 * 1024) {
        block += line;
    }
    for (std::size_t left = lines * size; left > 0;) {
        const std::size_t now = std::min(left, block.size());
        std::size_t done = 0;
        while (done < now) {
            const ssize_t written = ::write(1, block.data() + done, now - done);
            if (written <= 0) {
                return 1;
            }
            done += static_cast<std::size_t>(written);
        }
        left -= now;
    }
    return 0;
}
