// SPDX-License-Identifier: LicenseRef-Tarnix
#include "catalogfiles.h"

#include "cmncommand.h"
#include "descendingsource.h"
#include "localename.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <regex>
#include <stdexcept>

namespace fs = std::filesystem;
using tarnix_cmn_4_4::CCmnCommand;
using tarnix_cmn_4_4::SCmnCommandOutcome;

namespace catalogcheck
{
namespace
{

// The start of the text after the byte order mark, white space and comments. A comment that is
// longer than what is read hides the rest.
std::string startOfText(const fs::path& file)
{
    constexpr std::size_t longest = 65536;
    std::ifstream stream(file, std::ios::binary);
    std::string text(longest, '\0');
    stream.read(text.data(), static_cast<std::streamsize>(text.size()));
    text.resize(static_cast<std::size_t>(stream.gcount()));
    std::size_t at = text.compare(0, 3, "\xEF\xBB\xBF") == 0 ? 3 : 0;
    for (;;) {
        at = std::min(text.find_first_not_of(" \t\r\n", at), text.size());
        const bool toLineEnd = text.compare(at, 2, "//") == 0;
        if (!toLineEnd && text.compare(at, 2, "/*") != 0) {
            return text.substr(at);
        }
        const char* const end = toLineEnd ? "\n" : "*/";
        at = std::min(text.find(end, at + 2), text.size() - 2) + (toLineEnd ? 1 : 2);
    }
}

bool startsWithTable(const fs::path& file)
{
    static const std::regex table(
        R"(^[A-Za-z0-9_-]+\s*(:\s*table\s*(\(\s*nofallback\s*\))?\s*)?\{)");
    constexpr std::size_t longest = 300; // more than a name and its brace
    return std::regex_search(startOfText(file).substr(0, longest), table);
}

bool isSource(const fs::path& file)
{
    return file.extension() == ".txt" && !fs::is_directory(file) &&
           (localeNameFault(file.stem().string()).empty() || startsWithTable(file));
}

void addDirectory(const fs::path& directory, CatalogFiles& files)
{
    CatalogFiles found;
    for (const fs::directory_entry& entry : fs::directory_iterator(directory)) {
        if (isSource(entry.path())) {
            found.sources.push_back(entry.path());
        } else if (entry.path().extension() == ".res") {
            found.bundles.push_back(entry.path());
        }
    }
    std::vector<fs::path>& kind = found.sources.empty() ? found.bundles : found.sources;
    std::vector<fs::path>& target = found.sources.empty() ? files.bundles : files.sources;
    std::sort(kind.begin(), kind.end());
    target.insert(target.end(), kind.begin(), kind.end());
}

// The first line of genrb's output, without the path of the source.
std::string compilerMessage(const SCmnCommandOutcome& outcome, const fs::path& source)
{
    std::string line = outcome.lines.empty() ? outcome.describe() : outcome.lines.front();
    const std::string prefix = source.string() + ":";
    return line.compare(0, prefix.size(), prefix) == 0 ? "line " + line.substr(prefix.size())
                                                       : line;
}

SCmnCommandOutcome runCompiler(const fs::path& source, const fs::path& directory,
                               const std::string& genrb)
{
    constexpr std::chrono::minutes limit(5);
    constexpr std::uint64_t mostLines = 1000;
    SCmnCommandOutcome outcome = CCmnCommand({genrb, "--quiet", "--encoding", "UTF-8", "--destdir",
                                              directory.string(), source.string()})
                                     .setTimeLimit(limit)
                                     .setLineLimit(mostLines)
                                     .run();
    if (outcome.end == SCmnCommandOutcome::End::notStarted) {
        throw std::runtime_error(outcome.errorText + "; genrb is in the package icu-devtools");
    }
    return outcome;
}

// Compiles a copy whose order is fast. False if the source is small, or if the copy does not
// compile: then genrb says of the source itself why.
bool compileLargeSource(const fs::path& source, const fs::path& directory, const std::string& genrb)
{
    constexpr std::uintmax_t large = 128 * 1024;
    if (fs::file_size(source) < large) {
        return false;
    }
    std::ifstream stream(source, std::ios::binary);
    const std::string text = descendingSource({std::istreambuf_iterator<char>(stream), {}});
    const fs::path copy = directory / "copy.txt";
    std::ofstream(copy, std::ios::binary) << text;
    const bool compiled = !text.empty() && runCompiler(copy, directory, genrb).ok();
    fs::remove(copy);
    return compiled;
}

} // namespace

CatalogFiles catalogFiles(const std::vector<fs::path>& paths)
{
    CatalogFiles files;
    for (const fs::path& path : paths) {
        if (fs::is_directory(path)) {
            addDirectory(path, files);
        } else if (!fs::exists(path)) {
            throw std::runtime_error("cannot access '" + path.string() +
                                     "': " + std::strerror(ENOENT));
        } else if (path.extension() == ".txt") {
            files.sources.push_back(path);
        } else if (path.extension() == ".res") {
            files.bundles.push_back(path);
        } else {
            throw std::runtime_error("cannot check '" + path.string() +
                                     "': neither a directory nor a .txt or .res file");
        }
    }
    return files;
}

fs::path compileSource(const fs::path& source, const fs::path& directory, const std::string& genrb,
                       Findings& findings)
{
    const std::string file = source.filename().string();
    if (!compileLargeSource(source, directory, genrb)) {
        // Absolute, because a relative path may begin with a dash.
        const fs::path absolute = fs::absolute(source);
        const SCmnCommandOutcome outcome = runCompiler(absolute, directory, genrb);
        if (!outcome.ok()) {
            findings.add(file, "",
                         "does not compile: " + compilerMessage(outcome, absolute) +
                             ": correct the source");
            return {};
        }
    }
    fs::path wanted = directory / (source.stem().string() + ".res");
    const fs::directory_iterator written(directory);
    if (written == fs::directory_iterator()) {
        findings.add(file, "", "compiles to nothing: write the table of its language");
        return {};
    }
    if (written->path() == wanted) {
        return wanted;
    }
    if (localeNameFault(source.stem().string()).empty()) { // otherwise the name is the fault
        findings.add(file, "",
                     "contains the table of another language, '" + written->path().stem().string() +
                         "': name the table '" + source.stem().string() + "', as the file");
    }
    return {};
}

TemporaryDirectory::TemporaryDirectory()
{
    const char* const parent = std::getenv("TMPDIR");
    std::string name =
        fs::path(parent == nullptr || *parent == '\0' ? "/tmp" : parent) / "catalogcheckXXXXXX";
    if (::mkdtemp(name.data()) == nullptr) {
        throw std::runtime_error("cannot create temporary directory '" + name +
                                 "': " + std::strerror(errno));
    }
    m_Path = name;
}

TemporaryDirectory::~TemporaryDirectory()
{
    std::error_code ignored;
    fs::remove_all(m_Path, ignored);
}

} // namespace catalogcheck
