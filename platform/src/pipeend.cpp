// SPDX-License-Identifier: LicenseRef-Tarnix
// The two ends of a pipe, and the names of pipes.
#include "pipeend.h"

#include "neverdestroyed.h"

#include <algorithm>
#include <map>
#include <vector>

namespace tarnix_platform
{

namespace
{

// The open server ends of each name.
class PipeNames
{
public:
    bool add(const std::shared_ptr<Pipe>& pipe, DWORD maxInstances)
    {
        const std::lock_guard<std::mutex> lock(m_Mutex);
        const auto found = m_Names.find(pipe->name());
        if ((found == m_Names.end() ? 0 : found->second.size()) >= maxInstances) {
            return fail(EBUSY, pipe->name());
        }
        m_Names[pipe->name()].push_back(pipe);
        return true;
    }

    void remove(const Pipe& pipe)
    {
        const std::lock_guard<std::mutex> lock(m_Mutex);
        const auto found = m_Names.find(pipe.name());
        if (found == m_Names.end()) {
            return;
        }
        auto& instances = found->second;
        instances.erase(std::remove_if(instances.begin(), instances.end(),
                                       [&pipe](const std::weak_ptr<Pipe>& entry) {
                                           return entry.lock().get() == &pipe;
                                       }),
                        instances.end());
        if (instances.empty()) {
            m_Names.erase(found);
        }
    }

    std::shared_ptr<Pipe> connect(const std::string& name)
    {
        const std::lock_guard<std::mutex> lock(m_Mutex);
        const auto found = m_Names.find(name);
        if (found == m_Names.end()) {
            fail(ENOENT, name);
            return nullptr;
        }
        for (const std::weak_ptr<Pipe>& entry : found->second) {
            std::shared_ptr<Pipe> pipe = entry.lock();
            if (pipe && !pipe->connected()) {
                pipe->connect();
                return pipe;
            }
        }
        fail(EBUSY, name);
        return nullptr;
    }

private:
    std::mutex m_Mutex;
    std::map<std::string, std::vector<std::weak_ptr<Pipe>>> m_Names;
};

PipeNames& names()
{
    return neverDestroyed<PipeNames>();
}

} // namespace

PipeEnd::~PipeEnd()
{
    if (m_Side == Side::server) {
        names().remove(*m_Pipe);
        m_Pipe->closeServer();
    } else {
        m_Pipe->closeClient();
    }
}

std::shared_ptr<PipeEnd> createPipe(const char* name, DWORD maxInstances)
{
    const auto pipe = std::make_shared<Pipe>(name);
    // The end comes before the name: its destructor removes the name after a failure.
    auto end = std::make_shared<PipeEnd>(pipe, Side::server);
    return pipe->create() && names().add(pipe, maxInstances) ? end : nullptr;
}

std::shared_ptr<PipeEnd> connectPipe(const char* name)
{
    std::shared_ptr<Pipe> pipe = names().connect(name);
    return pipe ? std::make_shared<PipeEnd>(std::move(pipe), Side::client) : nullptr;
}

} // namespace tarnix_platform
