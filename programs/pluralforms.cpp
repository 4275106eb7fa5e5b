// SPDX-License-Identifier: LicenseRef-Tarnix
#include "pluralforms.h"

#include "findings.h"

#include <unicode/plurrule.h>
#include <unicode/strenum.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <memory>
#include <stdexcept>
#include <string_view>

namespace catalogcheck
{
namespace
{

constexpr std::array<std::string_view, 6> kCategories = {"zero", "one",  "two",
                                                         "few",  "many", "other"};

void require(UErrorCode status, const std::string& locale)
{
    if (U_FAILURE(status)) {
        throw std::runtime_error("cannot read the plural rules of '" + locale +
                                 "': " + u_errorName(status));
    }
}

// ICU's examples of numbers of a category.
std::vector<double> samples(icu::PluralRules& rules, const icu::UnicodeString& category)
{
    constexpr std::int32_t most = 100;
    std::array<double, most> numbers{};
    UErrorCode status = U_ZERO_ERROR;
    const std::int32_t count = rules.getSamples(category, numbers.data(), most, status);
    return U_SUCCESS(status)
               ? std::vector<double>(numbers.begin(), numbers.begin() + std::min(count, most))
               : std::vector<double>();
}

// Whether a count is likely to be of the category. "many" is for fractions in Czech, and for whole
// millions in French: texts may use "other" there, and ICU has not always had the latter.
bool isCounted(const std::vector<double>& numbers)
{
    constexpr double million = 1e6;
    return std::any_of(numbers.begin(), numbers.end(), [](double number) {
        return number < million && number == std::floor(number);
    });
}

} // namespace

PluralForms::PluralForms(const std::string& locale, UPluralType type) : m_Locale(locale)
{
    UErrorCode status = U_ZERO_ERROR;
    const std::unique_ptr<icu::PluralRules> rules(
        icu::PluralRules::forLocale(icu::Locale(locale.c_str()), type, status));
    require(status, locale);
    const std::unique_ptr<icu::StringEnumeration> keywords(rules->getKeywords(status));
    require(status, locale);
    for (const icu::UnicodeString* keyword = keywords->snext(status); keyword != nullptr;
         keyword = keywords->snext(status)) {
        const std::string category = utf8(*keyword);
        m_Categories.insert(category);
        std::vector<double> numbers = samples(*rules, *keyword);
        if (isCounted(numbers)) {
            m_Needed.emplace(category, std::move(numbers));
        }
    }
    require(status, locale);
}

std::string PluralForms::keywordFault(const std::string& keyword, const std::string& plural) const
{
    if (m_Categories.count(keyword) > 0) {
        return {};
    }
    const bool isCategory =
        std::find(kCategories.begin(), kCategories.end(), keyword) != kCategories.end();
    return "has the plural branch '" + keyword + "' of " + plural +
           (isCategory ? ", which no number of " + m_Locale + " takes: remove it; "
                       : ", which is no category: correct it; ") +
           m_Locale + " has: " + listed(m_Categories);
}

// A category needs no branch if all of its numbers have exact ones, as =1 has for "one" of English.
std::set<std::string> PluralForms::missing(const std::vector<Branch>& branches) const
{
    std::set<std::string> missing;
    for (const auto& [category, numbers] : m_Needed) {
        const bool found = std::any_of(
            branches.begin(), branches.end(),
            [&category = category](const Branch& branch) { return branch.keyword == category; });
        const bool exact = std::all_of(numbers.begin(), numbers.end(), [&branches](double number) {
            return std::any_of(branches.begin(), branches.end(), [number](const Branch& branch) {
                return branch.exact && branch.value == number;
            });
        });
        if (!found && !exact) {
            missing.insert(category);
        }
    }
    return missing;
}

std::vector<std::string> PluralForms::faults(const Argument& plural) const
{
    const std::string name = "{" + plural.name + "}";
    std::vector<std::string> faults;
    for (const Branch& branch : plural.branches) {
        std::string fault = branch.exact ? std::string() : keywordFault(branch.keyword, name);
        if (!fault.empty()) {
            faults.push_back(std::move(fault));
        }
    }
    const std::set<std::string> lacking = missing(plural.branches);
    if (!lacking.empty()) {
        faults.push_back("lacks plural branches of " + name + " that " + m_Locale + " needs: add " +
                         listed(lacking));
    }
    return faults;
}

} // namespace catalogcheck
