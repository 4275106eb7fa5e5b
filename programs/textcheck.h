// SPDX-License-Identifier: LicenseRef-Tarnix
// The check of one text: its id, its pattern, and the grammar of its language.
#ifndef TARNIX_PROGRAMS_TEXTCHECK_H
#define TARNIX_PROGRAMS_TEXTCHECK_H

#include "catalog.h"
#include "findings.h"
#include "patterntree.h"
#include "pluralforms.h"

#include <map>
#include <string>

namespace catalogcheck
{

using Patterns = std::map<std::string, Pattern>; // by id

// The quoted text that shows a number sign in a plural.
constexpr char kQuotedNumber[] = "'#'";

// Whether a quoted text contains a placeholder or begins with the number of a plural and more, or
// reaches to the end of the text.
bool quotesPlaceholder(const std::string& quoted);

class TextCheck
{
public:
    // `locale` is the language of the texts; empty if its name leads to none, and then nothing is
    // known of its plural forms.
    TextCheck(const std::string& locale, Findings& findings);

    // Checks all texts and returns their patterns.
    Patterns check(const Language& language);

private:
    Pattern checkText(const icu::UnicodeString& text);
    void checkFormat(const icu::UnicodeString& text);
    void checkQuotes(const Pattern& pattern);
    void checkNeeds(const Message& message);
    void checkArgument(const Argument& argument);
    void checkPlural(const Argument& argument);
    void add(const std::string& what) { m_Findings.add(m_File, m_Id, what); }

    const std::string m_Locale;
    const PluralForms m_Cardinal;
    const PluralForms m_Ordinal;
    Findings& m_Findings;
    std::string m_File; // of the text that is being checked
    std::string m_Id;
};

} // namespace catalogcheck

#endif
