// Streams on files: closed by their owner, and never inherited by a child.
#ifndef TARNIX_CMNFILE_H
#define TARNIX_CMNFILE_H

#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <memory>
#include <string>

namespace tarnix_cmn_4_4
{

struct CmnFileClose {
    void operator()(std::FILE* file) const { std::fclose(file); }
};
using CmnFile = std::unique_ptr<std::FILE, CmnFileClose>;

// Null when the file cannot be opened. The mode is fopen's; the "e" that makes the descriptor
// close-on-exec at once is added here, and only here.
inline CmnFile openFile(const std::string& path, const char* mode)
{
    const std::string closeOnExec = std::string(mode) + "e";
    std::FILE* file = nullptr;
    do
        file = std::fopen(path.c_str(), closeOnExec.c_str());
    while (!file && errno == EINTR);
    return CmnFile(file);
}

// Writes the bytes with one call of the system: other writers of a file that is open for appending
// then come before or after them, and never between. What cannot be written is lost.
inline void writeAtOnce(std::FILE* file, const char* bytes, std::size_t size)
{
    std::setvbuf(file, nullptr, _IONBF, 0);
    std::size_t written = 0;
    do {
        std::clearerr(file);
        written += std::fwrite(bytes + written, 1, size - written, file);
    } while (written < size && errno == EINTR);
}

} // namespace tarnix_cmn_4_4

#endif
