// Splits a command text into words.
#ifndef TARNIX_PLATFORM_COMMANDLINE_H
#define TARNIX_PLATFORM_COMMANDLINE_H

#include <string>
#include <vector>

namespace tarnix_platform
{

// By the shell's quoting rules: blanks, tabs and line ends part words; within single quotes
// everything stands for itself; within double quotes a backslash quotes only $ ` " \ and the line
// end; outside quotes it quotes any character; a quoted line end disappears. Nothing is expanded.
// False if a quote is not closed.
bool splitCommandLine(const char* text, std::vector<std::string>& words);

} // namespace tarnix_platform

#endif
