// See refusal.h.
#include "refusal.h"

#include <unicode/uclean.h>

#include <cstdlib>
#include <new>

namespace
{

void* give(std::size_t size, void* former = nullptr, bool throwing = false)
{
    const bool counts = Refusal::calm == 0 && (throwing || !Refusal::throwingOnly);
    const std::size_t number = counts ? ++Refusal::asked : 0;
    if (Refusal::call > 0 && (Refusal::onwards ? number >= Refusal::call : number == Refusal::call))
        return nullptr;
    void* const memory = std::realloc(former, size > 0 ? size : 1);
    Refusal::blocks += memory != nullptr && former == nullptr ? 1 : 0;
    return memory;
}

void take(void* memory)
{
    Refusal::blocks -= memory != nullptr ? 1 : 0;
    std::free(memory);
}

// ICU has to be told before its first use.
const UErrorCode g_icu = [] {
    UErrorCode status = U_ZERO_ERROR;
    u_setMemoryFunctions(
        nullptr, [](const void*, std::size_t size) { return give(size); },
        [](const void*, void* former, std::size_t size) { return give(size, former); },
        [](const void*, void* memory) { take(memory); }, &status);
    return status;
}();

} // namespace

void* operator new(std::size_t size)
{
    void* const memory = give(size, nullptr, true);
    return memory != nullptr ? memory : throw std::bad_alloc();
}
void* operator new[](std::size_t size) { return operator new(size); }
void* operator new(std::size_t size, const std::nothrow_t&) noexcept { return give(size); }
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept { return give(size); }
void operator delete(void* memory) noexcept { take(memory); }
void operator delete[](void* memory) noexcept { take(memory); }
void operator delete(void* memory, std::size_t) noexcept { take(memory); }
void operator delete[](void* memory, std::size_t) noexcept { take(memory); }
