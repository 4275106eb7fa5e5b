// SPDX-License-Identifier: LicenseRef-Tarnix
// TX_vfscanf: the loop over the format, the parser of directives, the readers of sets and numbers,
// and the stores.
//
// All of the input is in memory, so a field is a span of it. Bytes are given back by making the
// span shorter, and a field is copied only where a terminated text is needed.
#include "TX_chars.h"
#include "TX_sscanf.h"
#include "TX_strings.h"
#include "TX_strtoint.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdlib>
#include <cstring>

namespace
{

using Byte = unsigned char;

constexpr std::size_t kMaxNumberLength = 512;

// ---- Directives --------------------------------------------------------------------------------

enum Flag : unsigned int {
    isSuppressed = 1u << 0,
    asChar = 1u << 1, // hh
    asShort = 1u << 2,
    asLong = 1u << 3,
    asLongLong = 1u << 4, // also "t" and "z", which have its size and rank
    asLongDouble = 1u << 5,
    asIntMax = 1u << 6,
    asPointer = 1u << 7,
    isUnsigned = 1u << 8,
    mayHavePrefix = 1u << 9 // "0x"
};

enum class Kind : Byte {
    // between the "%" and the conversion
    modifier,
    doubled, // has another meaning when it is doubled
    widthDigit,
    int64, // "I64"
    // conversions
    end,
    percent,
    integer,
    unknown, // read as an integer
    floating,
    text,
    set,
    character,
    count
};

struct DirectiveCharacter {
    Kind kind = Kind::unknown;
    Byte base = 10;
    std::uint16_t flags = 0;
    std::uint16_t flagsTwice{};
};

constexpr DirectiveCharacter modifier(Kind kind, std::uint16_t flags)
{
    DirectiveCharacter made;
    made.kind = kind;
    made.flags = flags;
    return made;
}

constexpr DirectiveCharacter doubled(std::uint16_t flags, std::uint16_t flagsTwice)
{
    DirectiveCharacter made = modifier(Kind::doubled, flags);
    made.flagsTwice = flagsTwice;
    return made;
}

constexpr DirectiveCharacter integer(Byte base, std::uint16_t flags)
{
    DirectiveCharacter made = modifier(Kind::integer, flags);
    made.base = base;
    return made;
}

// "D" needs no entry: it is what an unknown directive in upper case is read as.
constexpr std::array<DirectiveCharacter, 256> makeDirectiveCharacters()
{
    std::array<DirectiveCharacter, 256> table{};
    for (unsigned int digit = '0'; digit <= '9'; ++digit) {
        table[digit].kind = Kind::widthDigit;
    }
    table['*'] = modifier(Kind::modifier, isSuppressed);
    table['h'] = doubled(asShort, asChar);
    table['l'] = doubled(asLong, asLongLong);
    table['L'] = modifier(Kind::modifier, asLongDouble);
    table['q'] = table['t'] = table['z'] = modifier(Kind::modifier, asLongLong);
    table['I'] = modifier(Kind::int64, asLongLong);
    table['j'] = modifier(Kind::modifier, asIntMax);
    table['\0'].kind = Kind::end;
    table['%'].kind = Kind::percent;
    table['d'] = integer(10, 0);
    table['i'] = integer(0, mayHavePrefix);
    table['o'] = integer(8, isUnsigned);
    table['O'] = integer(8, isUnsigned | asLong);
    table['u'] = integer(10, isUnsigned);
    table['x'] = table['X'] = table['p'] = integer(16, isUnsigned | mayHavePrefix);
    table['p'].flags |= asPointer;
    table['e'].kind = table['f'].kind = table['g'].kind = Kind::floating;
    table['E'].kind = table['G'].kind = Kind::floating;
    table['s'].kind = Kind::text;
    table['['].kind = Kind::set;
    table['c'].kind = Kind::character;
    table['n'].kind = Kind::count;
    return table;
}

constexpr std::array<DirectiveCharacter, 256> kDirectiveCharacters = makeDirectiveCharacters();

struct Directive {
    Kind kind = Kind::end;
    int base{};
    unsigned int flags = 0;
    std::size_t width = 0;  // 0: none given
    void* target = nullptr; // target and size: the arguments, if it stores
    int size{};

