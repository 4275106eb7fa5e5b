// Bounds for the time and the memory that an input may take, in proportion to its size. For one
// source of a program: it replaces the operators new and delete.
#ifndef TARNIX_FUZZBOUNDS_H
#define TARNIX_FUZZBOUNDS_H

#include "fuzzinput.h"

#include <unicode/uclean.h>

#include <malloc.h>

#include <algorithm>
#include <ctime>
#include <new>

#ifdef TARNIX_SANITIZED
constexpr double slowerWithSanitizers = 20;
#else
constexpr double slowerWithSanitizers = 1;
#endif

struct FuzzBounds {
    // `seconds` and `bytes` are for any input, the others for each byte of it; without sanitizers.
    FuzzBounds(double seconds, double secondsPerByte, double bytes, double bytesPerByte,
               double size)
        : m_Seconds(slowerWithSanitizers * (seconds + secondsPerByte * size)),
          m_Bytes(bytes + bytesPerByte * size)
    {
        s_Most = s_Used;
    }
    ~FuzzBounds()
    {
        require(now() - m_Start <= m_Seconds, "the time is in proportion to the input");
        require(double(s_Most - m_Used) <= m_Bytes, "the memory is in proportion to the input");
    }
    FuzzBounds(const FuzzBounds&) = delete;
    FuzzBounds& operator=(const FuzzBounds&) = delete;

    static void count(long long change) { s_Most = std::max(s_Most, s_Used += change); }

private:
    static double now() { return double(std::clock()) / CLOCKS_PER_SEC; } // of the processor

    inline static long long s_Used = 0, s_Most = 0;
    const double m_Seconds, m_Bytes, m_Start = now();
    const long long m_Used = s_Used;
};

void* operator new(std::size_t size, const std::nothrow_t&) noexcept
{
    void* const block = std::malloc(size);
    FuzzBounds::count(static_cast<long long>(malloc_usable_size(block)));
    return block;
}
// Not inline: the compiler would warn of a block of malloc that is given to delete.
[[gnu::noinline]] void* operator new(std::size_t size)
{
    if (void* const block = operator new(size, std::nothrow))
        return block;
    throw std::bad_alloc();
}
[[gnu::noinline]] void operator delete(void* block) noexcept
{
    FuzzBounds::count(-static_cast<long long>(malloc_usable_size(block)));
    std::free(block);
}
[[gnu::noinline]] void operator delete(void* block, std::size_t) noexcept
{
    operator delete(block);
}

// ICU has operators of its own. To be called before ICU is used.
inline bool countIcuMemory()
{
    UErrorCode status = U_ZERO_ERROR;
    u_setMemoryFunctions(
        nullptr, [](const void*, std::size_t size) { return operator new(size, std::nothrow); },
        [](const void*, void* block, std::size_t size) {
            const std::size_t old = malloc_usable_size(block);
            void* const grown = std::realloc(block, size);
            FuzzBounds::count(static_cast<long long>(malloc_usable_size(grown)) -
                              static_cast<long long>(old));
            return grown;
        },
        [](const void*, void* block) { operator delete(block); }, &status);
    return U_SUCCESS(status);
}

#endif
