// SPDX-License-Identifier: LicenseRef-Tarnix
// The names of the values that an import sets in a section, to find those that it sets twice.
#ifndef TARNIX_PLATFORM_IMPORTNAMES_H
#define TARNIX_PLATFORM_IMPORTNAMES_H

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

namespace tarnix_platform
{

// A hash table with open addressing: one for each section, so that those of most sections stay in
// the processor's cache. Names that differ only in case are equal, as for the store.
class ImportNames
{
public:
    // False if the name is there already. The bytes must stay where they are; there are less than
    // 4 GiB. `steps` is increased by the entries that were compared: names can be chosen so that
    // there are many.
    bool insert(std::string_view name, std::uint64_t& steps);

private:
    struct Entry {
        const char* name; // null: an empty entry
        std::uint32_t length;
        std::uint32_t hash;
    };

    std::size_t find(const Entry& wanted, std::uint64_t& steps) const;
    void grow();

    std::vector<Entry> m_Entries; // the size is a power of 2, or 0
    std::size_t m_Count{};
};

} // namespace tarnix_platform

#endif