    bool stores() const { return kind != Kind::percent && !has(isSuppressed); }
    bool has(Flag flag) const { return (flags & flag) != 0; }
    std::size_t widthOr(std::size_t none) const { return width == 0 ? none : width; }
};

// Applies a byte that comes before the conversion; `format` points to the next byte.
void applyModifier(Directive& directive, Byte byte, const Byte*& format)
{
    const DirectiveCharacter& character = kDirectiveCharacters[byte];
    if (character.kind == Kind::widthDigit) {
        directive.width = directive.width * 10 + TX_Digits[byte];
    } else if (character.kind == Kind::doubled && *format == byte) {
        ++format;
        directive.flags |= character.flagsTwice;
    } else if (character.kind != Kind::int64) {
        directive.flags |= character.flags;
    } else if (format[0] == '6' && format[1] == '4') {
        format += 2;
        directive.flags |= character.flags;
    }
}

// Reads the directive after a "%", and moves `format` past the conversion character. The kind is
// Kind::end if the format ends first.
Directive parseDirective(const Byte*& format)
{
    Directive directive;
    Byte byte = *format++;
    while (kDirectiveCharacters[byte].kind < Kind::end) {
        applyModifier(directive, byte, format);
        byte = *format++;
    }
    const DirectiveCharacter& conversion = kDirectiveCharacters[byte];
    directive.kind = conversion.kind;
    directive.base = conversion.base;
    directive.flags |= conversion.flags;
    if (conversion.kind == Kind::unknown && std::isupper(byte) != 0) {
        directive.flags |= asLong;
    }
    return directive;
}

// ---- Stores ------------------------------------------------------------------------------------

struct TargetSize {
    Flag flag;
    std::size_t bytes;
};

constexpr std::size_t k8Bits = sizeof(std::uint8_t);
constexpr std::size_t k16Bits = sizeof(std::uint16_t);
constexpr std::size_t k32Bits = sizeof(std::uint32_t);
constexpr std::size_t k64Bits = sizeof(std::uint64_t);

// The first flag that is set decides.
constexpr TargetSize kNumberSizes[] = {{asPointer, k64Bits},  {asIntMax, k32Bits},
                                       {asLongLong, k64Bits}, {asLong, k32Bits},
                                       {asShort, k16Bits},    {asChar, k8Bits}};
constexpr TargetSize kCountSizes[] = {{asChar, k8Bits},
                                      {asShort, k16Bits},
                                      {asLong, k32Bits},
                                      {asLongLong, k64Bits},
                                      {asIntMax, k64Bits}};

constexpr unsigned int kSizeFlags = asPointer | asIntMax | asLongLong | asLong | asShort | asChar;

template <typename Value>
void store(void* target, Value value)
{
    std::memcpy(target, &value, sizeof value); // the target may be of any type and alignment
}

void storeLowBits(void* target, std::uint64_t value, std::size_t bytes)
{
    switch (bytes) {
    case k8Bits:
        return store(target, static_cast<std::uint8_t>(value));
    case k16Bits:
        return store(target, static_cast<std::uint16_t>(value));
    case k32Bits:
        return store(target, static_cast<std::uint32_t>(value));
    default:
        return store(target, value);
    }
}

template <std::size_t Count>
void storeNumber(const Directive& directive, std::uint64_t value, const TargetSize (&sizes)[Count])
{
    if ((directive.flags & kSizeFlags) == 0) {
        return store(directive.target, static_cast<std::uint32_t>(value));
    }
    const TargetSize* const size =
        std::find_if(std::begin(sizes), std::end(sizes),
                     [&](const TargetSize& one) { return directive.has(one.flag); });
    storeLowBits(directive.target, value, size->bytes);
}

// ---- Sets --------------------------------------------------------------------------------------

using SetTable = std::array<bool, kDirectiveCharacters.size()>; // whether a byte is accepted

// Reads the set of a "%[", and moves `format` past its "]" or to the end of the format.
void readSet(const Byte*& format, SetTable& accepted)
{
    const bool negated = *format == '^';
    if (negated) {
        ++format;
    }
    accepted.fill(negated);
    if (*format == '\0') {
        return;
    }
    unsigned int last = *format++; // a member, even if it is "]" or "-"
    accepted[last] = !negated;
    while (*format != '\0') {
        const Byte next = *format++;
        if (next == ']') {
            return;
        }
        if (next != '-' || *format == ']' || *format < last) {
            last = next; // a single member, also a "-" that makes no range
            accepted[last] = !negated;
            continue;
        }
        const Byte rangeEnd = *format++;
        do { // at least one more member, as in "a-a"
            last = std::min(last + 1, 255u);
            accepted[last] = !negated;
        } while (last < rangeEnd);
    }
}

// ---- Numbers -----------------------------------------------------------------------------------

// Reads the integer at `first` and returns the position after it, or `first` if there is none.
const Byte* readInteger(const Byte* first, const Byte* end, const Directive& directive,
                        TX_Number& number)
{
    const TX_NumberLimits& limits = directive.has(isUnsigned) ? TX_UnsignedLimits : TX_SignedLimits;
    number.negative = *first == '-';
    const Byte* digits = first + (number.negative || *first == '+' ? 1 : 0);
    int base = directive.base;
    if (directive.has(mayHavePrefix)) {
        const bool zero = digits != end && *digits == '0';
        // "0x" without a digit is only "0".
        if (zero && end - digits > 2 && (digits[1] == 'x' || digits[1] == 'X') &&
            TX_Digits[digits[2]] < 16) {
            digits += 2;
            base = 16;
        } else if (base == 0) {
            base = zero ? 8 : 10;
        }
    }
    const Byte* const last = TX_readDigits(digits, end, base, limits, number);
    return last == digits ? first : last;
}

// Advances over the bytes that can belong to a floating-point number.
class NumberReader
{
public:
    NumberReader(const Byte* first, const Byte* end) : m_First(first), m_End(end) {}

