// The two ends of a pipe, and the names by which they find each other.
#ifndef TARNIX_PLATFORM_PIPEEND_H
#define TARNIX_PLATFORM_PIPEEND_H

#include "pipe.h"

#include <memory>
#include <string>

namespace tarnix_platform
{

enum class Side { server, client };

class PipeEnd : public Object
{
public:
    PipeEnd(std::shared_ptr<Pipe> pipe, Side side) : m_Pipe(std::move(pipe)), m_Side(side) {}
    ~PipeEnd() override;

    const std::shared_ptr<Pipe>& pipe() const { return m_Pipe; }
    Side side() const { return m_Side; }
    int fd() const { return m_Side == Side::server ? m_Pipe->writeFd() : m_Pipe->readFd(); }

private:
    const std::shared_ptr<Pipe> m_Pipe;
    const Side m_Side;
};

// The server end of a new pipe of that name. Null with the last error set, if there are
// `maxInstances` of the name already among others.
std::shared_ptr<PipeEnd> createPipe(const char* name, DWORD maxInstances);

// The client end of the oldest pipe of that name that has none yet. Null with the last error set.
std::shared_ptr<PipeEnd> connectPipe(const char* name);

} // namespace tarnix_platform

#endif
