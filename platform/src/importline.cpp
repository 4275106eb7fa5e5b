// SPDX-License-Identifier: LicenseRef-Tarnix
// How ACE_Registry_ImpExp reads one line.
#include "importline.h"

#include <unicode/ustring.h>

#include <strings.h>

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cstdint>
#include <cstring>
#include <string_view>
#include <system_error>

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
constexpr const char* kOldComment = "comment in the form name=\"text, read as text";
constexpr const char* kAfterReturn = "text after a carriage return";
constexpr const char* kQuoteInside = "quote and comment before the last quote, read as text";
constexpr const char* kAfterNumber = "text after the number";
constexpr const char* kAfterBytes = "text after the bytes of hex:";
constexpr const char* kComment = "indented comment with an equal sign";
constexpr const char* kNotUtf8 = "text is not UTF-8";

using Fix = ImportLine::Fix;

// What is wrong with a value.
struct Finding {
    const char* problem = nullptr;
    Fix fix = Fix::none;
    const char* rest = nullptr;
};

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

bool isBlank(char c)
{
    return c == ' ' || c == '\t';
}

bool startsComment(char c)
{
    return c == ';' || c == '#';
}

// Whether only blanks or a comment follow.
bool isRest(const char* from, const char* end)
{
    from = std::find_if_not(from, end, [](char c) { return isBlank(c) || c == '\r'; });
    return from == end || startsComment(*from);
}

// Whether a blank and a comment follow.
bool isComment(const char* from, const char* end)
{
    const char* const at = std::find_if_not(from, end, isBlank);
    return at != from && at != end && startsComment(*at);
}

bool isHexDigit(char c)
{
    return std::isxdigit(static_cast<unsigned char>(c)) != 0;
}

// What follows `prefix` if that is at `from`, else null.
const char* skip(std::string_view prefix, const char* from)
{
    const bool found = std::strncmp(from, prefix.data(), prefix.size()) == 0;
    return found ? from + prefix.size() : nullptr;
}

// Whether a comment follows, or only punctuation before it.
bool isPunctuation(const char* from, const char* end)
{
    return std::all_of(from, std::find_if(from, end, startsComment),
                       [](int c) { return ::isascii(c) && !std::isalnum(c); });
}

Finding checkText(const char* quote, const char* end)
{
    const char* const last = findLast('"', quote, end);
    if (last == quote) {
        return {kNoClosingQuote, Fix::quote};
    }
    const char* const first = find('"', quote + 1, end);
    if (first != last && isComment(first + 1, last)) {
        return {kQuoteInside};
    }
    return {isRest(last + 1, end) ? nullptr : kAfterQuote};
}

// A number that ACE reads in full is accepted in each form that strtoul takes. With a letter or
// another digit after it, it may be another number than was meant.
Finding checkNumber(const char* at, const char* end, int base, const char* problem)
{
    at = std::find_if_not(at, end, isBlank);
    at += *at == '+' ? 1 : 0;
    if (base == 16 && ::strncasecmp(at, "0x", 2) == 0) {
        at += 2;
    }
    std::uint32_t number{};
    const auto [rest, error] = std::from_chars(at, end, number, base);
    if (error != std::errc() || !isPunctuation(rest, end)) {
        return {problem, Fix::comment};
    }
    return {isRest(rest, end) ? nullptr : kAfterNumber};
}

// ACE takes a third of the length, with the newline, for the number of bytes, and reads one at each
// third character.
Finding checkBytes(const char* bytes, const char* end)
{
    const char* at = bytes;
    std::ptrdiff_t count = 0;
    while (isHexDigit(at[0]) && isHexDigit(at[1])) {
        at += 2;
        ++count;
        if (*at != ',' && !isBlank(*at)) {
            break;
        }
        ++at;
    }
    if (!isRest(at, end)) {
        return {kBadBytes, Fix::comment};
    }
    const bool isLonger = (end - bytes + 1) / 3 != count;
    return isLonger ? Finding{kAfterBytes, Fix::cut, at} : Finding();
}

// Of what follows the equal sign.
Finding checkValue(const char* value, const char* end)
{
    if (*value == '"') {
        return checkText(value, end);
    }
    if (const char* const digits = skip("dword:", value)) {
        return checkNumber(digits, end, 16, kBadNumber);
    }
    if (const char* const bytes = skip("hex:", value)) {
        return checkBytes(bytes, end);
    }
    return {kNoValue, Fix::comment};
}