    std::size_t length() const { return static_cast<std::size_t>(m_Next - m_First); }

    void shortenTo(std::size_t length) { m_Next = m_First + length; }

    bool skip(Byte one, Byte other)
    {
        if (m_Next == m_End || (*m_Next != one && *m_Next != other)) {
            return false;
        }
        ++m_Next;
        return true;
    }

    bool skipDecimals()
    {
        const Byte* const first = m_Next;
        while (m_Next != m_End && TX_Digits[*m_Next] < 10) {
            ++m_Next;
        }
        return m_Next != first;
    }

private:
    const Byte* m_First;
    const Byte* m_Next = m_First;
    const Byte* m_End;
};

// The length of the floating-point number at `first`, 0 if there is none.
std::size_t floatLength(const Byte* first, const Byte* end)
{
    NumberReader reader(first, end);
    reader.skip('+', '-');
    bool anyDigit = reader.skipDecimals();
    if (reader.skip('.', '.')) {
        anyDigit = reader.skipDecimals() || anyDigit;
    }
    if (!anyDigit) {
        return 0;
    }
    const std::size_t mantissaEnd = reader.length();
    if (reader.skip('e', 'E')) {
        reader.skip('+', '-');
        if (!reader.skipDecimals()) {
            reader.shortenTo(mantissaEnd);
        }
    }
    return reader.length();
}

// ---- The engine --------------------------------------------------------------------------------

// The bytes of a format that are literals in every locale.
constexpr std::array<bool, 256> kPlainLiterals = [] {
    std::array<bool, 256> plain{};
    for (unsigned int byte = 0; byte < plain.size(); ++byte) {
        plain[byte] = TX_isGraphic(static_cast<Byte>(byte)) && byte != '%';
    }
    return plain;
}();

// The length of the literals that the text and the format have in common: the fast path through
// most of a format. Stops at "%", at white space and at bytes that are white space in some locale.
std::size_t equalLength(const Byte* text, std::size_t limit, const Byte* format)
{
    std::size_t length = 0;
    while (length != limit && kPlainLiterals[format[length]] && text[length] == format[length]) {
        ++length;
    }
    return length;
}

enum class Outcome { matched, inputFailure, matchFailure };

class Scanner
{
public:
    explicit Scanner(TX_ScanSource& source)
        : m_Source(source),
          m_First(source.position),
          m_Next(source.position),
          m_End(source.position + std::max(source.remaining, 0))
    {
    }

