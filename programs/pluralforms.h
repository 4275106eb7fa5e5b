// SPDX-License-Identifier: LicenseRef-Tarnix
// The plural categories of a language, by ICU's rules.
#ifndef TARNIX_PROGRAMS_PLURALFORMS_H
#define TARNIX_PROGRAMS_PLURALFORMS_H

#include "patterntree.h"

#include <unicode/upluralrules.h>

#include <map>
#include <set>
#include <string>
#include <vector>

namespace catalogcheck
{

// Of one kind: cardinal (plural) or ordinal (selectordinal).
class PluralForms
{
public:
    PluralForms(const std::string& locale, UPluralType type);

    // What is wrong with the branches of a plural, as sentences.
    std::vector<std::string> faults(const Argument& plural) const;

private:
    std::string keywordFault(const std::string& keyword, const std::string& plural) const;
    std::set<std::string> missing(const std::vector<Branch>& branches) const;

    std::string m_Locale;
    std::set<std::string> m_Categories;
    // Numbers of each category that must have a branch.
    std::map<std::string, std::vector<double>> m_Needed;
};

} // namespace catalogcheck

#endif
