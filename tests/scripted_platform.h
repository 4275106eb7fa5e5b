// A second implementation of the platform's process side, in which every operation does what a test
// tells it: rows of failure that a real system does not give on demand.
#ifndef TARNIX_SCRIPTED_PLATFORM_H
#define TARNIX_SCRIPTED_PLATFORM_H

#include "platform.h"

#include <deque>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <vector>

// How a run goes.
struct Course {
    std::deque<int> reads{};           // each of Script::Read or a byte; when empty: broken
    std::deque<DWORD> multipleWaits{}; // when empty: 1, the read has finished
    std::deque<DWORD> singleWaits{};   // of the process, those with time 0 left out; then ended
    bool endedAtOnce = false;          // tests with time 0 find the child ended
    DWORD exitStatus = 0;
};

struct Script : Course {
    // What fails, with error 13: a call of an operation, counted from 1; with `onwards` all behind
    // it too.
    std::string_view operation;
    int call = 1;
    bool onwards = false;

    // What one read meets: a byte or one of these. The outcome of a pending read is the next one,
    // which alone may be empty.
    enum Read { pending = 256, broken, failed, empty };
    DWORD build = 1057;
    bool entitled = false; // the one account has the right to batch logons

    // What happened.
    std::vector<std::string> log; // "Name details"
    std::map<std::string, int> calls;
    std::set<void*> open; // handles, and memory of the platform
    bool childRuns = false;
    char* target = nullptr; // of the last read,
    int what = 0;           // and what it meets
    DWORD lastError = 0;

    std::vector<std::string> logged(const std::string& start) const;
};

extern Script script;

#endif
