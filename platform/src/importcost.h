// SPDX-License-Identifier: LicenseRef-Tarnix
// How long ACE takes for an import.
#ifndef TARNIX_PLATFORM_IMPORTCOST_H
#define TARNIX_PLATFORM_IMPORTCOST_H

#include <array>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>

namespace tarnix_platform
{

// ACE's maps keep the number of buckets with which they were created: 16 for the values and the
// sub-sections of a section, 1024 for the paths of all sections. They compare a name with those in
// its bucket one after the other, byte by byte, so the time grows with the square of the number of
// names. The unit of the cost is one byte that is compared.
class ImportCost
{
public:
    using Buckets = std::array<std::uint32_t, 16>; // the number of names in each

    struct Section {
        std::uint32_t number{}; // from 1
        std::uint64_t find{};   // the cost of finding the section, when it was last opened
        Buckets values{};
        Buckets sections{};
    };

    // Enters the section and those above it; the parts of the path are separated by backslashes.
    Section& open(const std::string& path);

    // A value that is set in the section.
    void addValue(Section& section, std::string_view name, bool isNew);

    // Steps of another kind, each as expensive as comparing a short name.
    void addSteps(std::uint64_t steps) { m_Cost += steps * kEntry; }

    bool isTooHigh() const;

private:
    static constexpr std::uint64_t kEntry =
        100; // an entry that is visited: it is rarely in the cache

    void findSection(Section& section, Section& parent, const std::string& path,
                     std::string_view name);

    Section m_Root;
    std::map<std::string, Section> m_Sections;
    std::array<std::uint32_t, 1024> m_Paths{};
    std::uint64_t m_Cost{};
};

} // namespace tarnix_platform

#endif
