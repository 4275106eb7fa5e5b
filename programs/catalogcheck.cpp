// SPDX-License-Identifier: LicenseRef-Tarnix
// Checks a message catalog: sources (root.txt, de.txt, ...) or a built bundle (root.res, ...).
//
// Prints one finding per line: file, id, what is wrong and what to do. Exit status: 0 no findings,
// 1 findings, 2 the catalog cannot be read.
#include "bundlereader.h"
#include "catalog.h"
#include "catalogfiles.h"
#include "checkoptions.h"
#include "findings.h"
#include "localename.h"
#include "parents.h"
#include "pseudolocale.h"
#include "rootcompare.h"
#include "textcheck.h"
#include "usedids.h"

#include <algorithm>
#include <cstring>
#include <exception>
#include <filesystem>
#include <iostream>
#include <stdexcept>
#include <string>
#include <vector>

namespace fs = std::filesystem;

namespace catalogcheck
{
namespace
{

// Adds the language of a bundle. A name that comes twice is a finding: one would hide the other.
void addLanguage(const fs::path& bundle, const std::string& file, Catalog& catalog,
                 Findings& findings)
{
    Language language;
    language.file = file;
    const std::string name = bundle.stem().string();
    if (catalog.count(name) > 0) {
        findings.add(file, "", "is given twice: give one file for each language");
    } else if (readBundle(bundle, language, findings)) {
        catalog.emplace(name, std::move(language));
    }
}

Catalog readCatalog(const CatalogFiles& files, const std::string& genrb, Findings& findings)
{
    Catalog catalog;
    const TemporaryDirectory compiled;
    int count = 0;
    for (const fs::path& source : files.sources) {
        // A directory for each, because the bundle is named after the table in the source.
        const fs::path own = compiled.path() / std::to_string(++count);
        fs::create_directory(own);
        const fs::path bundle = compileSource(source, own, genrb, findings);
        if (!bundle.empty()) {
            addLanguage(bundle, source.filename().string(), catalog, findings);
        }
        fs::remove_all(own);
    }
    for (const fs::path& bundle : files.bundles) {
        addLanguage(bundle, bundle.filename().string(), catalog, findings);
    }
    return catalog;
}

void checkNames(const std::vector<fs::path>& files, Findings& findings)
{
    for (const fs::path& file : files) {
        const std::string fault = localeNameFault(file.stem().string());
        if (!fault.empty()) {
            findings.add(file.filename().string(), "", fault);
        }
    }
}

bool names(const CatalogFiles& files, const std::string& language)
{
    const auto isOf = [&language](const fs::path& file) { return file.stem() == language; };
    return std::any_of(files.sources.begin(), files.sources.end(), isOf) ||
           std::any_of(files.bundles.begin(), files.bundles.end(), isOf);
}

void checkLanguages(const Catalog& catalog, const std::string& rootLanguage, Findings& findings)
{
    CatalogPatterns patterns;
    for (const auto& [name, language] : catalog) {
        const std::string fault = openingFault(catalog, name);
        if (!fault.empty()) {
            findings.add(language.file, "", fault);
        }
        const bool known = localeNameFault(name).empty();
        const std::string locale = name == kRoot ? rootLanguage : known ? name : "";
        patterns.emplace(name, TextCheck(locale, findings).check(language));
    }
    checkRoot(catalog, patterns, findings);
    for (const auto& entry : catalog) {
        if (entry.first != kRoot) {
            compareWithRoot(catalog, patterns, entry.first, findings);
        }
    }
}

int check(const Options& options)
{
    Findings findings;
    const CatalogFiles files = catalogFiles(options.paths);
    checkNames(files.sources, findings);
    checkNames(files.bundles, findings);
    const Catalog catalog = readCatalog(files, options.genrb, findings);
    const auto root = catalog.find(kRoot);
    if (root == catalog.end()) {
        if (!names(files, kRoot)) { // otherwise there is a finding: it does not compile
            findings.add(kRoot, "",
                         files.sources.empty() && files.bundles.empty()
                             ? "is missing: no source and no bundle of a language was found; give "
                               "the directory of one catalog, or write root.txt"
                             : "is missing: write root.txt, with a text for each id");
        }
        return 1;
    }
    checkLanguages(catalog, options.rootLanguage, findings);
    if (!options.ids.empty()) {
        checkUsedIds(options.ids, options.sources, root->second, findings);
    }
    if (!options.pseudo.empty()) {
        writePseudoLocale(options.pseudo, root->second);
    }
    return findings.any() ? 1 : 0;
}

int run(int argc, char** argv)
{
    if (argc == 3 && std::strcmp(argv[1], kReadBundleOption) == 0) {
        return readBundleProcess(argv[2]);
    }
    const Options options = readOptions(argc, argv);
    if (options.help) {
        std::cout << kUsage;
        return 0;
    }
    if (options.version) {
        std::cout << "catalogcheck " TARNIX_VERSION "\n";
        return 0;
    }
    return check(options);
}

} // namespace
} // namespace catalogcheck

int main(int argc, char** argv)
{
    try {
        const int status = catalogcheck::run(argc, argv);
        return std::cout.flush() ? status : 2;
    } catch (const fs::filesystem_error& failure) {
        std::cerr << "catalogcheck: cannot access '" << failure.path1().string()
                  << "': " << failure.code().message() << '\n';
    } catch (const std::invalid_argument& failure) {
        std::cerr << "catalogcheck: " << failure.what() << "; --help prints the usage\n";
    } catch (const std::exception& failure) {
        std::cerr << "catalogcheck: " << failure.what() << '\n';
    }
    return 2;
}
