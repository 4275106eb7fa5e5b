// A second implementation of the platform's process side, in which every operation does what a test
// tells it: rows of failure that a real system does not give on demand.
#ifndef TARNIX_SCRIPTED_PLATFORM_H
#define TARNIX_SCRIPTED_PLATFORM_H

#include "platform.h"

#include <map>
#include <set>
#include <string>
#include <vector>

using Details = std::vector<long>;

struct Script {
    // What one read meets: a byte or one of these, which are the negated errors. The outcome of a
    // pending read is the next one, which alone may be empty.
    static constexpr long empty = -1, failed = -13, broken = -109, pending = -997;

    // How a run goes.
    Details reads{};     // when none is left: broken
    Details readWaits{}; // for the child's end or a byte; when none is left: a byte
    Details endWaits{};  // for its end only; when none is left: ended
    long test = tarnix_platform::WAIT_TIMEOUT; // of its end, a wait with time 0
    tarnix_platform::DWORD exitStatus = 0;
    bool entitled = false; // the one account has the right to batch logons
    bool busy = false;     // another runner holds a right that it has added

    // What fails, with error 13: a call of an operation, counted from 1; with `onwards` all behind
    // it too.
    std::string_view operation{};
    std::size_t call = 1;
    bool onwards = false;

    // What happened.
    std::map<std::string, Details> calls{}; // of each, the signal or status if it has one
    std::set<void*> open{};                 // handles, and memory of the platform
    bool childRuns = false;
    char* target = nullptr; // of the last read,
    long what = 0;          // and what it meets
    tarnix_platform::DWORD lastError = 0;
};

extern Script script;

#endif