    Scanner(const Scanner&) = delete;
    Scanner& operator=(const Scanner&) = delete;

    ~Scanner()
    {
        m_Source.position = m_Next;
        m_Source.remaining = static_cast<int>(available());
    }

    int run(const Byte* format, std::va_list arguments);

private:
    std::size_t available() const { return static_cast<std::size_t>(m_End - m_Next); }

    // The last possible end of a field.
    const Byte* fieldLimit(const Directive& directive) const
    {
        return m_Next + std::min(directive.widthOr(available()), available());
    }
    const Byte* numberLimit(const Directive& directive) const
    {
        const std::size_t width = std::min(directive.widthOr(kMaxNumberLength), kMaxNumberLength);
        return m_Next + std::min(width, available());
    }

    Outcome matchPlain(const Byte*& format);
    Outcome matchLiteral(Byte literal);
    const Byte* spaceEnd(const Byte* next) const
    {
        while (next != m_End && TX_isSpace(*next)) {
            ++next;
        }
        return next;
    }
    Outcome convert(const Directive& directive, const Byte*& format);
    Outcome scanCharacter(const Directive& directive);
    Outcome scanString(const Directive& directive);
    Outcome scanSet(const Directive& directive, const Byte*& format);
    Outcome scanInteger(const Directive& directive);
    Outcome scanFloat(const Directive& directive);
    void storeCount(const Directive& directive);
    void storeText(const Directive& directive, std::size_t length);

