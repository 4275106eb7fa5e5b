// Names of languages that come from untrusted input.
#ifndef TARNIX_CMNLANGUAGES_H
#define TARNIX_CMNLANGUAGES_H

#include <string>

namespace tarnix_cmn_4_4
{

// The name without variant and keywords, in ICU's form: de_AT for "DE-at@currency=EUR". Empty for a
// name with a language, a script or a region that ICU does not know: this bounds the number of
// names that can come from outside.
std::string knownLanguage(const std::string& name);

// de for de_AT; empty for a name without a parent, which is a language alone.
std::string parentLanguage(const std::string& name);

} // namespace tarnix_cmn_4_4

#endif
