// SPDX-License-Identifier: LicenseRef-Tarnix
#include "placeholders.h"

#include <algorithm>
#include <iterator>

namespace catalogcheck
{
namespace
{

std::set<int> common(const std::set<int>& first, const std::set<int>& second)
{
    std::set<int> both;
    std::set_intersection(first.begin(), first.end(), second.begin(), second.end(),
                          std::inserter(both, both.end()));
    return both;
}

// A select shows none of its argument, and a plural only a #.
bool isShown(const Argument& argument)
{
    return argument.type == UMSGPAT_ARG_TYPE_NONE || argument.type == UMSGPAT_ARG_TYPE_SIMPLE ||
           std::any_of(argument.branches.begin(), argument.branches.end(),
                       [](const Branch& branch) { return branch.message.hasNumber; });
}

std::set<int> inAllBranches(const Argument& argument)
{
    std::set<int> shown;
    bool first = true;
    for (const Branch& branch : argument.branches) {
        if (!branch.exact) {
            const std::set<int> own = alwaysShown(branch.message);
            shown = first ? own : common(shown, own);
            first = false;
        }
    }
    return shown;
}

} // namespace

std::set<int> placeholdersOf(const Message& message)
{
    std::set<int> numbers;
    forEachArgument(message, [&numbers](const Argument& argument) {
        if (argument.number >= 0) {
            numbers.insert(argument.number);
        }
    });
    return numbers;
}

std::set<int> shownPlaceholders(const Message& message)
{
    std::set<int> numbers;
    forEachArgument(message, [&numbers](const Argument& argument) {
        if (isShown(argument)) {
            numbers.insert(argument.number);
        }
    });
    return numbers;
}

std::set<int> alwaysShown(const Message& message)
{
    std::set<int> shown;
    for (const Argument& argument : message.arguments) {
        if (isShown(argument)) {
            shown.insert(argument.number);
        }
        shown.merge(inAllBranches(argument));
    }
    return shown;
}

std::map<int, std::string> partlyShown(const Argument& argument)
{
    std::set<int> shown;
    for (const Branch& branch : argument.branches) {
        if (!branch.exact) {
            shown.merge(placeholdersOf(branch.message));
        }
    }
    shown.erase(argument.number);
    std::map<int, std::string> partly;
    for (const Branch& branch : argument.branches) {
        const std::set<int> own = placeholdersOf(branch.message);
        for (const int number : shown) {
            if (!branch.exact && own.count(number) == 0) {
                partly.emplace(number, branch.keyword);
            }
        }
    }
    return partly;
}

bool replacesNumber(const Argument& plural, int number)
{
    return std::none_of(plural.branches.begin(), plural.branches.end(), [&](const Branch& branch) {
        const std::set<int> shown = placeholdersOf(branch.message);
        return !branch.exact && shown.count(number) > 0 &&
               (branch.message.hasNumber || shown.count(plural.number) > 0);
    });
}

std::map<int, std::set<Need>> needsOf(const Message& message)
{
    std::map<int, std::set<Need>> needs;
    forEachArgument(message, [&needs](const Argument& argument) {
        if (argument.need != Need::text) {
            needs[argument.number].insert(argument.need);
        }
    });
    return needs;
}

std::string described(const std::set<Need>& needs)
{
    std::string text;
    for (const Need need : needs) {
        text += text.empty() ? "" : " and ";
        text += need == Need::number ? "a number" : need == Need::date ? "a date" : "a word";
    }
    return text.empty() ? "a text" : text;
}

std::map<int, std::set<std::string>> selectKeywords(const Message& message)
{
    std::map<int, std::set<std::string>> keywords;
    forEachArgument(message, [&keywords](const Argument& argument) {
        if (argument.type == UMSGPAT_ARG_TYPE_SELECT) {
            for (const Branch& branch : argument.branches) {
                keywords[argument.number].insert(branch.keyword);
            }
        }
    });
    return keywords;
}

} // namespace catalogcheck
