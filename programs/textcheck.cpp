// SPDX-License-Identifier: LicenseRef-Tarnix
#include "textcheck.h"

#include "placeholders.h"

#include <unicode/msgfmt.h>
#include <unicode/uchar.h>

#include <set>
#include <utility>

namespace catalogcheck
{
namespace
{

// What a serialised message carries of an id, if its severity has the most digits: its header line
// has 1023 characters.
constexpr std::size_t kLongestId = 974;

std::string idFault(const std::string& id)
{
    if (id.empty()) {
        return "has an entry with an empty id, which no message has: name it, or remove it";
    }
    if (id.find_first_of(" \t\r\n\v\f") != std::string::npos) {
        return "has white space in its id, which ends an id in a serialised message: rename it";
    }
    if (id.size() > kLongestId) {
        return "has an id of " + std::to_string(id.size()) +
               " characters, and a serialised message carries " + std::to_string(kLongestId) +
               ": shorten it";
    }
    return {};
}

bool isBlank(const icu::UnicodeString& text)
{
    for (std::int32_t i = 0; i < text.length(); ++i) {
        if (u_isUWhiteSpace(text.charAt(i)) == 0) {
            return false;
        }
    }
    return true;
}

// The branches with the same keyword as an earlier one. ICU takes the first.
std::set<std::string> repeated(const std::vector<Branch>& branches)
{
    std::set<std::string> seen;
    std::set<std::string> repeated;
    for (const Branch& branch : branches) {
        if (!seen.insert(branch.keyword).second) {
            repeated.insert(branch.keyword);
        }
    }
    return repeated;
}

} // namespace

bool quotesPlaceholder(const std::string& quoted)
{
    if (quoted.size() < 2 || quoted.back() != '\'') {
        return true;
    }
    if (quoted[1] == '#' && quoted != kQuotedNumber) {
        return true;
    }
    for (std::size_t at = quoted.find('{'); at != std::string::npos;
         at = quoted.find('{', at + 1)) {
        const std::size_t name = quoted.find_first_not_of(" \t\r\n", at + 1);
        if (name != std::string::npos && quoted[name] >= '0' && quoted[name] <= '9') {
            return true;
        }
    }
    return false;
}

TextCheck::TextCheck(const std::string& locale, Findings& findings)
    : m_Locale(locale),
      m_Cardinal(locale, UPLURAL_TYPE_CARDINAL),
      m_Ordinal(locale, UPLURAL_TYPE_ORDINAL),
      m_Findings(findings)
{
}

Patterns TextCheck::check(const Language& language)
{
    Patterns patterns;
    m_File = language.file;
    for (const auto& [id, text] : language.texts) {
        m_Id = id;
        const std::string fault = idFault(id);
        if (!fault.empty()) {
            add(fault);
        }
        Pattern pattern = checkText(text);
        if (!id.empty()) {
            patterns.emplace(id, std::move(pattern));
        }
    }
    return patterns;
}

Pattern TextCheck::checkText(const icu::UnicodeString& text)
{
    if (isBlank(text)) {
        add("is empty: write the text");
    }
    if (text.indexOf(u'\0') >= 0) {
        add("contains U+0000, which ends a text early: remove it");
    }
    Pattern pattern = readPattern(text);
    if (!pattern.fault.empty()) {
        add(pattern.fault);
        return pattern;
    }
    checkQuotes(pattern);
    checkNeeds(pattern.message);
    forEachArgument(pattern.message, [this](const Argument& argument) { checkArgument(argument); });
    if (pattern.hasTypes) {
        checkFormat(text);
    }
    return pattern;
}

void TextCheck::checkQuotes(const Pattern& pattern)
{
    for (const std::string& quoted : pattern.quoted) {
        if (quotesPlaceholder(quoted)) {
            add("has an apostrophe that quotes " + quoted +
                ", so that it is shown as it stands: write '' for an apostrophe, and none around "
                "a placeholder");
        }
    }
}

// A value cannot be a number in one place and a word in another.
void TextCheck::checkNeeds(const Message& message)
{
    for (const auto& [number, needs] : needsOf(message)) {
        if (needs.size() > 1) {
            add("uses " + placeholder(number) + " as " + described(needs) + ": give it one type");
        }
    }
}

// What the parser of patterns leaves to the formats, such as the names of the types.
void TextCheck::checkFormat(const icu::UnicodeString& text)
{
    UErrorCode status = U_ZERO_ERROR;
    UParseError where{};
    const icu::MessageFormat format(text, icu::Locale(m_Locale.c_str()), where, status);
    if (U_FAILURE(status)) {
        add(std::string("is not a valid pattern: ") + u_errorName(status) +
            ": check the type and style of each placeholder");
    }
}

void TextCheck::checkArgument(const Argument& argument)
{
    const std::string name = "{" + argument.name + "}";
    if (argument.number < 0) {
        add("has a placeholder that is not a number, " + name + ": write {0}, {1}, ...");
    }
    if (argument.type != UMSGPAT_ARG_TYPE_CHOICE) {
        for (const std::string& keyword : repeated(argument.branches)) {
            add("has two branches '" + keyword + "' of " + name +
                ", of which only the first is shown: remove one");
        }
    }
    if (isPlural(argument)) {
        checkPlural(argument);
    }
}

void TextCheck::checkPlural(const Argument& argument)
{
    if (m_Locale.empty()) {
        return;
    }
    const bool ordinal = argument.type == UMSGPAT_ARG_TYPE_SELECTORDINAL;
    for (const std::string& fault : (ordinal ? m_Ordinal : m_Cardinal).faults(argument)) {
        add(fault);
    }
}

} // namespace catalogcheck
