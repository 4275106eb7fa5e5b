// SPDX-License-Identifier: LicenseRef-Tarnix
// A line of the rights file, "account right", and the process that has added it.
//
// Such a process puts a mark at the end of its line: " #added PID START IMAGE BOOT". PID and START
// are the process and its start time, field 22 of /proc/PID/stat. IMAGE is a number that differs
// for each program that the process executes: execve keeps PID and START, but loses what removing
// the line needs. BOOT is the system's boot id, or "-" if it cannot be read: start times count from
// the boot. A mark of the older form "PID START" is known too.
#ifndef TARNIX_PLATFORM_RIGHTSLINE_H
#define TARNIX_PLATFORM_RIGHTSLINE_H

#include <string>
#include <string_view>

namespace tarnix_platform
{

// The parts of a line, which must outlive it.
struct RightsLine {
    explicit RightsLine(std::string_view line);

    std::string_view granted; // "account right"
    std::string_view mark;    // empty if no process has added the line
};

// The mark of the lines that this process adds. False on failure, with the last error set.
bool markThisProcess(std::string& mark);

// Whether a process that runs no longer has added the line: it has ended, or is this one and has
// added the line before it executed the present program. When in doubt, as without a /proc, it
// runs.
bool isLeftover(std::string_view line);

// A mark of the same size with zeros only, which no process has for its number: it makes the line a
// leftover.
std::string disowned(std::string_view mark);

} // namespace tarnix_platform

#endif
