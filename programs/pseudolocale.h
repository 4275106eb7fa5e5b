// SPDX-License-Identifier: LicenseRef-Tarnix
// A language for tests of layouts: the root's texts, accented, longer and in brackets. What is
// cut, not translated, or put together from pieces shows at a glance.
#ifndef TARNIX_PROGRAMS_PSEUDOLOCALE_H
#define TARNIX_PROGRAMS_PSEUDOLOCALE_H

#include "catalog.h"

#include <filesystem>

namespace catalogcheck
{

// Writes the source of the language that the file is named after. Throws if that fails, if no
// language has the name, or if the file has texts that were not generated.
void writePseudoLocale(const std::filesystem::path& file, const Language& root);

// The text with its placeholders as they are. An invalid pattern comes back unchanged.
icu::UnicodeString pseudoText(const icu::UnicodeString& text);

} // namespace catalogcheck

#endif
