// SPDX-License-Identifier: LicenseRef-Tarnix
// CCmnMessage and CCmnIcuMessage: formatting, and the writer and reader of the serialised text.
#include "TX_sscanf.h"
#include "TX_strings.h"
#include "cmnlanguages.h"
#include "cmnmessage.h"
#include "cmnpattern.h"
#include "cmnstringtool.h"
#include "cmntstr.h"
#include "cmnutf16.h"
#include "platform_text.h"

#include <unicode/locid.h>
#include <unicode/msgfmt.h>
#include <unicode/unistr.h>

#include <algorithm>
#include <cctype>
#include <charconv>
#include <climits>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cwchar>
#include <iterator>
#include <memory>
#include <new>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

namespace tarnix_cmn_4_4
{
namespace
{

using icu::Formattable;

constexpr std::size_t kHeaderSize = 1024; // of the header that is written; a longer one is cut
constexpr int kIdSize = 1024;             // of an id that is read; a longer one is cut

constexpr std::string_view kHeaderMarker = "<SERIALIZED_MESSAGE";
constexpr std::string_view kOpeningMarker = "<ARGVALUE";
constexpr std::string_view kArgumentEnd = "</ARGVALUE>\n";
constexpr std::size_t kClosingSize = kArgumentEnd.size() - 1; // without the newline

struct ArgumentList {
    const Formattable* begin() const { return first; }
    const Formattable* end() const { return first + count; }

    const Formattable* first;
    std::int32_t count;
};

// The overload of getArray without a status would read the count of a value that is not an array.
ArgumentList argumentsOf(const Formattable& array)
{
    ArgumentList list{};
    UErrorCode status = U_ZERO_ERROR;
    list.first = array.getArray(list.count, status);
    return list;
}

// ---- Writing -----------------------------------------------------------------------------------

// A text of bounded length that is built on the stack. There is one for each argument, and the
// general formatter or many small appends would take most of the time of serialize.
class Piece
{
public:
    void add(std::string_view text) { m_End = std::copy(text.begin(), text.end(), m_End); }

    void add(std::int32_t number) { m_End = std::to_chars(m_End, std::end(m_Text), number).ptr; }

    // As "%g", in which only the decimal point depends on the locale.
    void add(double number)
    {
        if (isPointDecimal()) {
            m_End =
                std::to_chars(m_End, std::end(m_Text), number, std::chars_format::general, 6).ptr;
        } else {
            add(CCmnStringTool::double2str(number));
        }
    }

