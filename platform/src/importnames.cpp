// SPDX-License-Identifier: LicenseRef-Tarnix
// The names of the values that an import sets in a section.
#include "importnames.h"

#include <strings.h>

#include <algorithm>
#include <cstring>

namespace tarnix_platform
{

namespace
{

// Equal for names that differ only in the case of ASCII letters.
std::uint32_t hashOf(std::string_view name)
{
    constexpr std::uint64_t factor = 0x9E3779B97F4A7C15;
    constexpr std::uint64_t lowerCase = 0x2020202020202020;
    std::uint64_t hash = name.size();
    while (!name.empty()) {
        std::uint64_t piece{};
        const std::size_t length = std::min(name.size(), sizeof piece);
        std::memcpy(&piece, name.data(), length);
        name.remove_prefix(length);
        hash = (hash ^ (piece | lowerCase)) * factor;
        hash ^= hash >> 32;
    }
    return static_cast<std::uint32_t>((hash * factor) >> 32);
}

} // namespace

bool ImportNames::insert(std::string_view name, std::uint64_t& steps)
{
    if (8 * m_Count >= 5 * m_Entries.size()) {
        grow();
    }
    const Entry wanted{name.data(), static_cast<std::uint32_t>(name.size()), hashOf(name)};
    Entry& entry = m_Entries[find(wanted, steps)];
    if (entry.name != nullptr) {
        return false;
    }
    entry = wanted;
    ++m_Count;
    return true;
}

// The entry of that name, or the empty one that it would get.
std::size_t ImportNames::find(const Entry& wanted, std::uint64_t& steps) const
{
    const std::size_t mask = m_Entries.size() - 1;
    for (std::size_t at = wanted.hash & mask;; at = (at + 1) & mask) {
        const Entry& entry = m_Entries[at];
        if (entry.name == nullptr || (entry.hash == wanted.hash && entry.length == wanted.length &&
                                      ::strncasecmp(entry.name, wanted.name, wanted.length) == 0)) {
            return at;
        }
        ++steps;
    }
}

void ImportNames::grow()
{
    constexpr std::size_t firstSize = 64;
    std::vector<Entry> old(m_Entries.empty() ? firstSize : 2 * m_Entries.size());
    old.swap(m_Entries);
    std::uint64_t ignored{};
    for (const Entry& entry : old) {
        if (entry.name != nullptr) {
            m_Entries[find(entry, ignored)] = entry;
        }
    }
}

} // namespace tarnix_platform
