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

// The last four bits of ACE's hash depend on the last byte only.
std::size_t bucketOf(const char* name, std::size_t length)
{
    return length == 0 ? 0 : (13U * static_cast<unsigned char>(name[length - 1])) % 16;
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
        findSection(section, *parent, prefix, nameAt);
        if (end == std::string::npos) {
            return section;
        }
        parent = &section;
        nameAt = end + 1;
    }
}

void ImportCost::findSection(Section& section, Section& parent, const std::string& path,
                             std::size_t nameAt)
{
    std::uint32_t& paths = m_Paths[hashOf(path.c_str()) % m_Paths.size()];
    section.find = paths * (kEntry + path.size()) + path.size();
    m_Cost += section.find;
    if (section.number != 0) {
        return;
    }
    section.number = static_cast<std::uint32_t>(m_Sections.size());
    m_Cost += section.find; // ACE looks for it once more before it adds it
    ++paths;
    // Each value that is set finds it. The hash reads the path too.
    section.find = paths * (kEntry + path.size()) + path.size();
    const std::size_t length = path.size() - nameAt;
    std::uint32_t& siblings = parent.sections[bucketOf(path.c_str() + nameAt, length)];
    m_Cost += siblings++ * (kEntry + length);
}

void ImportCost::addValue(Section& section, const char* name, std::size_t length, bool isNew)
{
    std::uint32_t& values = section.values[bucketOf(name, length)];
    const std::uint64_t find = values * (kEntry + length);
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
