// SPDX-License-Identifier: LicenseRef-Tarnix
#include "localename.h"

#include "catalog.h"

#include <unicode/locid.h>
#include <unicode/region.h>
#include <unicode/uloc.h>
#include <unicode/uscript.h>

#include <algorithm>
#include <cstring>

namespace catalogcheck
{
namespace
{

bool isLanguage(const char* code)
{
    for (const char* const* known = uloc_getISOLanguages(); *known != nullptr; ++known) {
        if (std::strcmp(*known, code) == 0) {
            return true;
        }
    }
    return false;
}

// The region's current code, such as GB for UK. Empty if there is no such region.
std::string regionOf(const std::string& code)
{
    if (code == "XA" || code == "XB") {
        return code; // of the pseudo-locales
    }
    UErrorCode status = U_ZERO_ERROR;
    const icu::Region* region = icu::Region::getInstance(code.c_str(), status);
    return U_SUCCESS(status) ? region->getRegionCode() : std::string();
}

bool isScript(const char* code)
{
    UErrorCode status = U_ZERO_ERROR;
    UScriptCode script = USCRIPT_INVALID_CODE;
    uscript_getCode(code, &script, 1, &status);
    return U_SUCCESS(status) && script != USCRIPT_INVALID_CODE;
}

// The language that was probably meant by an unknown code: the current code of the same language,
// or the language of the region with this code. Empty if neither is known.
std::string languageMeant(const std::string& code)
{
    std::string current = icu::Locale::createCanonical(code.c_str()).getLanguage();
    if (current != code && isLanguage(current.c_str())) {
        return current;
    }
    icu::Locale region("und", code.c_str());
    UErrorCode status = U_ZERO_ERROR;
    if (regionOf(region.getCountry()).empty()) {
        return {};
    }
    region.addLikelySubtags(status);
    return U_SUCCESS(status) ? region.getLanguage() : std::string();
}

std::string unknownLanguage(const std::string& code)
{
    const std::string meant = languageMeant(code);
    return "no language has the code '" + code + "': " +
           (meant.empty() ? "name the file and its table after the language, such as de or pt_BR"
                          : "rename the file and its table to " + meant);
}

std::string unknownRegion(const icu::Locale& locale)
{
    const std::string code = locale.getCountry();
    const std::string current = regionOf(code);
    return "no region has the code '" + code + "': " +
           (current.empty() ? "use a code such as DE in de_DE, or none"
                            : "its code is " + current + "; rename the file and its table");
}

std::string noLocale(const std::string& meant)
{
    return "no locale has this name: rename the file and its table to " + meant;
}

// The name of a file for the locale: without keywords, and without the "@latin" of other systems,
// which ICU keeps.
std::string baseName(const icu::Locale& locale)
{
    std::string name = locale.getBaseName();
    name.resize(std::min(name.find('@'), name.size()));
    name.resize(name.find_last_not_of('_') + 1);
    return name;
}

} // namespace

std::string localeNameFault(const std::string& name)
{
    if (name == kRoot) {
        return {};
    }
    const icu::Locale locale(name.c_str());
    if (locale.isBogus() == 0 && *locale.getLanguage() == '\0') { // such as ROOT and und
        return noLocale(kRoot);
    }
    if (!isLanguage(locale.getLanguage())) {
        return unknownLanguage(locale.isBogus() != 0 ? name : locale.getLanguage());
    }
    if (*locale.getCountry() != '\0' && regionOf(locale.getCountry()) != locale.getCountry()) {
        return unknownRegion(locale);
    }
    if (*locale.getScript() != '\0' && !isScript(locale.getScript())) {
        return std::string("no script has the code '") + locale.getScript() +
               "': use a code such as Latn in sr_Latn, or none";
    }
    const std::string base = baseName(locale);
    return name == base ? std::string() : noLocale(base);
}

} // namespace catalogcheck
