// Allocations of this program, refused on demand and counted: those of C++ and those of ICU. The
// program is linked with refusal.cpp.
#ifndef TARNIX_TESTS_REFUSAL_H
#define TARNIX_TESTS_REFUSAL_H

// From its making to its end the `refused`-th allocation is refused, alone or with all behind it;
// with 0 none is. ACE and ICU get null for it; where they do not look at it, they can be left out.
struct Refusal {
    explicit Refusal(int refused, bool allBehind = false, bool ofThrowingNewOnly = false)
    {
        asked = 0, call = refused, onwards = allBehind, throwingOnly = ofThrowingNewOnly;
        --calm;
    }
    ~Refusal() { ++calm; }
    Refusal(const Refusal&) = delete;
    Refusal& operator=(const Refusal&) = delete;

    static inline int blocks = 0; // given out and not given back
    static inline int asked = 0;  // allocations since the last one was made
    static inline int call = 0, calm = 1;
    static inline bool onwards = false, throwingOnly = false;
};

// What a test does in between for its own ends: it neither counts nor is refused.
struct Calm {
    Calm() { ++Refusal::calm; }
    ~Calm() { --Refusal::calm; }
    Calm(const Calm&) = delete;
    Calm& operator=(const Calm&) = delete;
};

#endif
