#include "rootcompare.h"

#include "catalog.h"
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
                add("quotes the brace in " + quoted +
                    ", and root has no such brace: remove the brace, or its apostrophes");
            }
        }
    }

private:
    void add(const std::string& what) { m_Findings.add(m_File, m_Id, what); }

    void comparePlaceholders(const Message& own, const Message& root)
    {
        const std::set<int> wanted = placeholdersOf(root);
        const std::set<int> found = placeholdersOf(own);
        if (wanted != found) {
            add("has other placeholders than root:" + listedPlaceholders(found) + " instead of" +
                listedPlaceholders(wanted) + ": use those of root");
        }
    }

    // A value that is not of the type makes the whole message empty.
    void compareNeeds(const Message& own, const Message& root)
    {
        const std::set<int> known = placeholdersOf(root);
        std::map<int, std::set<Need>> allowed = needsOf(root);
        for (const auto& [number, needs] : needsOf(own)) {
            const std::set<Need>& ofRoot = allowed[number];
            if (known.count(number) > 0 && needs != ofRoot && needs.size() == 1) {
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

    // Branches of plurals are compared with each other, without the root.
    void compareBranches(const Message& own, const Message& root)
    {
        const std::set<int> always = alwaysShown(root);
        forEachArgument(own, [this, &always](const Argument& argument) {
            if (argument.type != UMSGPAT_ARG_TYPE_SELECT) {
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

// Whether a parent language (de for de_CH) has the text.
bool inherited(const CatalogPatterns& catalog, const std::string& name, const std::string& id)
{
    for (std::size_t end = name.rfind('_'); end != std::string::npos && end > 0;
         end = name.rfind('_', end - 1)) {
        const auto parent = catalog.find(name.substr(0, end));
        if (parent != catalog.end() && parent->second.count(id) > 0) {
            return true;
        }
    }
    return false;
}

} // namespace

void compareWithRoot(const CatalogPatterns& catalog, const std::string& name,
                     const std::string& file, Findings& findings)
{
    const Patterns& root = catalog.at(kRoot);
    const Patterns& language = catalog.at(name);
    for (const auto& [id, pattern] : root) {
        const auto own = language.find(id);
        if (own != language.end()) {
            if (own->second.fault.empty() && pattern.fault.empty()) {
                TextComparison(file, id, findings).compare(own->second, pattern);
            }
        } else if (!inherited(catalog, name, id)) {
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
