// SPDX-License-Identifier: LicenseRef-Tarnix
// Which files ACE_Registry_ImpExp cannot import without harm, and which lines it does not read.
#include "importcheck.h"

#include <algorithm>
#include <cstring>

namespace tarnix_platform
{

namespace
{

constexpr std::ptrdiff_t kMaxTotalLevels = 50000;
constexpr std::ptrdiff_t kMaxZeros = 8; // a slightly damaged file is still imported
constexpr std::ptrdiff_t kMaxLineLength = std::ptrdiff_t{16} * 1024 * 1024;

constexpr const char* kZero = "zero byte";
constexpr const char* kManyZeros = "file refused: more than 8 zero bytes";
constexpr const char* kLongLine = "file refused: line of more than 16 MiB";
constexpr const char* kDeepSection = "file refused: section more than 128 levels deep";
constexpr const char* kManyLevels = "file refused: more than 50000 levels of sections";
constexpr const char* kTooExpensive = "file refused: too many names for one section or file";
constexpr const char* kNoSection = "value before the first section";
constexpr const char* kEmptySection = "section without a name";
constexpr const char* kRefusedPart = "section name that the store refuses";
constexpr const char* kTwice = "second value of this name, replaces the first";

// The path as ACE takes it: separated by single backslashes. Empty if the store refuses a part.
std::string pathOf(const char* at, const char* end, const char*& problem)
{
    std::string path;
    problem = kEmptySection;
    while ((at = std::find_if_not(at, end, TxSectionNames::isSeparator)) != end) {
        const char* const partEnd = std::find_if(at, end, TxSectionNames::isSeparator);
        if (isRefusedName(at, partEnd)) {
            problem = kRefusedPart;
            return {};
        }
        problem = nullptr;
        path.append(path.empty() ? "" : "\\").append(at, partEnd);
        at = partEnd;
    }
    return path;
}

} // namespace

void TxImportReport::add(std::size_t line, const char* reason)
{
    ++count;
    if (problems.size() == kMaxProblems) {
        problems.pop_back();
    }
    problems.push_back({line, reason});
}

bool ImportCheck::accepts()
{
    char* const end = m_Text.data() + m_Text.size();
    m_HasZeros = m_Text.find('\0') != std::string::npos;
    for (char* line = m_Text.data(); line != end;) {
        void* const found = std::memchr(line, '\n', static_cast<std::size_t>(end - line));
        char* const lineEnd = found != nullptr ? static_cast<char*>(found) : end;
        ++m_Line;
        if (!acceptsLine(line, lineEnd)) {
            return false;
        }
        line = lineEnd == end ? end : lineEnd + 1;
    }
    return true;
}

bool ImportCheck::acceptsLine(char* begin, char* end)
{
    if (end - begin > kMaxLineLength) {
        return refuse(kLongLine);
    }
    if (m_HasZeros && !hideZeros(begin, end)) {
        return refuse(kManyZeros);
    }
    const ImportLine line = readImportLine(begin, end);
    const bool isFixed = m_Fixes && line.isFixable;
    m_Report.endsEarly |= line.endsImport && !isFixed;
    if (line.kind == ImportLine::Kind::section) {
        return openSection(line, begin + 1);
    }
    const char* problem = isFixed ? nullptr : line.problem;
    if (m_Fixes && line.fix == ImportLine::Fix::comment) {
        *begin = ';';
    } else if (line.kind == ImportLine::Kind::value) {
        addQuote(line, end);
        cut(line, begin);
        const char* const valueProblem = checkValue(line);
        problem = problem == nullptr ? valueProblem : problem;
    }
    if (problem != nullptr) {
        m_Report.add(m_Line, problem);
    }
    return !m_Cost.isTooHigh() || refuse(kTooExpensive);
}

void ImportCheck::addQuote(const ImportLine& line, const char* end)
{
    if (m_Fixes && line.fix == ImportLine::Fix::quote) {
        m_Unclosed.push_back(end[-1] == '\r' ? end - 1 : end);
    }
}

// What follows becomes a line of its own, as the text must keep its length.
void ImportCheck::cut(const ImportLine& line, char* begin)
{
    if (!m_Fixes || line.fix != ImportLine::Fix::cut) {
        return;
    }
    char* const rest = begin + (line.rest - begin);
    rest[0] = '\n';
    rest[1] = ';'; // there are at least two characters, or there would not be more bytes
}

void ImportCheck::complete()
{
    if (!m_Unclosed.empty()) {
        std::string closed;
        const char* from = m_Text.data();
        for (const char* const to : m_Unclosed) {
            closed.append(from, to).push_back('"');
            from = to;
        }
        m_Text = closed.append(from);
    }
    if (!m_Text.empty() && m_Text.back() != '\n') {
        m_Text += '\n';
    }
}

// Makes a comment of a line with zero bytes. ACE would append the next line to it, and double its
// buffer each time, until the size wraps and it writes past the end. False if there are too many.
bool ImportCheck::hideZeros(char* begin, char* end)
{
    const auto zeros = std::count(begin, end, '\0');
    if (zeros == 0) {
        return true;
    }
    m_Zeros += zeros;
    m_Report.add(m_Line, kZero);
    std::replace(begin, end, '\0', ' ');
    *begin = ';';
    return m_Zeros <= kMaxZeros;
}

// The memory for a section grows with the square of its depth, and the export is recursive.
bool ImportCheck::countLevels(const ImportLine& line)
{
    const std::ptrdiff_t levels =
        1 + std::count_if(line.name, line.nameEnd, TxSectionNames::isSeparator);
    m_AllLevels += levels;
    if (levels > TxSectionNames::kMaxLevels) {
        return refuse(kDeepSection);
    }
    return m_AllLevels <= kMaxTotalLevels || refuse(kManyLevels);
}

bool ImportCheck::openSection(const ImportLine& line, char* name)
{
    if (!countLevels(line)) {
        return false;
    }
    const char* problem = nullptr;
    std::string path = pathOf(line.name, line.nameEnd, problem);
    m_Report.endsEarly |= problem == kRefusedPart;
    problem = problem == nullptr ? line.problem : problem;
    if (problem != nullptr) {
        m_Report.add(m_Line, problem);
    }
    if (path.empty()) {
        return true; // ACE stays in the section before
    }
    if (m_Names != nullptr) {
        m_Names->respell(path);
        respell(name, line.nameEnd, path);
    }
    m_Section = &m_Cost.open(path);
    m_Values.resize(std::max<std::size_t>(m_Values.size(), m_Section->number));
    return !m_Cost.isTooHigh() || refuse(kTooExpensive);
}

// Both have the same parts, of the same length.
void ImportCheck::respell(char* name, const char* end, const std::string& path)
{
    const char* from = path.data();
    for (; name != end; ++name) {
        if (!TxSectionNames::isSeparator(*name)) {
            from += *from == '\\' ? 1 : 0;
            *name = *from++;
        }
    }
}

const char* ImportCheck::checkValue(const ImportLine& line)
{
    if (m_Section == nullptr) {
        m_Report.endsEarly = true;
        return kNoSection;
    }
    const bool isNew = m_Names == nullptr || enterName(line);
    m_Cost.addValue(*m_Section, line.nameText(), isNew);
    return isNew ? nullptr : kTwice;
}

// False if the section has a value of that name already.
bool ImportCheck::enterName(const ImportLine& line)
{
    std::uint64_t steps{};
    const bool isNew = m_Values[m_Section->number - 1].insert(line.nameText(), steps);
    m_Cost.addSteps(steps);
    return isNew;
}

bool ImportCheck::refuse(const char* reason)
{
    m_Report.add(m_Line, reason);
    return false;
}

} // namespace tarnix_platform
