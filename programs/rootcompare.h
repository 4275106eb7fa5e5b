// The comparison of a language with the root.
#ifndef TARNIX_PROGRAMS_ROOTCOMPARE_H
#define TARNIX_PROGRAMS_ROOTCOMPARE_H

#include "findings.h"
#include "textcheck.h"

#include <map>
#include <string>

namespace catalogcheck
{

// The patterns of all languages by name, "root" among them.
using CatalogPatterns = std::map<std::string, Patterns>;

// Compares the language `name`, whose file has the given name, with the root.
void compareWithRoot(const CatalogPatterns& catalog, const std::string& name,
                     const std::string& file, Findings& findings);

} // namespace catalogcheck

#endif