// ACE skips the character after the name, whatever it is.
Finding checkWithoutEqualSign(const char* quote, const char* end)
{
    if (!isBlank(quote[1]) && quote[1] != ':') {
        return {kNoEqualSign, Fix::comment};
    }
    const char* const value = quote + 2;
    const bool isClear = checkValue(value, end).problem == nullptr &&
                         (*value != '"' || find('"', value + 1, end) == findLast('"', value, end));
    return {kNoEqualSign, isClear ? Fix::none : Fix::comment};
}

// Of what follows the equal sign in the old form of a value: name="text, without a closing quote.
// The text ends before a carriage return: ACE cuts the line there.
Finding checkOldValue(const char* value, const char* end)
{
    if (*value == '#') {
        return checkNumber(value + 1, end, 10, kBadDecimal);
    }
    if (*value != '"') {
        return {kNoValue, Fix::comment};
    }
    const char* const cut = find('\r', value, end);
    if (find('"', value + 1, cut) != cut) {
        return {kOldQuote, Fix::comment};
    }
    if (!isRest(cut, end)) {
        return {kAfterReturn};
    }
    const bool hasComment = std::adjacent_find(value, cut, [](char left, char right) {
                                return isBlank(left) && startsComment(right);
                            }) != cut;
    return {hasComment ? kOldComment : nullptr};
}

bool isUtf8(const char* text, const char* end)
{
    UErrorCode error = U_ZERO_ERROR;
    u_strFromUTF8(nullptr, 0, nullptr, text, static_cast<std::int32_t>(end - text), &error);
    return error != U_INVALID_CHAR_FOUND; // the others are about the missing buffer
}

// A refused name ends the import, but only if there is a value that ACE would set.
ImportLine value(const char* name, const char* nameEnd, const Finding& finding)
{
    ImportLine line;
    line.kind = ImportLine::Kind::value;
    line.name = name;
    line.nameEnd = nameEnd;
    line.problem = finding.problem;
    if (finding.problem != kNoValue && isRefusedName(name, nameEnd)) {
        line.endsImport = true;
        line.problem = kRefusedName;
        return line;
    }
    line.fix = finding.fix;
    line.rest = finding.rest;
    line.isFixable = finding.fix == Fix::cut;
    return line;
}

// A comment that ACE takes for a value.
ImportLine commentLike(const char* name, const char* nameEnd)
{
    ImportLine line = value(name, nameEnd, {kComment});
    line.fix = Fix::comment;
    line.isFixable = true;
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
    if (quote[1] != '=') {
        return value(name, quote, checkWithoutEqualSign(quote, end));
    }
    return value(name, quote, checkValue(quote + 2, end));
}

ImportLine readOldForm(const char* begin, const char* end)
{
    const char* const cut = find('\r', begin, end); // ACE does not look behind it
    const char* const equalSign = find('=', begin, cut);
    if (equalSign == cut) {
        return other(isRest(begin, end) ? nullptr : kNoSetting);
    }
    // An indented comment may look like a value, and then ACE takes it for one.
    if (isRest(begin, end)) {
        const bool isValue = checkOldValue(equalSign + 1, end).problem != kNoValue;
        return isValue ? commentLike(begin, equalSign) : ImportLine();
    }
    if (find('"', begin, equalSign) != equalSign) {
        return value(begin, equalSign, {kNameWithQuote, Fix::comment});
    }
    return value(begin, equalSign, checkOldValue(equalSign + 1, end));
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

ImportLine readLine(const char* begin, const char* end)
{
    switch (*begin) {
    case '\n':
    case ';':
    case '#':
        return {};
    case '[':
        return readSection(begin, end);
    case '"':
        return readValue(begin, end);
    default:
        return readOldForm(begin, end);
    }
}

// The end of the name, or of the text, of a line without problems: only comments follow. The
// bracket of a section is not followed by a quote.
const char* textEnd(const ImportLine& line, const char* begin, const char* end)
{
    const bool isOldForm = *begin != '"';
    const char* const text = line.nameEnd + (isOldForm ? 1 : 2);
    if (*text != '"') {
        return line.nameEnd;
    }
    return isOldForm ? find('\r', text, end) : findLast('"', text, end);
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
    ImportLine line = readLine(begin, end);
    if (line.kind != ImportLine::Kind::other && line.problem == nullptr &&
        !isUtf8(line.name, textEnd(line, begin, end))) {
        line.problem = kNotUtf8; // the store has it, but a text that is asked for never matches it
    }
    return line;
}

} // namespace tarnix_platform
