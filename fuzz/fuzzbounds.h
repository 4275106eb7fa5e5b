// SPDX-License-Identifier: LicenseRef-Tarnix
// Bounds for the time and the memory that an input may take, in proportion to its size. The program
// must be linked with allocationfault.cpp, which counts the memory.
#ifndef TARNIX_FUZZBOUNDS_H
#define TARNIX_FUZZBOUNDS_H

#include "fuzzinput.h"
#include "support/allocationfault.h"

#include <ctime>

struct FuzzBounds {
    // `seconds` and `bytes` are for any input, the others for each byte of it; without sanitizers.
    FuzzBounds(double seconds, double secondsPerByte, double bytes, double bytesPerByte,
               double size)
        : m_Seconds(TARNIX_SLOWNESS * (seconds + secondsPerByte * size)),
          m_Bytes(bytes + bytesPerByte * size)
    {
        AllocationFault::mostBytes = m_Used;
    }
    ~FuzzBounds()
    {
        require(now() - m_Start <= m_Seconds, "the time is in proportion to the input");
        require(double(AllocationFault::mostBytes - m_Used) <= m_Bytes,
                "the memory is in proportion to the input");
    }

private:
    static double now() { return double(std::clock()) / CLOCKS_PER_SEC; } // of the processor

    const double m_Seconds, m_Bytes, m_Start = now();
    const std::size_t m_Used = AllocationFault::liveBytes;
};

#endif
