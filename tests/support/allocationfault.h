// SPDX-License-Identifier: LicenseRef-Tarnix
// Makes allocations of this program fail, and counts them: those of C++ and those of ICU. The
// program must be linked with allocationfault.cpp.
#ifndef TARNIX_SUPPORT_ALLOCATIONFAULT_H
#define TARNIX_SUPPORT_ALLOCATIONFAULT_H

#include <cstddef>

// Counts allocations during its lifetime; the `number`-th fails, alone or with all later ones. With
// 0 none fails. ACE and ICU get null for it; `throwingOnly` leaves out callers that do not check.
struct AllocationFault {
    AllocationFault(std::size_t number, bool andLater)
    {
        requests = 0;
        failing = number;
        laterToo = andLater;
        --pauses;
    }
    ~AllocationFault() { ++pauses; }

    static inline int liveBlocks = 0;                       // allocated and not freed
    static inline std::size_t liveBytes = 0, mostBytes = 0; // of them; the most since it was set
    static inline std::size_t requests = 0, failing = 0;    // since the last object was made
    static inline bool throwingOnly = false, laterToo = false;
    static inline int pauses = 1;
};

// Allocations of the test itself, which are not counted and do not fail.
struct AllocationFaultPause {
    AllocationFaultPause() { ++AllocationFault::pauses; }
    ~AllocationFaultPause() { --AllocationFault::pauses; }
};

#endif
