// CCmnMessage and CCmnIcuMessage: formatting, and the writer and reader of the serialised text.
#include "cmnmessage.h"

#include "TX_sscanf.h"
#include "TX_strings.h"
#include "cmnstringtool.h"

#include <algorithm>
#include <charconv>
#include <climits>
#include <cstdarg>
#include <iterator>
#include <limits>
#include <memory>
#include <new>
#include <string_view>
#include <unicode/msgfmt.h>
#include <unicode/unistr.h>
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
constexpr std::string_view kClosing = "</ARGVALUE>";

struct ArgumentList {
    const Formattable* first = nullptr;
    std::int32_t count = 0;
};

// The getter without a status would read the count of something that is no array.
ArgumentList argumentsOf(const Formattable& array)
{
    ArgumentList list;
    UErrorCode status = U_ZERO_ERROR;
    list.first = array.getArray(list.count, status);
    return list;
}

// ---- Writing -----------------------------------------------------------------------------------

void appendNumber(std::string& text, std::int32_t number)
{
    char digits[std::numeric_limits<std::int32_t>::digits10 + 2];
    text.append(digits, std::to_chars(digits, std::end(digits), number).ptr);
}

// A line of bounded length, so nothing can be cut. There is one for each argument: the general
// formatter would take most of the writer's time.
void appendOpening(std::string& text, std::int32_t index, Formattable::Type type)
{
    text += "\t<ARGVALUE INDEX=";
    appendNumber(text, index);
    text += " TYPE=";
    appendNumber(text, type);
    text += '>';
}

void appendValue(std::string& text, const Formattable& argument)
{
    switch (argument.getType()) {
    case Formattable::kDate:
        text += CCmnStringTool::double2str(argument.getDate());
        break;
    case Formattable::kDouble:
        text += CCmnStringTool::double2str(argument.getDouble());
        break;
    case Formattable::kLong:
        text += CCmnStringTool::int2str(argument.getLong());
        break;
    case Formattable::kString:
        text += CCmnStringTool::ustr2str(argument.getString());
        break;
    default:
        break;
    }
}

// ---- Reading -----------------------------------------------------------------------------------

// A value text and the type code of its tag.
struct ValueText {
    std::int32_t type;
    std::string_view text;
};

constexpr std::int32_t kNoType = -1;

// TX_sscanf on a text whose length is known. TX_sscanf would measure all of the rest for each tag,
// and a text of many tags would take quadratic time.
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

// kNoType if the tag cannot be read up to its type.
std::int32_t scanType(std::string_view tag)
{
    std::int32_t index = 0;
    std::int32_t type = kNoType;
    scan(tag, "<ARGVALUE INDEX=%d TYPE=%d>", &index, static_cast<int>(sizeof index), &type,
         static_cast<int>(sizeof type));
    return type;
}

bool isCarried(std::int32_t type)
{
    return type >= Formattable::kDate && type <= Formattable::kString;
}

// Walks on from tag to tag. No part of the text is searched twice: a marker that is not found ends
// the walk.
std::vector<ValueText> findValues(std::string_view rest)
{
    std::vector<ValueText> values;
    for (;;) {
        const std::size_t opening = rest.find(kOpeningMarker);
        if (opening == std::string_view::npos)
            return values;
        rest.remove_prefix(opening);
        const std::int32_t type = scanType(rest);
        const std::size_t tagEnd = rest.find('>');
        if (tagEnd == std::string_view::npos)
            return values;
        rest.remove_prefix(tagEnd + 1);
        const std::size_t length = std::min(rest.find('<'), rest.size());
        if (isCarried(type))
            values.push_back({type, rest.substr(0, length)});
        rest.remove_prefix(std::min(length + kClosing.size(), rest.size()));
    }
}

void readValue(Formattable& argument, const ValueText& value)
{
    const std::string text(value.text);
    switch (value.type) {
    case Formattable::kLong:
        argument.setLong(CCmnStringTool::str2int(text));
        break;
    case Formattable::kString:
        argument.setString(CCmnStringTool::str2ustr(text));
        break;
    default: // a date comes back as the double that it was written as
        argument.setDouble(CCmnStringTool::str2double(text));
        break;
    }
}

