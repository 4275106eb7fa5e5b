// SPDX-License-Identifier: LicenseRef-Tarnix
// Names of languages, also those that come from untrusted input, and what ICU knows of them.
#ifndef TARNIX_CMNLANGUAGES_H
#define TARNIX_CMNLANGUAGES_H

#include <string>

namespace tarnix_cmn_4_4
{

// The name without variant and keywords, in ICU's form: de_AT for "DE-at@currency=EUR". Empty for a
// name with a language, a script or a region that ICU does not know.
std::string knownLanguage(const std::string& name);

// The language whose texts a reader of a known language also reads: de for de_AT, es_419 for es_MX,
// zh_Hant_TW for zh_TW. Empty for a language that has none, as for one in a script of its own:
// zh_Hant, sr_Latn.
std::string parentLanguage(const std::string& name);

// zh_Hant for zh_TW, de_Latn for de_AT. The name itself if it has no language, as "root".
std::string languageAndScript(const std::string& name);

// Whether ICU has numbers, dates and plural forms for the locale or a parent of it. For others it
// would use those of its default locale.
bool hasConventions(const std::string& name);

} // namespace tarnix_cmn_4_4

#endif
