// SPDX-License-Identifier: LicenseRef-Tarnix
// The blocks of read-ahead of all pipes.
#include "aheadpool.h"

#include "neverdestroyed.h"

#include <mutex>
#include <vector>

namespace tarnix_platform
{

namespace
{

class AheadPool
{
public:
    ReadAhead* take()
    {
        const std::lock_guard<std::mutex> lock(m_Mutex);
        if (m_Free.empty()) {
            m_Free.reserve(m_All.size() + 1); // so that give cannot fail and lose a block
            m_All.push_back(std::make_unique<ReadAhead>());
            return m_All.back().get();
        }
        ReadAhead* block = m_Free.back();
        m_Free.pop_back();
        return block;
    }

    void give(ReadAhead* block)
    {
        const std::lock_guard<std::mutex> lock(m_Mutex);
        block->writer.store(nullptr, std::memory_order_relaxed);
        block->end.store(0, std::memory_order_relaxed);
        m_Free.push_back(block);
    }

private:
    std::mutex m_Mutex;
    std::vector<std::unique_ptr<ReadAhead>> m_All;
    std::vector<ReadAhead*> m_Free;
};

} // namespace

ReadAhead* takeAhead()
{
    return neverDestroyed<AheadPool>().take();
}

void giveAhead(ReadAhead* block)
{
    neverDestroyed<AheadPool>().give(block);
}

} // namespace tarnix_platform
