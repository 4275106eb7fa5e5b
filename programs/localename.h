// SPDX-License-Identifier: LicenseRef-Tarnix
// Which names of files lead to a language: those that ICU looks for when a program asks for it.
#ifndef TARNIX_PROGRAMS_LOCALENAME_H
#define TARNIX_PROGRAMS_LOCALENAME_H

#include <string>

namespace catalogcheck
{

// What is wrong with the name of a language and what to do; empty if a locale has this name, or if
// it is the root.
std::string localeNameFault(const std::string& name);

} // namespace catalogcheck

#endif
