// SPDX-License-Identifier: LicenseRef-Tarnix
// What the check finds: one line each, with the file, the id, and what is wrong and what to do.
#ifndef TARNIX_PROGRAMS_FINDINGS_H
#define TARNIX_PROGRAMS_FINDINGS_H

#include <set>
#include <string>

namespace catalogcheck
{

class Findings
{
public:
    // Prints a finding. An empty id: it is about the whole file.
    void add(const std::string& file, const std::string& id, const std::string& what);
    bool any() const { return m_Any; }

private:
    bool m_Any = false;
};

// The elements with a comma between them, or "none".
std::string listed(const std::set<std::string>& elements);

} // namespace catalogcheck

#endif
