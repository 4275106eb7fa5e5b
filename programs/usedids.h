// SPDX-License-Identifier: LicenseRef-Tarnix
// The ids that the sources of a program use, against those of its catalog.
#ifndef TARNIX_PROGRAMS_USEDIDS_H
#define TARNIX_PROGRAMS_USEDIDS_H

#include "catalog.h"
#include "findings.h"

#include <filesystem>
#include <string>
#include <vector>

namespace catalogcheck
{

// Finds ids in the sources by a regular expression of ICU, whose only group is the id. Of a
// directory it reads the C and C++ files, also in its directories. Reports ids that the root lacks,
// and ids of the root that no source uses. Throws for a wrong expression or an unreadable file.
void checkUsedIds(const std::string& expression, const std::vector<std::filesystem::path>& sources,
                  const Language& root, Findings& findings);

} // namespace catalogcheck

#endif
