// SPDX-License-Identifier: LicenseRef-Tarnix
// A message catalog in memory: the texts of each language by id.
#ifndef TARNIX_PROGRAMS_CATALOG_H
#define TARNIX_PROGRAMS_CATALOG_H

#include <unicode/unistr.h>

#include <map>
#include <string>

namespace catalogcheck
{

struct Language {
    std::string file;          // the name to report
    icu::UnicodeString parent; // the language that ICU reads next, if the bundle names one
    std::map<std::string, icu::UnicodeString> texts;
};
using Catalog = std::map<std::string, Language>; // by the name of the file without its ending

constexpr char kRoot[] = "root";

} // namespace catalogcheck

#endif
