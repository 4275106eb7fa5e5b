// SPDX-License-Identifier: LicenseRef-Tarnix
// How deep the arguments of a MessageFormat pattern nest. ICU parses and formats a pattern
// recursively and without a limit of its own.
#ifndef TARNIX_CMNPATTERN_H
#define TARNIX_CMNPATTERN_H

#include "cmntypes.h"

#include <cstddef>

namespace tarnix_cmn_4_4
{

// Whether braces nest deeper than `limit` before the first error that ICU finds in the pattern.
// Quoted braces do not count. With a limit of 0: whether there is an argument.
bool nestsDeeper(const tstr& pattern, std::size_t limit);

// Two levels for each plural or select, one for each other argument. ICU takes 2.3 KB of stack for
// an argument within an argument, and a thread may have 128 KB.
constexpr std::size_t kMaxNesting = 32;

} // namespace tarnix_cmn_4_4

#endif