    TX_ScanSource& m_Source;
    const Byte* m_First;
    const Byte* m_Next;
    const Byte* m_End;
    std::size_t m_Dropped = 0; // bytes of text fields that did not fit; %n does not count them
    int m_Assigned = 0;
};

int Scanner::run(const Byte* format, std::va_list arguments)
{
    while (*format != '\0') {
        Outcome outcome = Outcome::matched;
        if (*format != '%') {
            outcome = matchPlain(format);
        } else {
            Directive directive = parseDirective(++format);
            if (directive.kind == Kind::end) {
                return -1;
            }
            if (directive.stores()) {
                directive.target = va_arg(arguments, void*);
                directive.size = va_arg(arguments, int);
            }
            outcome = convert(directive, format);
        }
        if (outcome != Outcome::matched) {
            return outcome == Outcome::inputFailure && m_Assigned == 0 ? -1 : m_Assigned;
        }
    }
    return m_Assigned;
}

// Matches white space, or one or more literals, at the start of the format.
Outcome Scanner::matchPlain(const Byte*& format)
{
    if (TX_isSpace(*format)) {
        m_Next = spaceEnd(m_Next);
        ++format;
        return Outcome::matched;
    }
    const std::size_t equal = equalLength(m_Next, available(), format);
    if (equal == 0) {
        return matchLiteral(*format++);
    }
    m_Next += equal;
    format += equal;
    return Outcome::matched;
}

Outcome Scanner::matchLiteral(Byte literal)
{
    if (m_Next == m_End) {
        return Outcome::inputFailure;
    }
    if (*m_Next != literal) {
        return Outcome::matchFailure;
    }
    ++m_Next;
    return Outcome::matched;
}

Outcome Scanner::convert(const Directive& directive, const Byte*& format)
{
    if (directive.kind == Kind::percent) {
        return matchLiteral('%');
    }
    if (directive.kind == Kind::count) {
        storeCount(directive);
        return Outcome::matched;
    }
    const bool skipsSpace = directive.kind != Kind::character && directive.kind != Kind::set;
    if (skipsSpace) {
        m_Next = spaceEnd(m_Next);
    }
    if (m_Next == m_End) {
        return Outcome::inputFailure;
    }
    switch (directive.kind) {
    case Kind::character:
        return scanCharacter(directive);
    case Kind::text:
        return scanString(directive);
    case Kind::set:
        return scanSet(directive, format);
    case Kind::floating:
        return scanFloat(directive);
    default:
        return scanInteger(directive);
    }
}

Outcome Scanner::scanCharacter(const Directive& directive)
{
    if (directive.has(isSuppressed)) {
        m_Next += std::min(directive.widthOr(1), available());
        return Outcome::matched;
    }
    store(directive.target, *m_Next++);
    ++m_Assigned;
    return Outcome::matched;
}

// Stores as many of the next `length` bytes as the target has room for, and skips all of them.
void Scanner::storeText(const Directive& directive, std::size_t length)
{
    const auto room = static_cast<std::size_t>(std::max(directive.size, 1) - 1);
    const std::size_t stored = std::min(length, room);
    if (directive.size > 0) {
        char* const target = static_cast<char*>(directive.target);
        std::memmove(target, m_Next, stored); // the target may be in the text
        target[stored] = '\0';
    }
    m_Next += length;
    m_Dropped += length - stored;
    ++m_Assigned;
}

Outcome Scanner::scanString(const Directive& directive)
{
    const Byte* const limit = fieldLimit(directive);
    const Byte* end = m_Next;
    while (limit - end >= 8 && TX_areGraphic(end)) {
        end += 8;
    }
    while (end != limit && !TX_isSpace(*end)) {
        ++end;
    }
    const auto length = static_cast<std::size_t>(end - m_Next);
    if (directive.has(isSuppressed)) {
        m_Next += length;
    } else {
        storeText(directive, length);
    }
    return Outcome::matched;
}

Outcome Scanner::scanSet(const Directive& directive, const Byte*& format)
{
    SetTable accepted;
    readSet(format, accepted);
    const Byte* const end = std::find_if_not(m_Next, fieldLimit(directive),
                                             [&accepted](Byte byte) { return accepted[byte]; });
    const auto length = static_cast<std::size_t>(end - m_Next);
    if (length == 0) {
        return Outcome::matchFailure;
    }
    if (directive.has(isSuppressed)) {
        m_Next += length;
        return Outcome::matched;
    }
    if (directive.size <= 1) {
        // The field is consumed all the same. It is an input failure if the input ended it, and not
        // its width.
        m_Next += length;
        const bool ranOut = m_Next == m_End && length != directive.width;
        return ranOut ? Outcome::inputFailure : Outcome::matchFailure;
    }
    storeText(directive, length);
    return Outcome::matched;
}

Outcome Scanner::scanInteger(const Directive& directive)
{
    TX_Number number;
    const Byte* const end = readInteger(m_Next, numberLimit(directive), directive, number);
    if (end == m_Next) {
        return Outcome::matchFailure;
    }
    if (!directive.has(isSuppressed)) {
        storeNumber(directive, number.bits(), kNumberSizes);
        ++m_Assigned;
    }
    m_Next = end;
    return Outcome::matched;
}

Outcome Scanner::scanFloat(const Directive& directive)
{
    const std::size_t length = floatLength(m_Next, numberLimit(directive));
    if (length == 0) {
        return Outcome::matchFailure;
    }
    if (!directive.has(isSuppressed)) {
        char text[kMaxNumberLength + 1];
        TX_strncpy(text, reinterpret_cast<const char*>(m_Next), length, sizeof text);
        const double value = std::strtod(text, nullptr);
        if (directive.has(asLong) || directive.has(asLongDouble)) {
            store(directive.target, value);
        } else {
            store(directive.target, static_cast<float>(value));
        }
        ++m_Assigned;
    }
    m_Next += length;
    return Outcome::matched;
}

void Scanner::storeCount(const Directive& directive)
{
    if (!directive.has(isSuppressed)) {
        const std::uint64_t read = static_cast<std::size_t>(m_Next - m_First) - m_Dropped;
        storeNumber(directive, read, kCountSizes);
    }
}

} // namespace

int TX_vfscanf(TX_ScanSource* source, const char* format, std::va_list arguments)
{
    if (source == nullptr || format == nullptr) {
        return -1;
    }
    return Scanner(*source).run(reinterpret_cast<const Byte*>(format), arguments);
}
