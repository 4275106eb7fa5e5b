// The names of the values that an import sets, to find those that it sets twice.
#ifndef TARNIX_PLATFORM_IMPORTNAMES_H
#define TARNIX_PLATFORM_IMPORTNAMES_H

#include "importline.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace tarnix_platform
{

// A hash table with open addressing. Names that differ only in case are equal, as for the store.
class ImportNames
{
public:
    // False if the section has the name already. The name has at most kMaxNameLength bytes, which
    // must stay where they are. `steps` is increased by the entries that were compared: names can
    // be chosen so that there are many.
    bool insert(std::uint32_t section, const char* name, std::size_t length, std::uint64_t& steps);

private:
    struct Entry {
        const char* name;
        std::uint32_t hash;
        std::uint32_t section : 24; // 0: an empty entry
        std::uint32_t length : 8;
    };

    std::size_t find(const Entry& wanted, std::uint64_t& steps) const;
    void grow();

    std::vector<Entry> m_Entries = std::vector<Entry>(256); // the size is a power of 2
    std::size_t m_Count = 0;

    static_assert(kMaxNameLength < 1U << 8);
};

} // namespace tarnix_platform

#endif
