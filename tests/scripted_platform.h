// A second implementation of the platform's process side, in which every operation does what a test
// tells it: rows of failure that a real system does not give on demand.
#ifndef TARNIX_SCRIPTED_PLATFORM_H
#define TARNIX_SCRIPTED_PLATFORM_H

#include "platform.h"

#include <deque>
#include <map>
#include <set>
#include <string>
#include <vector>

struct Script {
    // Fails the n-th call (from 1) of an operation, by its name.
    std::map<std::string, int> failCall;
    DWORD error = 13; // of every failed call

    // What one read meets: a byte, or what else ReadFile and GetOverlappedResult may do.
    enum Read { pending = 256, broken, readError, resultError, resultBroken, emptyResult };
    std::deque<int> reads;           // when empty: broken
    std::deque<DWORD> multipleWaits; // when empty: 1, the read has finished
    std::deque<DWORD> singleWaits;   // of the process, those with time 0 left out; then ended
    bool endedAtOnce = false;        // tests with time 0 find the child ended
    DWORD exitStatus = 0;
    DWORD build = 1057;
    std::set<std::string> rights; // of the one account
    bool startThrows = false;     // CreateProcessA raises something of its own

    // What happened.
    std::vector<std::string> log; // "Name argument"
    std::set<HANDLE> open;
    std::vector<std::string> wrongCloses;
    DWORD lastError = 0;

    std::map<std::string, int> calls;
    std::uintptr_t nextHandle = 100;

    bool fails(const std::string& operation);
    HANDLE give();
    int count(const std::string& entry) const;
};

extern Script script;

#endif
