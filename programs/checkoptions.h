// SPDX-License-Identifier: LicenseRef-Tarnix
// The command line of catalogcheck.
#ifndef TARNIX_PROGRAMS_CHECKOPTIONS_H
#define TARNIX_PROGRAMS_CHECKOPTIONS_H

#include <filesystem>
#include <string>
#include <vector>

namespace catalogcheck
{

struct Options {
    bool help = false;
    bool version = false;
    std::vector<std::filesystem::path> paths;
    std::string rootLanguage = "en";
    std::string genrb = "genrb";
    std::string ids; // empty: the ids of the sources are not checked
    std::vector<std::filesystem::path> sources;
    std::filesystem::path pseudo; // empty: none is written
};

extern const char* const kUsage;

// Throws std::invalid_argument if the arguments are wrong. Only a word that begins with two dashes
// is an option.
Options readOptions(int argc, char** argv);

} // namespace catalogcheck

#endif
