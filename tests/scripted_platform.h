// SPDX-License-Identifier: LicenseRef-Tarnix
// A second implementation of the platform's process functions. Each operation follows the script of
// a test, also in failures that a real system does not produce on demand.
#ifndef TARNIX_SCRIPTED_PLATFORM_H
#define TARNIX_SCRIPTED_PLATFORM_H

#include "platform.h"

#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

using Details = std::vector<long>;

// The call, counted from 1, of an operation that fails with error 13; with `laterToo` all later
// calls fail too. An allocation counts as an operation.
struct Fault {
    std::string_view operation{};
    std::size_t call = 1;
    bool laterToo = false;
};

inline constexpr char allocation[] = "allocation";

struct Script {
    // The result of a read: a byte, or one of these negated error codes. A pending read takes the
    // next result; only that one may be empty. The result of a write: these, or 1.
    static constexpr long empty = -1, failed = -13, broken = -109, pending = -997;

    // What happens during a run.
    Details reads{};     // after the last one: broken
    Details readWaits{}; // for several handles; after the last one: the second handle, if any
    Details endWaits{};  // for its end only; after the last one: ended
    long test = tarnix_platform::WAIT_TIMEOUT; // of a wait for its end with timeout 0
    tarnix_platform::DWORD exitStatus = 0;
    bool entitled = false;   // the account has the right to log on as a batch job
    bool busy = false;       // another runner holds the lock of added rights
    Details writes{};        // after the last one: done
    bool anyTimeout = false; // waits for several handles have any timeout, not 7 seconds

    Fault fault{};

    // What the run did.
    std::map<std::string, Details> calls{}; // the signal or status of each, if it has one
    std::set<void*> open{};                 // handles and memory that are not released yet
    bool childRuns = false, killsGroup = false;
    tarnix_platform::HANDLE process = nullptr;
    // The last read or write of each handle: its buffer, null for a write; its result.
    std::map<tarnix_platform::HANDLE, std::pair<char*, long>> begun{};
    tarnix_platform::DWORD lastError = 0;
    tarnix_platform::WORD looks = 0; // at the clock
};

extern Script script;

// Makes the script that of a run with a fault, calls `run`, and expects that nothing is left of it.
// Returns whether it ended for want of memory.
bool endsWithoutMemory(const Script& made, const Fault& fault, const std::function<void()>& run);

// Calls `checkGood`, and then `run` with each operation of that run failing in turn, at each call,
// alone or with all later ones. Between them `checkGood` still has to hold.
void failEach(const std::function<void()>& checkGood, const std::function<void(const Fault&)>& run);

#endif
