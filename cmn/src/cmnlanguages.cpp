// Which names of languages ICU knows.
#include "cmnlanguages.h"

#include <unicode/locid.h>
#include <unicode/uchar.h>
#include <unicode/uloc.h>

#include <algorithm>
#include <cstring>

namespace tarnix_cmn_4_4
{
namespace
{

constexpr std::size_t kLongestName = 64; // "zh-Hant-TW.UTF-8@calendar=gregorian" has 35

bool isKnownScript(const char* script)
{
    return *script == '\0' || u_getPropertyValueEnum(UCHAR_SCRIPT, script) != UCHAR_INVALID_CODE;
}

// A region is a country, or an area of three digits such as 419.
bool isKnownRegion(const icu::Locale& locale)
{
    const char* const region = locale.getCountry();
    return *region == '\0' || *locale.getISO3Country() != '\0' ||
           std::all_of(region, region + std::strlen(region),
                       [](char unit) { return unit >= '0' && unit <= '9'; });
}

bool isKnown(const icu::Locale& locale)
{
    return !locale.isBogus() && *locale.getISO3Language() != '\0' &&
           isKnownScript(locale.getScript()) && isKnownRegion(locale);
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
    if (!isKnown(locale)) {
        return {};
    }
    std::string known = locale.getLanguage();
    for (const char* const part : {locale.getScript(), locale.getCountry()}) {
        if (*part != '\0') {
            known.append(1, '_').append(part);
        }
    }
    return known;
}

std::string parentLanguage(const std::string& name)
{
    const std::size_t end = name.rfind('_');
    return end == std::string::npos ? std::string() : name.substr(0, end);
}

} // namespace tarnix_cmn_4_4
