// SPDX-License-Identifier: LicenseRef-Tarnix
// The comparison of a language with the root.
#ifndef TARNIX_PROGRAMS_ROOTCOMPARE_H
#define TARNIX_PROGRAMS_ROOTCOMPARE_H

#include "catalog.h"
#include "findings.h"
#include "textcheck.h"

#include <map>
#include <string>

namespace catalogcheck
{

// The patterns of all languages by name, "root" among them.
using CatalogPatterns = std::map<std::string, Patterns>;

// What is a fault in the root, and in a language only if the root is different.
void checkRoot(const Catalog& catalog, const CatalogPatterns& patterns, Findings& findings);

// Compares the language `name` with the root.
void compareWithRoot(const Catalog& catalog, const CatalogPatterns& patterns,
                     const std::string& name, Findings& findings);

} // namespace catalogcheck

#endif
