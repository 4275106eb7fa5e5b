// Handles: their table, closing and duplicating.
#include "handles.h"

#include "neverdestroyed.h"
#include "reaping.h"

#include <mutex>
#include <utility>
#include <vector>

namespace tarnix_platform
{

FastSlot g_fastSlots[kMaxHandles];

namespace
{

// A handle consists of a slot of the table and the generation of that slot, so that a closed handle
// does not name the next object in the slot. The low two bits are 0, and no handle is null or
// INVALID_HANDLE_VALUE.
class HandleTable
{
public:
    HANDLE open(std::shared_ptr<Object> object)
    {
        const std::lock_guard<std::mutex> lock(m_Mutex);
        std::size_t slot = 0;
        if (!m_Free.empty()) {
            slot = m_Free.back();
            m_Free.pop_back();
        } else if (m_Entries.size() < kMaxHandles) {
            slot = m_Entries.size();
            if (m_Free.capacity() <= slot) { // so that close cannot fail and lose a slot
                m_Free.reserve(2 * slot + 1);
            }
            m_Entries.emplace_back();
        } else {
            fail(EMFILE);
            return nullptr;
        }
        Entry& entry = m_Entries[slot];
        entry.generation = (entry.generation + 1) & kMaxGeneration;
        entry.object = std::move(object);
        const HANDLE handle = encode(slot, entry.generation);
        fastSlot(handle).owner.store(handle, std::memory_order_release);
        return handle;
    }

    std::shared_ptr<Object> find(HANDLE handle)
    {
        const std::lock_guard<std::mutex> lock(m_Mutex);
        Entry* entry = entryOf(handle);
        return entry == nullptr ? nullptr : entry->object;
    }

    std::shared_ptr<Object> close(HANDLE handle)
    {
        const std::lock_guard<std::mutex> lock(m_Mutex);
        Entry* entry = entryOf(handle);
        if (entry == nullptr) {
            return nullptr;
        }
        FastSlot& fast = fastSlot(handle);
        fast.owner.store(nullptr, std::memory_order_release);
        fast.ahead.store(nullptr, std::memory_order_release);
        fast.output.store(nullptr, std::memory_order_release);
        m_Free.push_back(static_cast<std::size_t>(entry - m_Entries.data()));
        return std::move(entry->object);
    }

    void setAhead(HANDLE handle, ReadAhead* ahead)
    {
        const std::lock_guard<std::mutex> lock(m_Mutex);
        if (entryOf(handle) != nullptr) {
            fastSlot(handle).ahead.store(ahead, std::memory_order_release);
        }
    }

    void setOutput(HANDLE handle, ReadAhead* output, HANDLE writer)
    {
        const std::lock_guard<std::mutex> lock(m_Mutex);
        if (entryOf(handle) != nullptr) {
            fastSlot(handle).writer.store(writer, std::memory_order_relaxed);
            fastSlot(handle).output.store(output, std::memory_order_release);
        }
    }

    std::shared_ptr<Object> findIf(const std::function<bool(const Object&)>& test)
    {
        const std::lock_guard<std::mutex> lock(m_Mutex);
        for (const Entry& entry : m_Entries) {
            if (entry.object && test(*entry.object)) {
                return entry.object;
            }
        }
        return nullptr;
    }

private:
    struct Entry {
        std::uintptr_t generation = 0;
        std::shared_ptr<Object> object;
    };

    static constexpr std::uintptr_t kMaxGeneration = (std::uintptr_t{1} << 40) - 1;

    // Slot in bits 2 to 17, generation from bit 18.
    static HANDLE encode(std::size_t slot, std::uintptr_t generation)
    {
        return reinterpret_cast<HANDLE>((generation << 18) | (slot << 2));
    }

    Entry* entryOf(HANDLE handle)
    {
        const std::size_t slot = (reinterpret_cast<std::uintptr_t>(handle) >> 2) % kMaxHandles;
        if (slot >= m_Entries.size()) {
            return nullptr;
        }
        Entry& entry = m_Entries[slot];
        return entry.object && encode(slot, entry.generation) == handle ? &entry : nullptr;
    }

    std::mutex m_Mutex;
    std::vector<Entry> m_Entries;
    std::vector<std::size_t> m_Free;
};

HandleTable& table()
{
    return neverDestroyed<HandleTable>();
}

} // namespace

HANDLE openHandle(std::shared_ptr<Object> object)
{
    return table().open(std::move(object));
}

std::shared_ptr<Object> objectOf(HANDLE handle)
{
    return table().find(handle);
}

void setAhead(HANDLE handle, ReadAhead* ahead)
{
    table().setAhead(handle, ahead);
}

void setOutput(HANDLE handle, ReadAhead* output, HANDLE writer)
{
    table().setOutput(handle, output, writer);
}

std::shared_ptr<Object> findIf(const std::function<bool(const Object&)>& test)
{
    return table().findIf(test);
}

BOOL CloseHandle(HANDLE handle)
{
    // Destroyed outside the table's lock: the destructor may wait for a child.
    std::shared_ptr<Object> object = table().close(handle);
    if (!object) {
        return fail(EBADF);
    }
    object.reset();
    reapOrphans();
    return true;
}

HANDLE GetCurrentProcess()
{
    return INVALID_HANDLE_VALUE;
}

BOOL DuplicateHandle(HANDLE sourceProcess, HANDLE source, HANDLE targetProcess, HANDLE* target,
                     DWORD /*access*/, BOOL /*inherit*/, DWORD options)
{
    if (sourceProcess != GetCurrentProcess() || targetProcess != GetCurrentProcess() ||
        target == nullptr || options != DUPLICATE_SAME_ACCESS) {
        return fail(EINVAL);
    }
    std::shared_ptr<Object> object = objectOf(source);
    if (!object) {
        return fail(EBADF);
    }
    const HANDLE handle = openHandle(std::move(object));
    if (handle == nullptr) {
        return false;
    }
    const FastSlot& fast = fastSlot(source);
    setOutput(handle, fast.output.load(std::memory_order_acquire),
              fast.writer.load(std::memory_order_relaxed));
    *target = handle;
    return true;
}

} // namespace tarnix_platform
