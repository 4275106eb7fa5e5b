// SPDX-License-Identifier: LicenseRef-Tarnix
// Which languages ICU knows, and which are the parents of others.
#include "cmnlanguages.h"

#include <unicode/locid.h>
#include <unicode/resbund.h>
#include <unicode/uchar.h>
#include <unicode/uenum.h>
#include <unicode/uloc.h>
#include <unicode/ures.h>

#include <cstdint>
#include <cstring>
#include <functional>
#include <map>
#include <set>
#include <string_view>
#include <vector>

namespace tarnix_cmn_4_4
{
namespace
{

constexpr std::size_t kLongestName = 64; // "zh-Hant-TW.UTF-8@calendar=gregorian" has 35

bool isKnownScript(const char* script)
{
    return *script == '\0' || u_getPropertyValueEnum(UCHAR_SCRIPT, script) != UCHAR_INVALID_CODE;
}

// A region is a country, or an area of three digits such as 419. There may be none.
bool isKnownRegion(const icu::Locale& locale)
{
    const char* const region = locale.getCountry();
    return *locale.getISO3Country() != '\0' ||
           std::string_view(region).find_first_not_of("0123456789") == std::string_view::npos;
}

bool isKnown(const icu::Locale& locale)
{
    return !locale.isBogus() && *locale.getISO3Language() != '\0' &&
           isKnownScript(locale.getScript()) && isKnownRegion(locale);
}

using Names = std::map<std::string, std::string>;

// Of the languages whose parent is not the name without its last part. ICU has no function for it.
// Empty texts for those that have no parent but the root.
Names readParents()
{
    Names parents;
    UErrorCode status = U_ZERO_ERROR;
    const icu::LocalUResourceBundlePointer data(
        ures_openDirect(nullptr, "supplementalData", &status));
    icu::ResourceBundle lists =
        icu::ResourceBundle(data.getAlias(), status).get("parentLocales", status);
    while (U_SUCCESS(status) && lists.hasNext()) {
        const icu::ResourceBundle children = lists.getNext(status);
        const std::string parent =
            std::strcmp(children.getKey(), "root") == 0 ? "" : children.getKey();
        for (std::int32_t i = 0; i < children.getSize(); ++i) {
            std::string child;
            children.getStringEx(i, status).toUTF8String(child);
            parents.emplace(child, parent);
        }
    }
    return parents;
}

// Of all locales that have data, those with an older name for it, as zh_TW, included.
std::set<std::string> readLocales()
{
    std::set<std::string> locales;
    UErrorCode status = U_ZERO_ERROR;
    const icu::LocalUEnumerationPointer names(
        uloc_openAvailableByType(ULOC_AVAILABLE_WITH_LEGACY_ALIASES, &status));
    const char* name = uenum_next(names.getAlias(), nullptr, &status);
    while (name != nullptr) {
        locales.insert(name);
        name = uenum_next(names.getAlias(), nullptr, &status);
    }
    return locales;
}

// de_AT: without variant and keywords.
std::string mainPartsOf(const icu::Locale& locale)
{
    std::string name = locale.getLanguage();
    for (const char* const part : {locale.getScript(), locale.getCountry()}) {
        if (*part != '\0') {
            name.append(1, '_').append(part);
        }
    }
    return name;
}

std::string findLanguageAndScript(const std::string& name)
{
    icu::Locale locale(name.c_str());
    if (*locale.getLanguage() == '\0') {
        return name;
    }
    UErrorCode status = U_ZERO_ERROR;
    locale.addLikelySubtags(status); // unchanged if it is not known
    std::string found = locale.getLanguage();
    if (*locale.getScript() != '\0') {
        found.append(1, '_').append(locale.getScript());
    }
    return found;
}

} // namespace

std::string knownLanguage(const std::string& name)
{
    if (name == "root") {
        return name;
    }
    if (name.size() > kLongestName || name.find_first_of("/\\") != std::string::npos ||
        name.find('\0') != std::string::npos) {
        return {};
    }
    const icu::Locale locale(name.c_str());
    return isKnown(locale) ? mainPartsOf(locale) : std::string();
}

std::string parentLanguage(const std::string& name)
{
    static const Names parents = readParents();
    const auto listed = parents.find(name);
    if (listed != parents.end()) {
        return listed->second;
    }
    const std::size_t end = name.rfind('_');
    if (end == std::string::npos) {
        return {};
    }
    std::string shorter = name.substr(0, end);
    const std::string own = languageAndScript(name);
    const std::string usual = languageAndScript(shorter);
    if (own == usual || usual.find('_') == std::string::npos) { // the latter: ICU knows no script
        return shorter;
    }
    const bool hasScript = *icu::Locale(name.c_str()).getScript() != '\0';
    return hasScript ? std::string() : own + name.substr(end);
}

// ICU takes some microseconds for it, so that names are remembered, each until one of the same hash
// takes its place.
std::string languageAndScript(const std::string& name)
{
    struct Entry {
        std::string name;
        std::string found;
    };
    thread_local std::vector<Entry> remembered(UINT8_MAX);
    Entry& entry = remembered[std::hash<std::string>()(name) % remembered.size()];
    if (entry.name != name) {
        entry = {name, findLanguageAndScript(name)};
    }
    return entry.found;
}

bool hasConventions(const std::string& name)
{
    static const std::set<std::string> locales = readLocales();
    std::string parent = mainPartsOf(icu::Locale(name.c_str()));
    while (!parent.empty() && locales.count(parent) == 0) {
        parent = parentLanguage(parent);
    }
    return !parent.empty();
}

} // namespace tarnix_cmn_4_4
