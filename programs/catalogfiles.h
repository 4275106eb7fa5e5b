// SPDX-License-Identifier: LicenseRef-Tarnix
// Which files make a catalog, and how its sources become bundles.
#ifndef TARNIX_PROGRAMS_CATALOGFILES_H
#define TARNIX_PROGRAMS_CATALOGFILES_H

#include "findings.h"

#include <filesystem>
#include <string>
#include <vector>

namespace catalogcheck
{

struct CatalogFiles {
    std::vector<std::filesystem::path> sources; // .txt
    std::vector<std::filesystem::path> bundles; // .res
};

// The files of the paths, which are directories and files. A directory with sources is one of
// sources, and its bundles do not count. Not every text beside catalogs is a source: only one that
// has the name of a language, or that begins with a table as a source does. Throws if a path is
// neither a directory nor such a file.
CatalogFiles catalogFiles(const std::vector<std::filesystem::path>& paths);

// Compiles a source into the empty directory. Returns the bundle, whose name is that of the source.
// The path is empty if there is none, after a finding. Throws if genrb does not run.
std::filesystem::path compileSource(const std::filesystem::path& source,
                                    const std::filesystem::path& directory,
                                    const std::string& genrb, Findings& findings);

// A temporary directory, which is removed with its contents.
class TemporaryDirectory
{
public:
    TemporaryDirectory();
    ~TemporaryDirectory();
    TemporaryDirectory(const TemporaryDirectory&) = delete;
    TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

    const std::filesystem::path& path() const { return m_Path; }

private:
    std::filesystem::path m_Path;
};

} // namespace catalogcheck

#endif
