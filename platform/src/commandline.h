// SPDX-License-Identifier: LicenseRef-Tarnix
// Splits a command text into words.
#ifndef TARNIX_PLATFORM_COMMANDLINE_H
#define TARNIX_PLATFORM_COMMANDLINE_H

#include <string>
#include <vector>

namespace tarnix_platform
{

// By the shell's quoting rules: words are separated by blanks, tabs and newlines. Within single
// quotes every character stands for itself. Within double quotes a backslash escapes only $, `, ",
// \ and newline; outside quotes it escapes any character. An escaped newline is removed. Nothing is
// expanded. False if a quote is unterminated.
bool splitCommandLine(const char* text, std::vector<std::string>& words);

} // namespace tarnix_platform

#endif