    std::string_view text() const { return {m_Text, static_cast<std::size_t>(m_End - m_Text)}; }

private:
    char m_Text[UINT8_MAX]; // room for the tags with a number of 64 characters
    char* m_End = m_Text;
};

// Adds nothing for an argument of another type.
void addNumber(Piece& piece, const Formattable& argument)
{
    switch (argument.getType()) {
    case Formattable::kDate:
        piece.add(argument.getDate());
        break;
    case Formattable::kDouble:
        piece.add(argument.getDouble());
        break;
    case Formattable::kLong:
        piece.add(argument.getLong());
        break;
    default:
        break;
    }
}

void appendArgument(std::string& text, std::int32_t index, const Formattable& argument)
{
    Piece piece;
    piece.add("\t<ARGVALUE INDEX=");
    piece.add(index);
    piece.add(" TYPE=");
    piece.add(static_cast<std::int32_t>(argument.getType()));
    piece.add(">");
    if (argument.getType() == Formattable::kString) {
        text += piece.text();
        appendUtf8(text, argument.getString());
        text += kArgumentEnd;
        return;
    }
    addNumber(piece, argument);
    piece.add(kArgumentEnd);
    text += piece.text();
}

// The estimated length of the text, to reserve it: growing a long text step by step takes more time
// than writing it.
std::size_t estimatedSize(const ArgumentList& arguments)
{
    constexpr std::size_t usualArgument =
        sizeof "\t<ARGVALUE INDEX=10 TYPE=2>12345678</ARGVALUE>\n";
    std::size_t size = sizeof "<SERIALIZED_MESSAGE MSGID=disk.partition.is.full SEVERITY=2>\n"
                              "</SERIALIZED_MESSAGE>\n";
    for (const Formattable& argument : arguments) {
        const bool isText = argument.getType() == Formattable::kString;
        size +=
            usualArgument + (isText ? static_cast<std::size_t>(argument.getString().length()) : 0);
    }
    return size;
}

// ---- Reading -----------------------------------------------------------------------------------

// A value text and the type code of its tag.
struct ValueText {
    std::int32_t type;
    std::string_view text;
};

// TX_sscanf for a text of known length. TX_sscanf would measure the rest of the text for each tag,
// which takes quadratic time.
int scan(std::string_view text, const char* format, ...)
{
    const std::size_t length = std::min<std::size_t>(text.size(), INT_MAX);
    TX_ScanSource source = {reinterpret_cast<const unsigned char*>(text.data()),
                            static_cast<int>(length), TX_ScanLoaded};
    std::va_list arguments;
    va_start(arguments, format);
    const int result = TX_vfscanf(&source, format, arguments);
    va_end(arguments);
    return result;
}

bool skip(std::string_view& text, std::string_view start)
{
    if (text.substr(0, start.size()) != start) {
        return false;
    }
    text.remove_prefix(start.size());
    return true;
}

// Empty, and the text unchanged, if it does not start with a number that fits.
std::optional<std::int32_t> readNumber(std::string_view& text)
{
    std::int32_t number = 0;
    const auto [next, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc()) {
        return {};
    }
    text.remove_prefix(static_cast<std::size_t>(next - text.data()));
    return number;
}

// That of an object if the tag has no readable type. First tries the format that serialize writes;
// the scanner also accepts other white space and signs.
std::int32_t readType(std::string_view tag)
{
    // The scanner reads no more than 512 characters of a number: it is left to decide about those.
    std::string_view rest = tag.substr(0, UINT8_MAX);
    if (skip(rest, "<ARGVALUE INDEX=") && readNumber(rest) && skip(rest, " TYPE=")) {
        const std::optional<std::int32_t> number = readNumber(rest);
        if (number && skip(rest, ">")) {
            return *number;
        }
    }
    std::int32_t type = Formattable::kObject;
    scan(tag, "<ARGVALUE INDEX=%*d TYPE=%d>", &type, static_cast<int>(sizeof type));
    return type;
}

bool isSupportedType(std::int32_t type)
{
    return type >= Formattable::kDate && type <= Formattable::kString;
}

// Goes from tag to tag in linear time: no part of the text is searched twice, and a missing marker
// ends the loop.
std::vector<ValueText> findValues(std::string_view rest)
{
    std::vector<ValueText> values;
    for (;;) {
        const std::size_t opening = rest.find(kOpeningMarker);
        if (opening == std::string_view::npos) {
            return values;
        }
        rest.remove_prefix(opening);
        const std::int32_t type = readType(rest);
        const std::size_t tagEnd = rest.find('>');
        if (tagEnd == std::string_view::npos) {
            return values;
        }
        rest.remove_prefix(tagEnd + 1);
        const std::size_t length = std::min(rest.find('<'), rest.size());
        if (isSupportedType(type)) {
            values.push_back({type, rest.substr(0, length)});
        }
        rest.remove_prefix(std::min(length + kClosingSize, rest.size()));
    }
}

// atoi also accepts what from_chars rejects: white space, a plus sign, and too many digits.
std::int32_t readLong(std::string_view text)
{
    const std::optional<std::int32_t> number = readNumber(text);
    return number ? *number : CCmnStringTool::str2int(std::string(text));
}

// from_chars gives the result of atof only if it reads the whole text, if the text ends with a
// digit, and if the decimal point of the locale is ".".
double readDouble(std::string_view text)
{
    double number = 0;
    const char* const end = text.data() + text.size();
    const auto [next, error] = std::from_chars(text.data(), end, number);
    const bool isWhole = error == std::errc() && next == end;
    const bool endsWithDigit = isWhole && std::isdigit(static_cast<unsigned char>(end[-1])) != 0;
    return endsWithDigit && isPointDecimal() ? number
                                             : CCmnStringTool::str2double(std::string(text));
}

// As Formattable::setString, which leaves the argument without a text if allocation fails.
void setText(Formattable& argument, icu::UnicodeString text)
{
    auto owned = std::make_unique<icu::UnicodeString>(std::move(text));
    if (!owned) {
        throw std::bad_alloc(); // ICU's operator new returns null
    }
    argument.adoptString(owned.release());
}

void readValue(Formattable& argument, const ValueText& value)
{
    switch (value.type) {
    case Formattable::kLong:
        argument.setLong(readLong(value.text));
        break;
    case Formattable::kString:
        setText(argument, fromUtf8(value.text));
        break;
    default: // a date is written and read as a double
        argument.setDouble(readDouble(value.text));
        break;
    }
}

// An array that is complete before a Formattable adopts it, which cannot fail: a message changes
// after the last allocation. If Formattable copied an array, each string would be copied once more.
struct OwnedArguments {
    explicit OwnedArguments(std::size_t size)
        : first(std::make_unique<Formattable[]>(size)), count(static_cast<std::int32_t>(size))
    {
        if (!first) {
            throw std::bad_alloc(); // ICU's operator new returns null
        }
    }

