// How ACE_Registry_ImpExp reads one line.
#include "importline.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

namespace tarnix_platform
{

namespace
{

constexpr const char* kNoBracket = "section without a closing bracket";
constexpr const char* kAfterBracket = "text after the closing bracket";
constexpr const char* kNoSetting = "neither a section, a value nor a comment";
constexpr const char* kNoNameQuote = "name without a closing quote";
constexpr const char* kNameWithQuote = "quote in the name";
constexpr const char* kNoEqualSign = "no '=' after the name";
constexpr const char* kRefusedName = "name that the store refuses";
constexpr const char* kNoValue = "value is neither a quoted text, nor dword: or hex:";
constexpr const char* kNoClosingQuote = "text without a closing quote";
constexpr const char* kAfterQuote = "text after the closing quote";
constexpr const char* kBadNumber = "dword: needs 1 to 8 hexadecimal digits";
constexpr const char* kBadBytes = "hex: needs pairs of hexadecimal digits, separated by commas";
constexpr const char* kBadDecimal = "number is not decimal, or has more than 32 bits";
constexpr const char* kOldQuote = "closing quote in the form name=\"text";

const char* find(char wanted, const char* from, const char* end)
{
    const void* const found = std::memchr(from, wanted, static_cast<std::size_t>(end - from));
    return found != nullptr ? static_cast<const char*>(found) : end;
}

// The last one; null if there is none.
const char* findLast(char wanted, const char* from, const char* end)
{
    const void* const found = ::memrchr(from, wanted, static_cast<std::size_t>(end - from));
    return static_cast<const char*>(found);
}

// Whether only blanks or a comment follow.
bool isRest(const char* from, const char* end)
{
    while (from != end && (*from == ' ' || *from == '\t' || *from == '\r')) {
        ++from;
    }
    return from == end || *from == ';' || *from == '#';
}

bool isDigit(char c)
{
    return c >= '0' && c <= '9';
}

bool isHexDigit(char c)
{
    const char lower = static_cast<char>(c | 0x20);
    return isDigit(c) || (lower >= 'a' && lower <= 'f');
}

// The rest of the line if it starts with `prefix`, else null.
template <std::size_t N>
const char* skip(const char (&prefix)[N], const char* from, const char* end)
{
    constexpr std::size_t length = N - 1;
    const bool found =
        static_cast<std::size_t>(end - from) >= length && std::memcmp(from, prefix, length) == 0;
    return found ? from + length : nullptr;
}

const char* textProblem(const char* quote, const char* end)
{
    const char* const last = findLast('"', quote, end);
    if (last == quote) {
        return kNoClosingQuote;
    }
    return isRest(last + 1, end) ? nullptr : kAfterQuote;
}

const char* numberProblem(const char* digits, const char* end)
{
    constexpr std::ptrdiff_t maxDigits = 8;
    const char* const rest = std::find_if_not(digits, end, isHexDigit);
    const bool isGood = rest != digits && rest - digits <= maxDigits && isRest(rest, end);
    return isGood ? nullptr : kBadNumber;
}

const char* bytesProblem(const char* at, const char* end)
{
    while (end - at >= 2 && isHexDigit(at[0]) && isHexDigit(at[1])) {
        at += 2;
        if (at == end || *at != ',') {
            break;
        }
        ++at;
    }
    return isRest(at, end) ? nullptr : kBadBytes;
}

// Of what follows the equal sign.
const char* valueProblem(const char* value, const char* end)
{
    if (value != end && *value == '"') {
        return textProblem(value, end);
    }
    if (const char* const digits = skip("dword:", value, end)) {
        return numberProblem(digits, end);
    }
    if (const char* const bytes = skip("hex:", value, end)) {
        return bytesProblem(bytes, end);
    }
    return kNoValue;
}

const char* decimalProblem(const char* digits, const char* end)
{
    std::uint64_t number = 0;
    const char* at = digits;
    for (; at != end && isDigit(*at) && number <= UINT32_MAX; ++at) {
        number = 10 * number + static_cast<std::uint64_t>(*at - '0');
    }
    const bool isGood = at != digits && number <= UINT32_MAX && isRest(at, end);
    return isGood ? nullptr : kBadDecimal;
}

// Of what follows the equal sign in the old form of a value: name="text, without a closing quote.
const char* oldValueProblem(const char* value, const char* end)
{
    if (value != end && *value == '#') {
        return decimalProblem(value + 1, end);
    }
    if (value == end || *value != '"') {
        return kNoValue;
    }
    return find('"', value + 1, end) == end ? nullptr : kOldQuote;
}

// A refused name ends the import, but only if there is a value that ACE would set.
ImportLine value(const char* name, const char* nameEnd, const char* problem)
{
    ImportLine line;
    line.kind = ImportLine::Kind::value;
    line.name = name;
    line.nameEnd = nameEnd;
    line.problem = problem;
    if (problem != kNoValue && isRefusedName(name, nameEnd)) {
        line.endsImport = true;
        line.problem = kRefusedName;
    } else if (problem == kNoClosingQuote) {
        line.fix = ImportLine::Fix::quote;
    } else if (problem != nullptr && problem != kAfterQuote) {
        line.fix = ImportLine::Fix::comment;
    }
    return line;
}

ImportLine other(const char* problem)
{
    ImportLine line;
    line.problem = problem;
    return line;
}

ImportLine readValue(const char* begin, const char* end)
{
    const char* const name = begin + 1;
    const char* const quote = find('"', name, end);
    if (quote == end) {
        return other(kNoNameQuote);
    }
    if (end - quote < 2 || quote[1] != '=') {
        return value(name, quote, kNoEqualSign);
    }
    return value(name, quote, valueProblem(quote + 2, end));
}

ImportLine readOldForm(const char* begin, const char* end)
{
    const char* const equalSign = find('=', begin, end);
    if (equalSign == end) {
        return other(isRest(begin, end) ? nullptr : kNoSetting);
    }
    if (find('"', begin, equalSign) != equalSign) {
        return value(begin, equalSign, kNameWithQuote);
    }
    // An indented comment may look like a value, and then ACE takes it for one.
    const bool isComment = isRest(begin, end);
    return value(begin, equalSign, isComment ? nullptr : oldValueProblem(equalSign + 1, end));
}

ImportLine readSection(const char* begin, const char* end)
{
    const char* const bracket = findLast(']', begin, end);
    ImportLine line;
    if (bracket == nullptr) {
        line.problem = kNoBracket;
        line.endsImport = true;
        return line;
    }
    line.kind = ImportLine::Kind::section;
    line.name = begin + 1;
    line.nameEnd = bracket;
    line.problem = isRest(bracket + 1, end) ? nullptr : kAfterBracket;
    return line;
}

} // namespace

bool isRefusedName(const char* name, const char* end)
{
    // The three are neighbours in ASCII: a bracket, a backslash, a bracket.
    const auto isRefused = [](char c) { return c >= '[' && c <= ']'; };
    return static_cast<std::size_t>(end - name) > kMaxNameLength ||
           std::any_of(name, end, isRefused);
}

ImportLine readImportLine(const char* begin, const char* end)
{
    switch (begin == end ? ';' : *begin) {
    case ';':
    case '#':
        return ImportLine();
    case '[':
        return readSection(begin, end);
    case '"':
        return readValue(begin, end);
    default:
        return readOldForm(begin, end);
    }
}

} // namespace tarnix_platform
