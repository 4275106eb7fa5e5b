// SPDX-License-Identifier: LicenseRef-Tarnix
// Reads bundles. ICU trusts them: a damaged one can crash its reader, or keep it busy without an
// end. So a process of its own reads each bundle.
#ifndef TARNIX_PROGRAMS_BUNDLEREADER_H
#define TARNIX_PROGRAMS_BUNDLEREADER_H

#include "catalog.h"
#include "findings.h"

#include <filesystem>

namespace catalogcheck
{

// Reads the texts of a bundle into the language. False, after a finding, if the bundle is damaged.
bool readBundle(const std::filesystem::path& bundle, Language& language, Findings& findings);

// The option and the main function of the process that reads: it writes what the bundle root of the
// directory contains to standard output. Returns its exit status.
constexpr char kReadBundleOption[] = "--read-bundle";
int readBundleProcess(const char* directory);

} // namespace catalogcheck

#endif
