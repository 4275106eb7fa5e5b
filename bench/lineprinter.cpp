// Prints a number of lines of 40 bytes as fast as a pipe takes them.
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <string>

int main(int argc, char** argv)
{
    long lines = argc > 1 ? std::atol(argv[1]) : 0;
    const std::string line(39, 'l');
    std::string block;
    while (block.size() < 64 * 1024 - 40) {
        block += line + '\n';
    }
    while (lines > 0) {
        const long now = std::min<long>(lines, static_cast<long>(block.size() / 40));
        std::size_t done = 0;
        while (done < static_cast<std::size_t>(now) * 40) {
            const ssize_t written =
                ::write(1, block.data() + done, static_cast<std::size_t>(now) * 40 - done);
            if (written <= 0) {
                return 1;
            }
            done += static_cast<std::size_t>(written);
        }
        lines -= now;
    }
    return 0;
}
