// SPDX-License-Identifier: LicenseRef-Tarnix
// The languages that ICU reads after a bundle of the catalog, for what the bundle lacks.
#ifndef TARNIX_PROGRAMS_PARENTS_H
#define TARNIX_PROGRAMS_PARENTS_H

#include "catalog.h"

#include <string>
#include <vector>

namespace catalogcheck
{

// The name and those of its parents, the nearest first, also without a bundle. A parent is what the
// bundle has as "%%Parent", or else the name without its last part. Without root.
std::vector<std::string> withParents(const Catalog& catalog, const std::string& name);

// Why ICU 72 never returns from opening the bundle, and what to do; empty if it does.
std::string openingFault(const Catalog& catalog, const std::string& name);

} // namespace catalogcheck

#endif
