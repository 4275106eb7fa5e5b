// SPDX-License-Identifier: LicenseRef-Tarnix
// The two ends of a pipe, and the names by which a client finds its server end.
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

// The server end of a new pipe of that name. Null with the last error set, for example if
// `maxInstances` pipes have the name already.
std::shared_ptr<PipeEnd> createPipe(const char* name, DWORD maxInstances);

// The client end of the oldest pipe of that name that is not connected. Null with the last error
// set if there is none.
std::shared_ptr<PipeEnd> connectPipe(const char* name);

} // namespace tarnix_platform

#endif
