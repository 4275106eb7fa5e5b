// SPDX-License-Identifier: LicenseRef-Tarnix
#include "checkoptions.h"

#include "localename.h"

#include <stdexcept>

namespace catalogcheck
{

const char* const kUsage =
    "usage: catalogcheck [OPTION]... [--] PATH...\n"
    "Checks a message catalog. A PATH is a directory of sources (root.txt, de.txt, ...) or of a\n"
    "built bundle (root.res, de.res, ...), or one such file.\n"
    "  --root-language L  language of the texts in root, for its plural forms (default: en)\n"
    "  --ids REGEX        check that the ids which REGEX finds in sources and those of root are\n"
    "                     the same; the group of REGEX is the id\n"
    "  --source PATH      a source for --ids, or a directory of C and C++ files; may be repeated\n"
    "  --pseudo FILE      write FILE, such as en_XA.txt: the texts of root, accented and longer\n"
    "  --genrb PROGRAM    ICU's compiler of bundles (default: genrb)\n"
    "  --help, --version  print this, or the version\n"
    "Prints a line for each finding. The status is 0 without findings, 1 with findings, 2 if the\n"
    "catalog cannot be read.\n";

namespace
{

// Whether the option takes no value.
bool setFlag(const std::string& name, Options& options)
{
    options.help = options.help || name == "--help";
    options.version = options.version || name == "--version";
    return name == "--help" || name == "--version";
}

void setValue(const std::string& name, const std::string& value, Options& options)
{
    if (name == "--root-language") {
        options.rootLanguage = value;
    } else if (name == "--ids") {
        options.ids = value;
    } else if (name == "--source") {
        options.sources.emplace_back(value);
    } else if (name == "--pseudo") {
        options.pseudo = value;
    } else if (name == "--genrb") {
        options.genrb = value;
    } else {
        throw std::invalid_argument("unknown option '" + name + "'");
    }
    if (value.empty()) {
        throw std::invalid_argument("option '" + name + "' has an empty value");
    }
}

void require(bool holds, const std::string& fault)
{
    if (!holds) {
        throw std::invalid_argument(fault);
    }
}

void checkOptions(const Options& options)
{
    if (options.help || options.version) {
        return;
    }
    require(!options.paths.empty(), "no catalog is given");
    require(options.ids.empty() == options.sources.empty(), "--ids and --source need each other");
    const std::string fault = localeNameFault(options.rootLanguage);
    require(fault.empty(), "--root-language: " + fault);
}

} // namespace

Options readOptions(int argc, char** argv)
{
    Options options;
    bool onlyPaths = false;
    for (int at = 1; at < argc; ++at) {
        const std::string word = argv[at];
        if (onlyPaths || word.compare(0, 2, "--") != 0) {
            options.paths.emplace_back(word);
        } else if (word == "--") {
            onlyPaths = true;
        } else if (!setFlag(word, options)) {
            const bool hasValue = at + 1 < argc;
            setValue(word, hasValue ? argv[at + 1] : "", options);
            ++at;
        }
    }
    checkOptions(options);
    return options;
}

} // namespace catalogcheck
