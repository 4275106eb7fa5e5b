// SPDX-License-Identifier: LicenseRef-Tarnix
// Sections of a store by their spelling.
#include "platform_settings.h"

#include <strings.h>

#include <algorithm>

namespace tarnix_platform
{

namespace
{

constexpr int kFailed = -1;

// Gives access to what ACE lets only derived classes read: the path of a key.
class KeyReader : public ACE_Configuration_Heap
{
public:
    // Null for a key that opens nothing.
    static const char* pathOf(ACE_Configuration& heap, const ACE_Configuration_Section_Key& key)
    {
        constexpr auto getKey = &KeyReader::get_internal_key;
        const auto* const section =
            dynamic_cast<ACE_Configuration_Section_Key_Heap*>((heap.*getKey)(key));
        return section != nullptr ? section->path_ : nullptr;
    }
};

// A key of its own: whoever enumerates the sub-sections of a key moves the position that ACE keeps
// in it, and the store's key of the root is the caller's too.
ACE_Configuration_Section_Key rootKey()
{
    return ACE_Configuration_Section_Key(new ACE_Configuration_Section_Key_Heap("")); // counted
}

std::string joined(const std::string& path, const std::string& part)
{
    return path.empty() ? part : path + '\\' + part;
}

// Calls take(part) for each part of the path, as long as it returns true.
template <class Take>
bool eachPart(const std::string& path, Take take)
{
    for (std::size_t at = 0; at < path.size();) {
        const std::size_t end = std::min(path.find('\\', at), path.size());
        if (!take(path.substr(at, end - at))) {
            return false;
        }
        at = end + 1;
    }
    return true;
}

} // namespace

bool TxSectionNames::IgnoreCase::operator()(const std::string& left, const std::string& right) const
{
    return ::strcasecmp(left.c_str(), right.c_str()) < 0; // as the store compares
}

void TxSectionNames::respell(std::string& path)
{
    const auto known = m_Names.find(path);
    if (known != m_Names.end()) {
        path = known->first;
        return;
    }
    std::string spelled;
    eachPart(path, [&](const std::string& part) {
        listOnce(spelled);
        spelled = m_Names.try_emplace(joined(spelled, part), false).first->first;
        return true;
    });
    path = spelled;
}

int TxSectionNames::open(const ACE_Configuration_Section_Key& base, const std::string& path,
                         bool create, ACE_Configuration_Section_Key& result)
{
    const char* const start = KeyReader::pathOf(m_Heap, base);
    if (start == nullptr) {
        return kFailed;
    }
    const std::string basePath = start;
    const std::string whole = joined(basePath, path);
    // No file could have the section.
    if (std::count_if(whole.begin(), whole.end(), isSeparator) >= kMaxLevels) {
        return kFailed;
    }
    ACE_Configuration_Section_Key at = base;
    const auto known = m_Names.find(whole);
    // ACE refuses a long path.
    if (known != m_Names.end() &&
        m_Heap.open_section(m_Heap.root_section(), known->first.c_str(), false, at) == 0) {
        return take(at, known->first, result);
    }
    std::string opened;
    at = rootKey();
    const auto openPart = [&](const std::string& part) { return step(at, opened, part, false); };
    const auto makePart = [&](const std::string& part) { return step(at, opened, part, create); };
    if (!eachPart(basePath, openPart) || !eachPart(path, makePart)) {
        return kFailed;
    }
    return take(at, opened, result);
}

int TxSectionNames::remove(const std::string& path, bool recursive)
{
    ACE_Configuration_Section_Key key = rootKey();
    ACE_Configuration_Section_Key parent = key;
    if (open(key, path, false, key) != 0) {
        return kFailed;
    }
    // The store removes only a sub-section of the key, not one further down.
    const std::string spelled = KeyReader::pathOf(m_Heap, key);
    const std::size_t end = spelled.rfind('\\');
    const std::string parentPath = end == std::string::npos ? "" : spelled.substr(0, end);
    if (!parentPath.empty() && open(parent, parentPath, false, parent) != 0) {
        return kFailed;
    }
    const std::string part = spelled.substr(end + 1); // npos + 1 is 0
    return m_Heap.remove_section(parent, part.c_str(), recursive);
}

// ACE opens another section, mostly the root, if an allocation for the path fails.
int TxSectionNames::take(const ACE_Configuration_Section_Key& opened, const std::string& path,
                         ACE_Configuration_Section_Key& result)
{
    const char* const found = KeyReader::pathOf(m_Heap, opened);
    if (found == nullptr || path != found) {
        return kFailed;
    }
    result = opened;
    return 0;
}

// Opens the sub-section `part` of the section `at`, whose path is `path`; both move to it.
bool TxSectionNames::step(ACE_Configuration_Section_Key& at, std::string& path,
                          const std::string& part, bool create)
{
    const std::string child = joined(path, part);
    const std::size_t partAt = child.size() - part.size();
    listOnce(path);
    if (openKnown(at, path, child, partAt)) {
        return true;
    }
    // ACE creates it only if there is none in another case, or if one was created past this object
    // and ACE has found it by chance.
    ACE_Configuration_Section_Key found;
    const bool exists = m_Heap.open_section(at, part.c_str(), false, found) == 0;
    if (!exists && !create) {
        return false;
    }
    if (!exists && m_Heap.open_section(at, part.c_str(), true, found) == 0) {
        m_Names.emplace(child, true);
        at = found;
        path = child;
        return true;
    }
    list(at, path);
    return openKnown(at, path, child, partAt);
}

bool TxSectionNames::openKnown(ACE_Configuration_Section_Key& at, std::string& path,
                               const std::string& child, std::size_t partAt)
{
    const auto known = m_Names.find(child);
    if (known == m_Names.end()) {
        return false;
    }
    ACE_Configuration_Section_Key found;
    if (m_Heap.open_section(at, known->first.c_str() + partAt, false, found) != 0) {
        m_Names.erase(known); // it has been removed
        return false;
    }
    at = found;
    path = known->first;
    return true;
}

// Enters the sub-sections of a section.
void TxSectionNames::list(const ACE_Configuration_Section_Key& section, const std::string& path)
{
    ACE_TString name;
    for (int i = 0; m_Heap.enumerate_sections(section, i, name) == 0; ++i) {
        m_Names.try_emplace(joined(path, name.c_str()), false);
    }
}

void TxSectionNames::listOnce(const std::string& path)
{
    bool& isListed = m_Names[path];
    if (isListed) {
        return;
    }
    isListed = true;
    ACE_Configuration_Section_Key at = rootKey();
    const bool exists = eachPart(path, [&](const std::string& part) {
        ACE_Configuration_Section_Key found;
        const bool opened = m_Heap.open_section(at, part.c_str(), false, found) == 0;
        at = opened ? found : at;
        return opened;
    });
    if (exists) {
        list(at, path);
    }
}

} // namespace tarnix_platform
