// Files: closed by their owner, and never inherited by a child.
#ifndef TARNIX_CMNFILE_H
#define TARNIX_CMNFILE_H

#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <fcntl.h>
#include <memory>
#include <string>
#include <unistd.h>
#include <utility>

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

// A file without a stream in front of it. Like a stream it is made with all rights that the
// process's mask leaves, unless `mode` asks for less.
class CmnDescriptor
{
public:
    CmnDescriptor() = default;
    CmnDescriptor(const std::string& path, int flags, mode_t mode = 0666)
    {
        do
            m_Descriptor = ::open(path.c_str(), flags | O_CLOEXEC, mode);
        while (m_Descriptor < 0 && errno == EINTR);
    }
    CmnDescriptor(CmnDescriptor&& other) noexcept { *this = std::move(other); }
    CmnDescriptor& operator=(CmnDescriptor&& other) noexcept
    {
        std::swap(m_Descriptor, other.m_Descriptor);
        return *this;
    }
    ~CmnDescriptor()
    {
        if (m_Descriptor >= 0)
            ::close(m_Descriptor);
    }

    int get() const { return m_Descriptor; }
    explicit operator bool() const { return m_Descriptor >= 0; }

    // Writes the bytes with one call of the system: other writers of a file that is open for
    // appending then come before or after them, and never between. What cannot be written is lost.
    void writeAtOnce(const char* bytes, std::size_t size) const
    {
        while (size > 0) {
            const ssize_t written = ::write(m_Descriptor, bytes, size);
            if (written < 0 && errno == EINTR)
                continue;
            if (written <= 0)
                return;
            bytes += written;
            size -= static_cast<std::size_t>(written);
        }
    }

private:
    int m_Descriptor = -1;
};

} // namespace tarnix_cmn_4_4

#endif
