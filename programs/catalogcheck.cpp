// Checks a message catalog: sources (root.txt, de.txt, ...) or a built bundle (root.res, ...).
//
// Prints one finding per line: file, id, and what is wrong. Exit status: 0 no findings, 1 findings,
// 2 the catalog cannot be read.
#include "cmnexecpipewindows.h"
#include "cmnstringtool.h"

#include <unicode/messagepattern.h>
#include <unicode/msgfmt.h>
#include <unicode/resbund.h>
#include <unicode/ures.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <map>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

namespace fs = std::filesystem;
using tarnix_cmn_4_4::CCmnExecPipeWindows;
using tarnix_cmn_4_4::CCmnStringTool;

namespace
{

struct Language {
    std::string file; // the name to report
    std::map<std::string, icu::UnicodeString> patterns;
};
using Catalog = std::map<std::string, Language>; // by language

int g_findings = 0;

void report(const std::string& file, const std::string& id, const std::string& what)
{
    std::cout << file << ": " << (id.empty() ? "" : id + ": ") << what << '\n';
    ++g_findings;
}

class TemporaryDirectory
{
public:
    TemporaryDirectory()
    {
        std::string name = (fs::temp_directory_path() / "catalogcheckXXXXXX").string();
        if (::mkdtemp(name.data()) == nullptr) {
            throw std::runtime_error("cannot create temporary directory '" + name +
                                     "': " + std::strerror(errno));
        }
        m_Path = name;
    }
    ~TemporaryDirectory()
    {
        std::error_code ignored;
        fs::remove_all(m_Path, ignored);
    }
    TemporaryDirectory(const TemporaryDirectory&) = delete;
    TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

