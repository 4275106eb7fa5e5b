// SPDX-License-Identifier: LicenseRef-Tarnix
#include "parents.h"

#include "patterntree.h"

#include <algorithm>

namespace catalogcheck
{
namespace
{

bool namesParent(const Catalog& catalog, const std::string& name)
{
    const auto language = catalog.find(name);
    return language != catalog.end() && !language->second.parent.isEmpty();
}

// Empty if there is none.
std::string parentOf(const Catalog& catalog, const std::string& name)
{
    if (namesParent(catalog, name)) {
        return utf8(catalog.at(name).parent);
    }
    const std::size_t end = name.rfind('_');
    return end == std::string::npos ? std::string() : name.substr(0, end);
}

bool contains(const std::vector<std::string>& names, const std::string& name)
{
    return std::find(names.begin(), names.end(), name) != names.end();
}

} // namespace

std::vector<std::string> withParents(const Catalog& catalog, const std::string& name)
{
    std::vector<std::string> names;
    for (std::string next = name; !next.empty() && next != kRoot && !contains(names, next);
         next = parentOf(catalog, next)) {
        names.push_back(next);
    }
    return names;
}

// After nb and nn ICU looks for the parent again and again, whether they have a bundle or not.
std::string openingFault(const Catalog& catalog, const std::string& name)
{
    const std::vector<std::string> names = withParents(catalog, name);
    for (const char* const norwegian : {"nb", "nn"}) {
        if (contains(names, norwegian) && !namesParent(catalog, norwegian)) {
            return "ICU does not return from opening it: rename the file and its table to no, or "
                   "add \"%%Parent\" { \"no\" } to the table" +
                   (name == norwegian ? "" : std::string(", or to that of ") + norwegian);
        }
    }
    return {};
}

} // namespace catalogcheck
