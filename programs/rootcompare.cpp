// SPDX-License-Identifier: LicenseRef-Tarnix
#include "rootcompare.h"

#include "parents.h"
#include "placeholders.h"

#include <algorithm>

namespace catalogcheck
{
namespace
{

std::string listedPlaceholders(const std::set<int>& numbers)
{
    std::string text;
    for (const int number : numbers) {
        text += " " + placeholder(number);
    }
    return text.empty() ? " none" : text;
}

// One text and the same of the root. Both are valid patterns.
class TextComparison
{
public:
    TextComparison(const std::string& file, const std::string& id, Findings& findings)
        : m_File(file), m_Id(id), m_Findings(findings)
    {
    }

    void compare(const Pattern& own, const Pattern& root)
    {
        if (std::none_of(own.quoted.begin(), own.quoted.end(), quotesPlaceholder)) {
            comparePlaceholders(own.message, root.message); // otherwise that is the reason
        }
        compareNeeds(own.message, root.message);
        compareKeywords(own.message, root.message);
        compareBranches(own.message, root.message);
        for (const std::string& quoted : own.quoted) {
            if (root.quoted.empty() && !quotesPlaceholder(quoted)) {
                const bool number = quoted == kQuotedNumber;
                add(std::string("quotes the ") + (number ? "number sign" : "brace") + " in " +
                    quoted + ", and root has no such " + (number ? "sign" : "brace") +
                    ": remove the " + (number ? "apostrophes" : "brace, or its apostrophes"));
            }
        }
    }

private:
    void add(const std::string& what) { m_Findings.add(m_File, m_Id, what); }

    // What only selects a branch in root, a language may leave out.
    void comparePlaceholders(const Message& own, const Message& root)
    {
        const std::set<int> wanted = placeholdersOf(root);
        const std::set<int> needed = shownPlaceholders(root);
        const std::set<int> found = placeholdersOf(own);
        if (!std::includes(wanted.begin(), wanted.end(), found.begin(), found.end()) ||
            !std::includes(found.begin(), found.end(), needed.begin(), needed.end())) {
            add("has other placeholders than root:" + listedPlaceholders(found) + " instead of" +
                listedPlaceholders(wanted) + ": use those of root");
        }
    }

    // A value that is not of the type makes the whole message empty. A text may be a word.
    void compareNeeds(const Message& own, const Message& root)
    {
        const std::set<int> known = placeholdersOf(root);
        std::map<int, std::set<Need>> allowed = needsOf(root);
        for (const auto& [number, needs] : needsOf(own)) {
            const std::set<Need>& ofRoot = allowed[number];
            const bool word = ofRoot.empty() && needs == std::set<Need>{Need::word};
            if (known.count(number) > 0 && needs != ofRoot && needs.size() == 1 && !word) {
                add("uses " + placeholder(number) + " as " + described(needs) + ", and root as " +
                    described(ofRoot) + ": use the type of root, or change root");
            }
        }
    }

    void compareKeywords(const Message& own, const Message& root)
    {
        const std::map<int, std::set<std::string>> known = selectKeywords(root);
        for (const auto& [number, keywords] : selectKeywords(own)) {
            const auto ofRoot = known.find(number);
            for (const std::string& keyword : keywords) {
                if (ofRoot != known.end() && ofRoot->second.count(keyword) == 0) {
                    add("has the select branch '" + keyword + "' of " + placeholder(number) +
                        ", which root lacks: do not translate keywords; root has: " +
                        listed(ofRoot->second));
                }
            }
        }
    }

    void compareBranches(const Message& own, const Message& root)
    {
        const std::set<int> always = alwaysShown(root);
        forEachArgument(own, [this, &always](const Argument& argument) {
            if (argument.type == UMSGPAT_ARG_TYPE_CHOICE) {
                return;
            }
            for (const auto& [number, keyword] : partlyShown(argument)) {
                if (always.count(number) > 0) {
                    add("shows " + placeholder(number) + " in some branches of {" + argument.name +
                        "} only, and root in all: add it to '" + keyword + "'");
                }
            }
        });
    }

    const std::string& m_File;
    const std::string& m_Id;
    Findings& m_Findings;
};

// Whether one of the languages (de_CH and its parent de) has the text.
bool anyHas(const std::vector<std::string>& languages, const CatalogPatterns& patterns,
            const std::string& id)
{
    return std::any_of(languages.begin(), languages.end(), [&](const std::string& name) {
        const auto language = patterns.find(name);
        return language != patterns.end() && language->second.count(id) > 0;
    });
}

} // namespace

void checkRoot(const Catalog& catalog, const CatalogPatterns& patterns, Findings& findings)
{
    const std::string& file = catalog.at(kRoot).file;
    for (const auto& entry : patterns.at(kRoot)) {
        forEachArgument(entry.second.message, [&](const Argument& argument) {
            if (!isPlural(argument)) {
                return;
            }
            for (const auto& [number, keyword] : partlyShown(argument)) {
                if (!replacesNumber(argument, number)) {
                    findings.add(file, entry.first,
                                 "shows " + placeholder(number) + " in some branches of {" +
                                     argument.name + "} only: add it to '" + keyword + "'");
                }
            }
        });
    }
}

void compareWithRoot(const Catalog& catalog, const CatalogPatterns& patterns,
                     const std::string& name, Findings& findings)
{
    const Patterns& root = patterns.at(kRoot);
    const Patterns& language = patterns.at(name);
    const std::string& file = catalog.at(name).file;
    const std::vector<std::string> languages = withParents(catalog, name);
    for (const auto& [id, pattern] : root) {
        const auto own = language.find(id);
        if (own != language.end()) {
            if (own->second.fault.empty() && pattern.fault.empty()) {
                TextComparison(file, id, findings).compare(own->second, pattern);
            }
        } else if (!anyHas(languages, patterns, id)) {
            findings.add(file, id, "is missing: translate the text of root");
        }
    }
    for (const auto& entry : language) {
        if (root.count(entry.first) == 0) {
            findings.add(file, entry.first,
                         "exists only in this language: correct the id, add it to root, or remove "
                         "it");
        }
    }
}

} // namespace catalogcheck
