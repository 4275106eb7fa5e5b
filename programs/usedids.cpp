// SPDX-License-Identifier: LicenseRef-Tarnix
#include "usedids.h"

#include "patterntree.h"

#include <unicode/regex.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <iterator>
#include <map>
#include <stdexcept>
#include <string_view>

namespace fs = std::filesystem;

namespace catalogcheck
{
namespace
{

using Places = std::map<std::string, std::string>; // the first use of each id, FILE:LINE

constexpr std::array<std::string_view, 11> kEndings = {".c",   ".cc",  ".cpp", ".cxx", ".h",  ".hh",
                                                       ".hpp", ".hxx", ".inc", ".inl", ".ipp"};

std::vector<fs::path> sourceFiles(const fs::path& path)
{
    if (!fs::is_directory(path)) {
        return {path};
    }
    std::vector<fs::path> files;
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(path)) {
        if (std::find(kEndings.begin(), kEndings.end(), entry.path().extension().string()) !=
                kEndings.end() &&
            entry.is_regular_file()) {
            files.push_back(entry.path());
        }
    }
    std::sort(files.begin(), files.end());
    return files;
}

std::string contentOf(const fs::path& file)
{
    std::ifstream stream(file, std::ios::binary);
    std::string content{std::istreambuf_iterator<char>(stream), {}};
    if (!stream.is_open() || stream.bad()) {
        throw std::runtime_error("cannot read source '" + file.string() +
                                 "': " + std::strerror(errno));
    }
    return content;
}

class IdFinder
{
public:
    explicit IdFinder(const std::string& expression)
        : m_Matcher(icu::UnicodeString::fromUTF8(expression), 0, m_Status)
    {
        if (U_FAILURE(m_Status)) {
            throw std::runtime_error("cannot use the expression '" + expression +
                                     "': " + u_errorName(m_Status));
        }
        if (m_Matcher.groupCount() != 1) {
            throw std::runtime_error("cannot use the expression '" + expression +
                                     "': it has not one group, the id");
        }
        m_Matcher.setTimeLimit(kMostSteps, m_Status);
    }

    void find(const fs::path& file, Places& places)
    {
        const icu::UnicodeString text = icu::UnicodeString::fromUTF8(contentOf(file));
        m_Matcher.reset(text);
        std::int32_t counted = 0;
        std::size_t line = 1;
        while (m_Matcher.find(m_Status) != 0) {
            const std::int32_t at = m_Matcher.start(1, m_Status);
            const char16_t* const units = text.getBuffer();
            line += static_cast<std::size_t>(
                std::count(units + counted, units + std::max(at, counted), u'\n'));
            counted = std::max(at, counted);
            if (at >= 0) {
                places.emplace(utf8(m_Matcher.group(1, m_Status)),
                               file.string() + ":" + std::to_string(line));
            }
        }
        if (U_FAILURE(m_Status)) {
            throw std::runtime_error("cannot search '" + file.string() +
                                     "': " + u_errorName(m_Status));
        }
    }

private:
    static constexpr std::int32_t kMostSteps = 10000; // of ICU's engine, in each match; seconds

    UErrorCode m_Status = U_ZERO_ERROR;
    icu::RegexMatcher m_Matcher;
};

} // namespace

void checkUsedIds(const std::string& expression, const std::vector<fs::path>& sources,
                  const Language& root, Findings& findings)
{
    IdFinder finder(expression);
    Places places;
    for (const fs::path& path : sources) {
        for (const fs::path& file : sourceFiles(path)) {
            finder.find(file, places);
        }
    }
    for (const auto& [id, place] : places) {
        if (root.texts.count(id) == 0) {
            findings.add(place, id, "is missing in root: add its text, or correct the id");
        }
    }
    for (const auto& entry : root.texts) {
        if (places.count(entry.first) == 0) {
            findings.add(root.file, entry.first,
                         "is used by no source: remove it from all languages");
        }
    }
}

} // namespace catalogcheck