    void moveTo(Formattable& array) { array.adoptArray(first.release(), count); }

    std::unique_ptr<Formattable[]> first;
    std::int32_t count;
};

OwnedArguments readValues(const std::vector<ValueText>& values)
{
    OwnedArguments arguments(values.size());
    Formattable* argument = arguments.first.get();
    for (const ValueText& value : values) {
        readValue(*argument++, value);
    }
    return arguments;
}

// ---- Copying -----------------------------------------------------------------------------------

// As the copies of Formattable, which do not check whether allocation failed.
OwnedArguments copyOf(const ArgumentList& list);

void copyText(Formattable& argument, const icu::UnicodeString& text)
{
    icu::UnicodeString copy(text);
    if (copy.isBogus() && !text.isBogus()) {
        throw std::bad_alloc();
    }
    setText(argument, std::move(copy));
}

void copyValue(Formattable& argument, const Formattable& source)
{
    if (source.getType() == Formattable::kString) {
        copyText(argument, source.getString());
    } else if (source.getType() == Formattable::kArray) {
        copyOf(argumentsOf(source)).moveTo(argument);
    } else {
        argument = source;
    }
}

OwnedArguments copyOf(const ArgumentList& list)
{
    OwnedArguments arguments(static_cast<std::size_t>(list.count));
    Formattable* copy = arguments.first.get();
    for (const Formattable& source : list) {
        copyValue(*copy++, source);
    }
    return arguments;
}

// ---- Formatting --------------------------------------------------------------------------------

// Whether MessageFormat would return the pattern unchanged. Outside of an argument, only braces and
// apostrophes have a meaning for ICU. Zeros, surrogates and units that are not code points are
// changed by the conversion, and so is a text that is too long for ICU, so only short texts are
// checked.
bool formatsToItself(const tstr& pattern)
{
    const wchar_t* const units = pattern.c_str();
    const std::size_t length = pattern.length();
    if (length > BUFSIZ ||
        (std::wmemchr(units, L'{', length) != nullptr)) { // true for nearly all patterns
        return false;
    }
    wchar_t found = 0; // no early exit, so that the compiler can vectorize the loop
    for (std::size_t i = 0; i < length; ++i) {
        const wchar_t unit = units[i];
        found |= unit <= 0 || unit >= 0xD800 || unit == L'}' || unit == L'\'';
    }
    return found == 0;
}

// What formatInLanguage passes through the virtual formatMessage, which has no argument for it and
// may be overridden. Null for ICU's default locale.
thread_local const icu::Locale* t_locale = nullptr;

class LocaleInUse
{
public:
    explicit LocaleInUse(const icu::Locale& locale) { t_locale = &locale; }
    ~LocaleInUse() { t_locale = m_Outer; }
    LocaleInUse(const LocaleInUse&) = delete;
    LocaleInUse& operator=(const LocaleInUse&) = delete;

private:
    const icu::Locale* const m_Outer = t_locale;
};

// ICU looks for the data of a locale in files whose names contain its name. For a language without
// data it would take the conventions of its default locale.
icu::Locale conventionsOf(const std::string& language)
{
    const bool isPath = language.find_first_of("/\\") != std::string::npos;
    const icu::Locale locale(language.c_str());
    return isPath || !hasConventions(language) ? icu::Locale::getRoot() : locale;
}

void format(const icu::UnicodeString& pattern, const ArgumentList& arguments,
            icu::UnicodeString& output, UErrorCode& status)
{
    if (t_locale == nullptr) {
        icu::MessageFormat::format(pattern, arguments.first, arguments.count, output, status);
        return;
    }
    const icu::MessageFormat formatter(pattern, *t_locale, status);
    icu::FieldPosition position(icu::FieldPosition::DONT_CARE);
    formatter.format(arguments.first, arguments.count, output, position, status);
}

} // namespace

CCmnMessage::CCmnMessage(const char* msgId, tarnix_eseverity severity, const char* file, int line)
    : m_MessageId(msgId), m_Severity(severity), m_File(file), m_Line(line)
{
}

tstr CCmnMessage::formatInLanguage(tstr pattern, const std::string& language)
{
    const icu::Locale locale = conventionsOf(language);
    const LocaleInUse inUse(locale);
    return formatMessage(taken(pattern));
}

CCmnIcuMessage::CCmnIcuMessage(const char* msgId, const Formattable* args, int count,
                               tarnix_eseverity severity, const char* file, int line)
    : CCmnMessage(msgId, severity, file, line)
{
    copyOf({args, std::max(count, 0)}).moveTo(m_Arguments);
}

CCmnIcuMessage::CCmnIcuMessage(const SCmnMessageInfo* info)
{
    CCmnIcuMessage::deserialize(info);
}

CCmnIcuMessage::CCmnIcuMessage(const CCmnIcuMessage& other)
    : CCmnMessage(other), m_Info(other.m_Info), m_Serialized(other.m_Serialized)
{
    copyOf(argumentsOf(other.m_Arguments)).moveTo(m_Arguments);
    ownRecord();
}

CCmnIcuMessage& CCmnIcuMessage::operator=(const CCmnIcuMessage& other)
{
    OwnedArguments arguments = copyOf(argumentsOf(other.m_Arguments));
    std::string id = other.m_MessageId;
    std::string file = other.m_File;
    std::string serialized = other.m_Serialized;
    // From here on nothing fails.
    CCmnRefCount::operator=(other);
    m_MessageId.swap(id);
    m_Severity = other.m_Severity;
    m_File.swap(file);
    m_Line = other.m_Line;
    arguments.moveTo(m_Arguments);
    m_Info = other.m_Info;
    m_Serialized.swap(serialized);
    ownRecord();
    return *this;
}

CCmnIcuMessage::~CCmnIcuMessage() = default;

// A copied record points to the text of its source, which may be destroyed first.
void CCmnIcuMessage::ownRecord()
{
    if (m_Info.text != nullptr) {
        m_Info.text = m_Serialized.c_str();
    }
}

const SCmnMessageInfo* CCmnIcuMessage::serialize()
{
    const ArgumentList arguments = argumentsOf(m_Arguments);
    std::string text;
    if (arguments.count != 0) {
        text.reserve(estimatedSize(arguments));
        char line[kHeaderSize];
        TX_snprintf(line, sizeof line, "<SERIALIZED_MESSAGE MSGID=%s SEVERITY=%d>\n",
                    m_MessageId.c_str(), m_Severity);
        text += line;
        std::int32_t index = 0;
        for (const Formattable& argument : arguments) {
            appendArgument(text, index++, argument);
        }
        text += "</SERIALIZED_MESSAGE>\n";
    }
    m_Serialized = std::move(text);
    m_Info.text = m_Serialized.c_str();
    m_Info.length = static_cast<std::uint32_t>(m_Serialized.size());
    return &m_Info;
}

void CCmnIcuMessage::deserialize(const SCmnMessageInfo* info)
{
    std::string_view rest = info->text;
    const std::size_t header = rest.find(kHeaderMarker);
    if (header == std::string_view::npos) {
        return;
    }
    rest.remove_prefix(header);

    char token[kIdSize];
    std::int32_t severity = m_Severity;
    const bool hasId = scan(rest, "<SERIALIZED_MESSAGE MSGID=%s SEVERITY=%d>", token, kIdSize,
                            &severity, static_cast<int>(sizeof severity)) > 0;
    std::string id = hasId ? token : m_MessageId;
    rest.remove_prefix(std::min(rest.find('>'), rest.size()));
    OwnedArguments arguments = readValues(findValues(rest));
    // From here on nothing fails.
    m_MessageId.swap(id);
    m_Severity = static_cast<tarnix_eseverity>(severity);
    arguments.moveTo(m_Arguments);
}

tstr CCmnIcuMessage::formatMessage(tstr pattern)
{
    tstr result;
    if (formatsToItself(pattern) || nestsDeeper(pattern, kMaxNesting)) {
        assign(result, pattern); // a copy, because a tstr can refer to a text of the caller
        return result;
    }
    const ArgumentList arguments = argumentsOf(m_Arguments);
    char16_t room[kUtf16Piece];
    icu::UnicodeString output(room, 0, kUtf16Piece); // in `room` as long as that is enough
    UErrorCode status = U_ZERO_ERROR;
    format(CCmnStringTool::tstr2ustr(pattern), arguments, output, status);
    if (U_SUCCESS(status) || !output.isEmpty()) {
        appendWide(result, output);
    } else {
        assign(result, pattern);
    }
    return result;
}

} // namespace tarnix_cmn_4_4
