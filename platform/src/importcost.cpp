// SPDX-License-Identifier: LicenseRef-Tarnix
// How long ACE takes for an import.
#include "importcost.h"

#include <ace/Configuration.h>

namespace tarnix_platform
{

namespace
{

// A hundred thousand values in one section, whose names have up to 30 bytes and end in a digit.
constexpr std::uint64_t kMaxCost = 131'000'000'000;

std::size_t hashOf(const char* name)
{
    return static_cast<std::size_t>(ACE_Configuration_ExtId(name).hash());
}

// ACE's bucket depends on the last four bits of the last byte only, as if an empty name had a zero
// byte. It has another number there, but the same names are in it.
std::uint32_t& bucketOf(std::string_view name, ImportCost::Buckets& buckets)
{
    return buckets[static_cast<unsigned char>(name.empty() ? '\0' : name.back()) % buckets.size()];
}

} // namespace

ImportCost::Section& ImportCost::open(const std::string& path)
{
    Section* parent = &m_Root;
    std::size_t nameAt = 0;
    for (;;) {
        const std::size_t end = path.find('\\', nameAt);
        const std::string prefix = path.substr(0, end);
        Section& section = m_Sections[prefix];
        findSection(section, *parent, prefix, std::string_view(prefix).substr(nameAt));
        if (end == std::string::npos) {
            return section;
        }
        parent = &section;
        nameAt = end + 1;
    }
}

void ImportCost::findSection(Section& section, Section& parent, const std::string& path,
                             std::string_view name)
{
    std::uint32_t& paths = m_Paths[hashOf(path.c_str()) % m_Paths.size()];
    // The hash reads the path too.
    const auto find = [&] { return paths * (kEntry + path.size()) + path.size(); };
    section.find = find();
    m_Cost += section.find;
    if (section.number != 0) {
        return;
    }
    section.number = static_cast<std::uint32_t>(m_Sections.size());
    m_Cost += section.find; // ACE looks for it once more before it adds it
    ++paths;
    section.find = find(); // each value that is set finds it
    m_Cost += bucketOf(name, parent.sections)++ * (kEntry + name.size());
}

void ImportCost::addValue(Section& section, std::string_view name, bool isNew)
{
    std::uint32_t& values = bucketOf(name, section.values);
    const std::uint64_t find = values * (kEntry + name.size());
    m_Cost += section.find + find;
    if (isNew) {
        m_Cost += find; // as above
        ++values;
    }
}

bool ImportCost::isTooHigh() const
{
    return m_Cost > kMaxCost;
}

} // namespace tarnix_platform
