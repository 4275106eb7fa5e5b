// SPDX-License-Identifier: LicenseRef-Tarnix
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
        const std::size_t slot = m_FirstFree;
        if (slot == kMaxHandles) {
            fail(EMFILE);
            return nullptr;
        }
        if (slot == m_Entries.size()) {
            m_Entries.emplace_back();
            m_Entries.back().nextFree = slot + 1;
        }
        Entry& entry = m_Entries[slot];
        m_FirstFree = entry.nextFree;
        ++entry.generation;
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
        entry->nextFree =
            std::exchange(m_FirstFree, static_cast<std::size_t>(entry - m_Entries.data()));
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
        std::uintptr_t generation{};
        std::size_t nextFree{}; // the free slots form a list, which ends at the first unused slot
        std::shared_ptr<Object> object;
    };

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
    std::size_t m_FirstFree{};
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
    // The object is destroyed here, outside the table's lock: the destructor may wait for a child.
    if (!table().close(handle)) {
        return fail(EBADF);
    }
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
