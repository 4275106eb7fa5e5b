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
constexpr const char* kOldComment = "comment in the form name=\"text, read as text";
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
    while (from != end && (isBlank(*from) || *from == '\r')) {
        ++from;
    }
    return from == end || startsComment(*from);
}

// Whether a blank and a comment follow.
bool isComment(const char* from, const char* end)
{
    const char* const at = std::find_if_not(from, end, isBlank);
    return at != from && at != end && startsComment(*at);
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

// Whether a comment follows, or only punctuation before it.
bool isPunctuation(const char* from, const char* end)
{
    return std::all_of(from, std::find_if(from, end, startsComment), [](char c) {
        const char lower = static_cast<char>(c | 0x20);
        return c > 0 && !isDigit(c) && (lower < 'a' || lower > 'z');
    });
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
template <class IsDigit>
Finding checkNumber(const char* at, const char* end, unsigned int base, IsDigit isOfBase,
                    const char* problem)
{
    at = std::find_if_not(at, end, isBlank);
    at += at != end && *at == '+' ? 1 : 0;
    if (base == 16 && end - at > 2 && at[0] == '0' && (at[1] | 0x20) == 'x' && isOfBase(at[2])) {
        at += 2;
    }
    const char* const digits = at;
    std::uint64_t number = 0;
    for (; at != end && isOfBase(*at) && number <= UINT32_MAX; ++at) {
        const int digit = isDigit(*at) ? *at - '0' : (*at | 0x20) - 'a' + 10;
        number = base * number + static_cast<std::uint64_t>(digit);
    }
    if (at == digits || number > UINT32_MAX || !isPunctuation(at, end)) {
        return {problem, Fix::comment};
    }
    return {isRest(at, end) ? nullptr : kAfterNumber};
}

// ACE takes a third of the length, with the newline, for the number of bytes, and reads one at each
// third character.
Finding checkBytes(const char* bytes, const char* end)
{
    const char* at = bytes;
    std::ptrdiff_t count = 0;
    while (end - at >= 2 && isHexDigit(at[0]) && isHexDigit(at[1])) {
        at += 2;
        ++count;
        if (at == end || (*at != ',' && !isBlank(*at))) {
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
    if (value != end && *value == '"') {
        return checkText(value, end);
    }
    if (const char* const digits = skip("dword:", value, end)) {
        return checkNumber(digits, end, 16, isHexDigit, kBadNumber);
    }
    if (const char* const bytes = skip("hex:", value, end)) {
        return checkBytes(bytes, end);
    }
    return {kNoValue, Fix::comment};
}

// ACE skips the character after the name, whatever it is.
Finding checkWithoutEqualSign(const char* quote, const char* end)
{
    if (end - quote < 3 || (!isBlank(quote[1]) && quote[1] != ':')) {
        return {kNoEqualSign, Fix::comment};
    }
    const char* const value = quote + 2;
    const bool isClear = checkValue(value, end).problem == nullptr &&
                         (*value != '"' || find('"', value + 1, end) == findLast('"', value, end));
    return {kNoEqualSign, isClear ? Fix::none : Fix::comment};
}

// Of what follows the equal sign in the old form of a value: name="text, without a closing quote.
Finding checkOldValue(const char* value, const char* end)
{
    if (value != end && *value == '#') {
        return checkNumber(value + 1, end, 10, isDigit, kBadDecimal);
    }
    if (value == end || *value != '"') {
        return {kNoValue, Fix::comment};
    }
    if (find('"', value + 1, end) != end) {
        return {kOldQuote, Fix::comment};
    }
    const bool hasComment = std::adjacent_find(value, end, [](char left, char right) {
                                return isBlank(left) && startsComment(right);
                            }) != end;
    return {hasComment ? kOldComment : nullptr};
}

// The bytes that may continue a character after its first byte `lead`; -1 for no such byte.
int continuation(unsigned char lead)
{
    if (lead < 0x80) {
        return 0;
    }
    if (lead < 0xC2 || lead > 0xF4) {
        return -1;
    }
    return lead < 0xE0 ? 1 : (lead < 0xF0 ? 2 : 3);
}

// Not too long for its character, no surrogate and not past U+10FFFF.
bool isSecondByte(unsigned char lead, unsigned char second)
{
    switch (lead) {
    case 0xE0:
        return second >= 0xA0;
    case 0xED:
        return second < 0xA0;
    case 0xF0:
        return second >= 0x90;
    case 0xF4:
        return second < 0x90;
    default:
        return true;
    }
}

bool isUtf8(const char* at, const char* end)
{
    const auto isTail = [](char c) { return (static_cast<unsigned char>(c) & 0xC0U) == 0x80U; };
    while (at != end) {
        const auto lead = static_cast<unsigned char>(*at++);
        const int tail = continuation(lead);
        if (tail < 0 || end - at < tail || !std::all_of(at, at + tail, isTail) ||
            (tail > 0 && !isSecondByte(lead, static_cast<unsigned char>(*at)))) {
            return false;
        }
        at += tail;
    }
    return true;
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
    if (end - quote < 2 || quote[1] != '=') {
        return value(name, quote, checkWithoutEqualSign(quote, end));
    }
    return value(name, quote, checkValue(quote + 2, end));
}

ImportLine readOldForm(const char* begin, const char* end)
{
    const char* const equalSign = find('=', begin, end);
    if (equalSign == end) {
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

// The end of the name, or of the text, of a line without problems: only comments follow.
const char* textEnd(const ImportLine& line, const char* begin, const char* end)
{
    if (line.kind == ImportLine::Kind::section) {
        return line.nameEnd;
    }
    const bool isOldForm = *begin != '"';
    const char* const text = line.nameEnd + (isOldForm ? 1 : 2);
    if (*text != '"') {
        return line.nameEnd;
    }
    return isOldForm ? end : findLast('"', text, end);
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
