// SPDX-License-Identifier: LicenseRef-Tarnix
// See allocationfault.h. These functions replace those of C++ in the whole program.
#include "allocationfault.h"

#include <unicode/uclean.h>

#include <malloc.h>

#include <algorithm>
#include <cstdlib>
#include <new>

namespace
{

void* allocate(std::size_t size, void* former = nullptr, bool throwing = false)
{
    using Fault = AllocationFault;
    const bool counts = Fault::pauses == 0 && (throwing || !Fault::throwingOnly);
    const std::size_t number = counts ? ++Fault::requests : 0;
    if (Fault::failing > 0 &&
        (Fault::laterToo ? number >= Fault::failing : number == Fault::failing))
        return nullptr;
    const std::size_t formerSize = malloc_usable_size(former);
    void* const memory = std::realloc(former, size > 0 ? size : 1);
    if (memory != nullptr) {
        Fault::liveBlocks += former == nullptr ? 1 : 0;
        Fault::liveBytes += malloc_usable_size(memory) - formerSize;
        Fault::mostBytes = std::max(Fault::mostBytes, Fault::liveBytes);
    }
    return memory;
}

void release(void* memory)
{
    AllocationFault::liveBlocks -= memory != nullptr ? 1 : 0;
    AllocationFault::liveBytes -= malloc_usable_size(memory);
    std::free(memory);
}

// ICU accepts its functions only before its first use.
const bool g_isIcuCounted = [] {
    UErrorCode status = U_ZERO_ERROR;
    u_setMemoryFunctions(
        nullptr, [](const void*, std::size_t size) { return allocate(size); },
        [](const void*, void* former, std::size_t size) { return allocate(size, former); },
        [](const void*, void* memory) { release(memory); }, &status);
    return U_SUCCESS(status) || (std::abort(), false);
}();

} // namespace

void* operator new(std::size_t size)
{
    void* const memory = allocate(size, nullptr, true);
    return memory != nullptr ? memory : throw std::bad_alloc();
}
void* operator new[](std::size_t size) { return operator new(size); }
void* operator new(std::size_t size, const std::nothrow_t&) noexcept { return allocate(size); }
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept { return allocate(size); }
void operator delete(void* memory) noexcept { release(memory); }
void operator delete[](void* memory) noexcept { release(memory); }
void operator delete(void* memory, std::size_t) noexcept { release(memory); }
void operator delete[](void* memory, std::size_t) noexcept { release(memory); }