    const fs::path& path() const { return m_Path; }

private:
    fs::path m_Path;
};

std::vector<fs::path> filesIn(const fs::path& directory, const std::string& ending)
{
    std::vector<fs::path> files;
    for (const fs::directory_entry& entry : fs::directory_iterator(directory)) {
        if (entry.path().extension() == ending && entry.path().filename() != "CMakeLists.txt") {
            files.push_back(entry.path());
        }
    }
    std::sort(files.begin(), files.end());
    return files;
}

// A source that does not compile is reported as a finding.
void compile(const fs::path& source, const fs::path& target)
{
    CCmnExecPipeWindows runner;
    std::vector<std::string> lines;
    runner.Exec("genrb --quiet --encoding UTF-8 --sourcedir " +
                    CCmnStringTool::quote(source.parent_path().string()) + " --destdir " +
                    CCmnStringTool::quote(target.string()) + " " +
                    CCmnStringTool::quote(source.filename().string()),
                lines, "", 60, "", "", "");
    int status = 0;
    if (!runner.getExitStatus(status)) {
        report(source.filename().string(), "",
               "cannot run genrb: " +
                   CCmnStringTool::wstr2str(runner.getLastError().getDescription()));
    } else if (status != 0) {
        report(source.filename().string(), "",
               "does not compile" + (lines.empty() ? "" : ": " + lines.front()));
    }
}

struct BundleClose {
    void operator()(UResourceBundle* bundle) const { ures_close(bundle); }
};
using Bundle = std::unique_ptr<UResourceBundle, BundleClose>;

// Opens the bundle directly, because ICU would otherwise add the entries of the parent languages.
bool readBundle(const fs::path& directory, const std::string& name, Language& language)
{
    UErrorCode status = U_ZERO_ERROR;
    const Bundle bundle(ures_openDirect(directory.c_str(), name.c_str(), &status));
    if (U_FAILURE(status)) {
        report(language.file, "", std::string("cannot open the bundle: ") + u_errorName(status));
        return false;
    }
    while (ures_hasNext(bundle.get()) != 0) {
        status = U_ZERO_ERROR;
        const Bundle entry(ures_getNextResource(bundle.get(), nullptr, &status));
        const char* key = U_SUCCESS(status) ? ures_getKey(entry.get()) : nullptr;
        if (key == nullptr) {
            report(language.file, "",
                   std::string("cannot read an entry: ") +
                       (U_FAILURE(status) ? u_errorName(status) : "it has no key"));
            return false;
        }
        if (ures_getType(entry.get()) != URES_STRING) {
            report(language.file, key, "is not a string");
            continue;
        }
        std::int32_t length = 0;
        const char16_t* text = ures_getString(entry.get(), &length, &status);
        language.patterns.emplace(key, icu::UnicodeString(text, length));
    }
    return true;
}

Catalog readCatalog(const fs::path& directory)
{
    Catalog catalog;
    const std::vector<fs::path> sources = filesIn(directory, ".txt");
    const TemporaryDirectory compiled;
    for (const fs::path& source : sources) {
        // Each source gets its own directory, because the bundle is named after the table in the
        // source and not after the file.
        const fs::path own = compiled.path() / ("from-" + source.stem().string());
        const fs::path bundle = own / (source.stem().string() + ".res");
        fs::create_directory(own);
        compile(source, own);
        if (fs::exists(bundle)) {
            fs::rename(bundle, compiled.path() / bundle.filename());
        } else if (!fs::is_empty(own)) {
            report(source.filename().string(), "", "contains the table of another language");
        }
    }
    const fs::path bundles = sources.empty() ? directory : compiled.path();
    for (const fs::path& bundle : filesIn(bundles, ".res")) {
        Language language;
        const std::string name = bundle.stem().string();
        language.file = sources.empty() ? bundle.filename().string() : name + ".txt";
        if (readBundle(fs::absolute(bundles), name, language)) {
            catalog.emplace(name, std::move(language));
        }
    }
    return catalog;
}

// Returns the numbers of the placeholders. Named ones are reported: the arguments of a message have
// only numbers.
std::set<std::int32_t> placeholders(const Language& language, const std::string& id,
                                    const icu::UnicodeString& text)
{
    std::set<std::int32_t> numbers;
    UErrorCode status = U_ZERO_ERROR;
    const icu::MessagePattern pattern(text, nullptr, status);
    for (std::int32_t i = 0; U_SUCCESS(status) && i < pattern.countParts(); ++i) {
        const icu::MessagePattern::Part& part = pattern.getPart(i);
        if (part.getType() == UMSGPAT_PART_TYPE_ARG_NUMBER) {
            numbers.insert(part.getValue());
        } else if (part.getType() == UMSGPAT_PART_TYPE_ARG_NAME) {
            report(language.file, id, "has a placeholder that is not a number");
        }
    }
    return numbers;
}

std::string listed(const std::set<std::int32_t>& numbers)
{
    std::string text;
    for (const std::int32_t number : numbers) {
        text += " {" + std::to_string(number) + "}";
    }
    return text.empty() ? " none" : text;
}

void checkPatterns(const std::string& name, const Language& language)
{
    for (const auto& [id, text] : language.patterns) {
        if (id.find_first_of(" \t\r\n\v\f") != std::string::npos) {
            report(language.file, id, "has white space in its id");
        }
        UErrorCode status = U_ZERO_ERROR;
        UParseError where{};
        const icu::MessageFormat format(text, icu::Locale(name.c_str()), where, status);
        if (U_FAILURE(status)) {
            report(language.file, id,
                   std::string("is not a valid pattern: ") + u_errorName(status));
        }
    }
}

// Whether a parent language (de for de_CH) has the text.
bool inherited(const Catalog& catalog, const std::string& name, const std::string& id)
{
    for (std::size_t end = name.rfind('_'); end != std::string::npos && end > 0;
         end = name.rfind('_', end - 1)) {
        const auto parent = catalog.find(name.substr(0, end));
        if (parent != catalog.end() && parent->second.patterns.count(id) > 0) {
            return true;
        }
    }
    return false;
}

void compareWithRoot(const Catalog& catalog, const std::string& name, const Language& language)
{
    const Language& root = catalog.at("root");
    for (const auto& [id, text] : root.patterns) {
        const auto own = language.patterns.find(id);
        if (own == language.patterns.end()) {
            if (!inherited(catalog, name, id)) {
                report(language.file, id, "is missing");
            }
            continue;
        }
        const std::set<std::int32_t> wanted = placeholders(root, id, text);
        const std::set<std::int32_t> found = placeholders(language, id, own->second);
        if (wanted != found) {
            report(language.file, id,
                   "has other placeholders than root:" + listed(found) + " instead of" +
                       listed(wanted));
        }
    }
    for (const auto& entry : language.patterns) {
        if (root.patterns.count(entry.first) == 0) {
            report(language.file, entry.first, "exists only in this language");
        }
    }
}

int check(const fs::path& directory)
{
    const Catalog catalog = readCatalog(directory);
    if (catalog.count("root") == 0) {
        report("root", "", "is missing");
        return 1;
    }
    for (const auto& [name, language] : catalog) {
        checkPatterns(name, language);
        if (name != "root") {
            compareWithRoot(catalog, name, language);
        }
    }
    return g_findings > 0 ? 1 : 0;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::cerr << "usage: catalogcheck DIRECTORY\n"
                     "  of sources (root.txt, de.txt, ...) or of a built bundle (root.res, ...)\n";
        return 2;
    }
    try {
        return check(argv[1]);
    } catch (const fs::filesystem_error& failure) {
        std::cerr << "catalogcheck: cannot access '" << failure.path1().string()
                  << "': " << failure.code().message() << '\n';
        return 2;
    } catch (const std::exception& failure) {
        std::cerr << "catalogcheck: " << failure.what() << '\n';
        return 2;
    }
}
