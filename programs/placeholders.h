// SPDX-License-Identifier: LicenseRef-Tarnix
// Questions about the placeholders of a text.
#ifndef TARNIX_PROGRAMS_PLACEHOLDERS_H
#define TARNIX_PROGRAMS_PLACEHOLDERS_H

#include "patterntree.h"

#include <map>
#include <set>
#include <string>

namespace catalogcheck
{

std::set<int> placeholdersOf(const Message& message);

// Those that are shown: not an argument that only selects a branch.
std::set<int> shownPlaceholders(const Message& message);

// The placeholders that are shown whichever branches are chosen. Exact branches do not count: "=0"
// often says "none".
std::set<int> alwaysShown(const Message& message);

// The placeholders that some branches show and others do not, each with a branch that does not.
// Without the argument itself, and exact branches do not count.
std::map<int, std::string> partlyShown(const Argument& argument);

// Whether the branches of a plural that show the placeholder do not show the number of the plural:
// "file {1} deleted" beside "# files deleted".
bool replacesNumber(const Argument& plural, int number);

// What each placeholder needs, other than a text.
std::map<int, std::set<Need>> needsOf(const Message& message);

// "a number and a word"
std::string described(const std::set<Need>& needs);

// The keywords of the selects of each placeholder.
std::map<int, std::set<std::string>> selectKeywords(const Message& message);

} // namespace catalogcheck

#endif