// The list is made in its place: an array that Formattable copies would copy each string twice.
void readValues(Formattable& array, const std::vector<ValueText>& values)
{
    auto arguments = std::make_unique<Formattable[]>(values.size());
    if (!arguments)
        throw std::bad_alloc(); // ICU's operator new gives null
    for (std::size_t i = 0; i < values.size(); ++i)
        readValue(arguments[i], values[i]);
    array.adoptArray(arguments.release(), static_cast<std::int32_t>(values.size()));
}

} // namespace

CCmnMessage::CCmnMessage(const char* msgId, tarnix_eseverity severity, const char* file, int line)
    : m_MessageId(msgId), m_Severity(severity), m_File(file), m_Line(line)
{
}

CCmnIcuMessage::CCmnIcuMessage(const char* msgId, const Formattable* args, int count,
                               tarnix_eseverity severity, const char* file, int line)
    : CCmnMessage(msgId, severity, file, line), m_Arguments(args, std::max(count, 0))
{
}

CCmnIcuMessage::CCmnIcuMessage(const SCmnMessageInfo* info)
{
    CCmnIcuMessage::deserialize(info);
}

CCmnIcuMessage::CCmnIcuMessage(const CCmnIcuMessage& other)
    : CCmnMessage(other),
      m_Arguments(other.m_Arguments),
      m_Info(other.m_Info),
      m_Serialized(other.m_Serialized)
{
    ownRecord();
}

CCmnIcuMessage& CCmnIcuMessage::operator=(const CCmnIcuMessage& other)
{
    CCmnMessage::operator=(other);
    m_Arguments = other.m_Arguments;
    m_Info = other.m_Info;
    m_Serialized = other.m_Serialized;
    ownRecord();
    return *this;
}

CCmnIcuMessage::~CCmnIcuMessage() = default;

// A copied record points to the text of its source, which may go first.
void CCmnIcuMessage::ownRecord()
{
    if (m_Info.text)
        m_Info.text = m_Serialized.c_str();
}

const SCmnMessageInfo* CCmnIcuMessage::serialize()
{
    const ArgumentList arguments = argumentsOf(m_Arguments);
    std::string text;
    if (arguments.count > 0) {
        char line[kHeaderSize];
        TX_snprintf(line, sizeof line, "<SERIALIZED_MESSAGE MSGID=%s SEVERITY=%d>\n",
                    m_MessageId.c_str(), m_Severity);
        text += line;
        for (std::int32_t i = 0; i < arguments.count; ++i) {
            appendOpening(text, i, arguments.first[i].getType());
            appendValue(text, arguments.first[i]);
            text.append(kClosing) += '\n';
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
    if (header == std::string_view::npos)
        return;
    rest.remove_prefix(header);

    char id[kIdSize];
    std::int32_t severity = m_Severity;
    if (scan(rest, "<SERIALIZED_MESSAGE MSGID=%s SEVERITY=%d>", id, kIdSize, &severity,
             static_cast<int>(sizeof severity)) > 0)
        m_MessageId = id;
    m_Severity = static_cast<tarnix_eseverity>(severity);

    rest.remove_prefix(std::min(rest.find('>'), rest.size()));
    readValues(m_Arguments, findValues(rest));
}

tstr CCmnIcuMessage::formatMessage(tstr pattern)
{
    const ArgumentList arguments = argumentsOf(m_Arguments);
    icu::UnicodeString output;
    UErrorCode status = U_ZERO_ERROR;
    icu::MessageFormat::format(CCmnStringTool::tstr2ustr(pattern), arguments.first, arguments.count,
                               output, status);
    if (U_FAILURE(status) && output.isEmpty())
        return pattern;
    return CCmnStringTool::ustr2tstr(output);
}

} // namespace tarnix_cmn_4_4
