// Allocations of this program, refused on demand and counted: those of C++ and those of ICU. The
// program is linked with refusal.cpp.
#ifndef TARNIX_TESTS_REFUSAL_H
#define TARNIX_TESTS_REFUSAL_H

#include <cstddef>

// From its making to its end the `refused`-th allocation is refused, alone or with all behind it;
// with 0 none is. ACE and ICU get null for it; where they do not look at it, they can be left out.
struct Refusal {
    explicit Refusal(std::size_t refused, bool allBehind)
    {
        asked = 0;
        call = refused;
        onwards = allBehind;
        --calm;
    }
    ~Refusal() { ++calm; }

    static inline int blocks = 0;                  // given out and not given back
    static inline std::size_t asked = 0, call = 0; // allocations since the last one was made
    static inline bool throwingOnly = false, onwards = false;
    static inline int calm = 1;
};

// What a test does in between for its own ends: it neither counts nor is refused.
struct Calm {
    Calm() { ++Refusal::calm; }
    ~Calm() { --Refusal::calm; }
};

#endif
