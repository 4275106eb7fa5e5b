// SPDX-License-Identifier: LicenseRef-Tarnix
// Manual-reset events.
#include "wakeup.h"

#include "descriptors.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdint>

namespace tarnix_platform
{

namespace
{

// What SetEvent finds by the slot of a handle: a signal handler may not ask the table, which takes
// a lock. An entry stays when its event is closed, but then no open handle has its value.
struct WakeupSlot {
    std::atomic<HANDLE> event{nullptr};
    std::atomic<int> fd{};
    std::atomic<pid_t> process{}; // a fork shares the descriptor, but must not wake this process
};
WakeupSlot g_wakeupSlots[kMaxHandles];

WakeupSlot& wakeupSlot(HANDLE event)
{
    return g_wakeupSlots[&fastSlot(event) - g_fastSlots];
}

} // namespace

HANDLE openWakeup()
{
    UniqueFd fd(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    if (!fd || !moveAboveStandard(fd)) {
        fail(errno, "cannot create event");
        return nullptr;
    }
    const int number = fd.get();
    const HANDLE handle = openHandle(std::make_shared<Wakeup>(std::move(fd)));
    if (handle != nullptr) {
        wakeupSlot(handle).fd.store(number, std::memory_order_relaxed);
        wakeupSlot(handle).process.store(::getpid(), std::memory_order_relaxed);
        wakeupSlot(handle).event.store(handle, std::memory_order_release);
    }
    return handle;
}

// No lock and no allocation: a signal handler may call it.
BOOL SetEvent(HANDLE event)
{
    const WakeupSlot& slot = wakeupSlot(event);
    if (event == nullptr || slot.event.load(std::memory_order_acquire) != event ||
        fastSlot(event).owner.load(std::memory_order_relaxed) != event ||
        slot.process.load(std::memory_order_relaxed) != ::getpid()) {
        return false;
    }
    const int error = errno;
    const std::uint64_t one = 1;
    // It fails only if the counter is full, and then the event is signalled.
    [[maybe_unused]] const ssize_t written =
        ::write(slot.fd.load(std::memory_order_relaxed), &one, sizeof one);
    errno = error;
    return true;
}

BOOL ResetEvent(HANDLE event)
{
    const std::shared_ptr<Wakeup> found = find<Wakeup>(event);
    if (!found) {
        return false;
    }
    std::uint64_t count;
    readSome(found->fd(), &count, sizeof count); // fails if the event is not signalled
    return true;
}

} // namespace tarnix_platform
