// SPDX-License-Identifier: LicenseRef-Tarnix
// The source of a bundle with its entries in descending order. genrb inserts each key into a sorted
// list, from its front: it needs minutes for 100,000 keys in ascending order, and a second for
// these.
#ifndef TARNIX_PROGRAMS_DESCENDINGSOURCE_H
#define TARNIX_PROGRAMS_DESCENDINGSOURCE_H

#include <string>

namespace catalogcheck
{

// Empty if the text is not a table of entries with keys.
std::string descendingSource(const std::string& text);

} // namespace catalogcheck

#endif
