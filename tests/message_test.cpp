// Messages: what formatting makes of a pattern, what the serialised text is, and what the reader
// makes of texts that the writer did not write.
#include "cmnmessage.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdio>
#include <memory>
#include <random>
#include <string>
#include <utility>
#include <vector>

using namespace tarnix_cmn_4_4;
using icu::Formattable;
using icu::UnicodeString;

namespace
{

constexpr auto kSeverity = static_cast<tarnix_eseverity>(7);

CCmnIcuMessage makeMessage(const std::vector<Formattable>& arguments, const char* id = "an.id",
                           tarnix_eseverity severity = kSeverity)
{
    return CCmnIcuMessage(id, arguments.data(), static_cast<int>(arguments.size()), severity,
                          "some.cpp", 12);
}

CCmnIcuMessage readMessage(const std::string& text)
{
    const SCmnMessageInfo info{text.c_str(), 0};
    return CCmnIcuMessage(&info);
}

// Id, severity, and each argument as type, colon, value text and semicolon.
std::string contentOf(CCmnIcuMessage message)
{
    const std::string text = message.serialize()->text;
    std::string content =
        message.getMessageId() + " " + std::to_string(message.getSeverity()) + " ";
    for (std::size_t place = 0; (place = text.find(" TYPE=", place)) != std::string::npos;) {
        const std::size_t type = place + 6;
        place = text.find('<', type);
        content += text.substr(type, 1) + ":" + text.substr(type + 2, place - type - 2) + ";";
    }
    return content;
}

// The header line and the opening of an argument, as the writer writes them.
std::string header(const std::string& id, int severity)
{
    return "<SERIALIZED_MESSAGE MSGID=" + id + " SEVERITY=" + std::to_string(severity) + ">\n";
}
std::string opening(int index, int type)
{
    return "\t<ARGVALUE INDEX=" + std::to_string(index) + " TYPE=" + std::to_string(type) + ">";
}

TEST(Message, Format)
{
    CCmnIcuMessage message = makeMessage({UnicodeString(u"/v\U0001F600"), 97, 2.5});
    CCmnIcuMessage bare = makeMessage({});
    CCmnIcuMessage unset = readMessage("");
    const struct {
        CCmnIcuMessage& message;
        const wchar_t* pattern;
        const wchar_t* text;
    } cases[] = {
        {message, L"", L""},
        {message, L"app: {0}: {1}% \U0001F600, {2}", L"app: /v\U0001F600: 97% \U0001F600, 2.5"},
        {message, L"it''s '{0}' {1,plural,one{one}other{# files}}", L"it's {0} 97 files"},
        {message, L"{3} of {1}", L"{3} of 97"},
        {message, L"app: {0", L"app: {0"},             // refused
        {message, L"{0} {what", L"{0} {what"},         // refused
        {message, L"app: {0,date} more", L"app: "},    // a text is no date
        {message, L"{0,date} more", L"{0,date} more"}, // nothing before the failure
        {bare, L"it''s '{0}' {0}", L"it's {0} {0}"},
        {unset, L"{0}", L"{0}"},
    };
    for (const auto& c : cases)
        EXPECT_STREQ(c.message.formatMessage(c.pattern).c_str(), c.text) << c.pattern;
}

TEST(Message, OwnsWhatItHolds)
{
    auto source = std::make_unique<CCmnIcuMessage>(makeMessage({UnicodeString(u"first"), 1}));
    const SCmnMessageInfo* const record = source->serialize();
    const std::string text = record->text;
    EXPECT_EQ(record->length, text.size());
    source->addRef();
    CCmnIcuMessage copy(*source);
    CCmnIcuMessage assigned = makeMessage({});
    const SCmnMessageInfo* const assignedRecord = assigned.serialize();
    assigned = *source;
    const SCmnMessageInfo other{"<SERIALIZED_MESSAGE MSGID=new SEVERITY=1>", 0};
    source->deserialize(&other);
    EXPECT_EQ(record->text, text); // until the next serialize
    EXPECT_EQ(source->serialize(), record);
    EXPECT_STREQ(record->text, "");
    EXPECT_EQ(record->length, 0U);
    source.reset();
    EXPECT_EQ(assignedRecord->text, text); // not its source's, which is gone

    for (CCmnIcuMessage* message : {&copy, &assigned}) {
        EXPECT_EQ(message->getRefCount(), 1);
        EXPECT_EQ(message->getFile() + std::to_string(message->getLine()), "some.cpp12");
        EXPECT_EQ(message->serialize()->text, text);
        message->deserialize(message->serialize()); // its own text
        EXPECT_EQ(contentOf(*message), "an.id 7 3:first;2:1;");
    }
}

TEST(Message, SerializedText)
{
    const Formattable inner[] = {1, 2};
    CCmnIcuMessage message = makeMessage({Formattable(86400000.0, Formattable::kIsDate), 1.0 / 3,
                                          INT_MIN, UnicodeString(u"a\t<>&\n\u00E4\U0001F600"),
                                          Formattable(inner, 2), Formattable(std::int64_t{1} << 40),
                                          UnicodeString(char16_t{0xD800}), UnicodeString()});
    EXPECT_EQ(message.serialize()->text,
              header("an.id", 7) + opening(0, 0) + "8.64e+07</ARGVALUE>\n" + opening(1, 1) +
                  "0.333333</ARGVALUE>\n" + opening(2, 2) + "-2147483648</ARGVALUE>\n" +
                  opening(3, 3) + "a\t<>&\n\xC3\xA4\xF0\x9F\x98\x80</ARGVALUE>\n" + opening(4, 4) +
                  "</ARGVALUE>\n" + opening(5, 5) + "</ARGVALUE>\n" + opening(6, 3) +
                  "</ARGVALUE>\n" + opening(7, 3) + "</ARGVALUE>\n</SERIALIZED_MESSAGE>\n");
    EXPECT_EQ(contentOf(readMessage(message.serialize()->text)),
              "an.id 7 1:8.64e+07;1:0.333333;2:-2147483648;3:a\t;3:;3:;");
}

// The header line has room for an id of 985 bytes less the digits of the severity.
TEST(Message, LongIds)
{
    for (const int severity : {3, INT_MIN}) {
        const std::string id(986 - std::to_string(severity).size(), 'x');
        const auto code = static_cast<tarnix_eseverity>(severity);
        CCmnIcuMessage cut = makeMessage({5}, id.c_str(), code);
        EXPECT_EQ(cut.serialize()->text, header(id, severity).substr(0, 1023) + opening(0, 2) +
                                             "5</ARGVALUE>\n</SERIALIZED_MESSAGE>\n");
        CCmnIcuMessage fits = makeMessage({5}, id.c_str() + 1, code);
        EXPECT_EQ(contentOf(readMessage(fits.serialize()->text)), contentOf(fits));
    }
    EXPECT_EQ(contentOf(readMessage(header(std::string(1500, 'x'), 4))),
              std::string(1023, 'x') + " 4 ");
}

TEST(Message, DamagedTexts)
{
    const std::string head = header("id", 5);
    const std::string five = opening(0, 2) + "5</ARGVALUE>";
    const struct {
        std::string text;
        const char* content;
    } cases[] = {
        {"", "old 7 2:1;"},
        {" \n<x>" + head + five, "id 5 2:5;"},
        {"<SERIALIZED_MESSAGE", "old 7 "},
        {"<SERIALIZED_MESSAGE>" + five, "old 7 2:5;"},
        {"<SERIALIZED_MESSAGE \t MSGID=\n id \n SEVERITY= +5" + five, "id 5 "},
        {"<SERIALIZED_MESSAGE MSGID=id", "id 7 "},
        {"<SERIALIZED_MESSAGE MSGID=a b SEVERITY=5>" + five, "a 7 2:5;"},
        {header("", 5) + five, "SEVERITY=5> 7 2:5;"},
        {header("a>b<ARGVALUE", 5) + five, "a>b<ARGVALUE 5 "},
        {head + opening(0, 2) + "12", "id 5 2:12;"},
        {head + opening(0, 3) + "a<12345678" + five, "id 5 3:a;"}, // half of the tag is dropped
        {head + opening(0, 3) + "a<123456789" + five, "id 5 3:a;2:5;"},
        {head + opening(0, 3) + "a</ARGVALUE", "id 5 3:a;"},
        {head + opening(9, 3) + "</NOT.THIS>" + opening(-3, 2) + "<" + five, "id 5 3:;2:0;"},
        {head + opening(0, 4) + "x</ARGVALUE>" + opening(0, -1) + "</ARGVALUE>" + five,
         "id 5 2:5;"},
        {head + "<ARGVALUE INDEX=0 TYPE=x>6</ARGVALUE>" + five, "id 5 2:5;"},
        {head + "<ARGVALUEINDEX= 0TYPE=\n2 x='y'>6</ARGVALUE>", "id 5 2:6;"},
        {head + five + "<ARGVALUE INDEX=0 TYPE=2", "id 5 2:5;"},
        {head + "<ARGVALUE INDEX=0 " + five + "7>8", "id 5 "},
        {head + opening(0, 2) + " -12abc</ARGVALUE>" + opening(0, 0) + "1e3x",
         "id 5 2:-12;1:1000;"},
        {head + opening(0, 3) + "\xFF</ARGVALUE>" + opening(0, 3) + "a>\t\n", "id 5 3:;3:a>\t\n;"},
    };
    for (const auto& c : cases) {
        CCmnIcuMessage message = makeMessage({1}, "old");
        const SCmnMessageInfo info{c.text.c_str(), 0};
        message.deserialize(&info);
        EXPECT_EQ(contentOf(message), c.content) << c.text;
        EXPECT_EQ(message.getLine(), 12);
    }
}

// Texts that a reader which goes back, or measures or moves the rest at each step, does not finish.
TEST(Message, HostileTextsTakeLinearTime)
{
    constexpr int times = 1'000'000;
    const std::pair<const char*, int> cases[] = {
        {"<ARGVALUE INDEX=0 TYPE=2>", times / 2}, // every other one is taken for a closing tag
        {"<ARGVALUE INDEX=0 TYPE=3></ARGVALUE>", times},
        {"<ARGVALUE INDEX=0 TYPE=2", 0},
        {"<ARGVALUE >", 0},
        {"<SERIALIZED_MESSAG", 0},
        {"                ", 0},
    };
    for (const auto& [repeated, arguments] : cases) {
        std::string text = header("id", 5);
        for (int i = 0; i < times; ++i)
            text += repeated;
        CCmnIcuMessage message = readMessage(text);
        const std::string back = message.serialize()->text;
        EXPECT_EQ(std::count(back.begin(), back.end(), '\t'), arguments) << repeated;
        EXPECT_EQ(contentOf(readMessage(text.substr(1))), " 0 ");
    }
}

TEST(Message, RoundTrip)
{
    std::mt19937 random(20260);
    const auto number = [&random](int least, int most) {
        return std::uniform_int_distribution<int>(least, most)(random);
    };
    const std::u32string alphabet = U"<>&\"'\t\n\r {}/=%ab\u00E4\u3042\uFFFF\U0001F600";
    for (int round = 0; round < 100'000; ++round) {
        std::string id;
        for (int length = number(1, 40); length > 0; --length)
            id += static_cast<char>(number('!', '~'));
        const auto severity = static_cast<tarnix_eseverity>(number(INT_MIN, INT_MAX));
        std::string expected = id + " " + std::to_string(severity) + " ";
        std::vector<Formattable> arguments{Formattable(nullptr, 0)}; // is not carried
        for (int count = number(1, 5); count > 0; --count) {
            const int integer = number(INT_MIN, INT_MAX);
            const double real = std::ldexp(integer, number(-200, 200));
            char digits[32];
            std::snprintf(digits, sizeof digits, "1:%g;", real);
            UnicodeString text;
            for (int length = number(0, 12); length > 0; --length)
                text.append(static_cast<UChar32>(alphabet[random() % alphabet.size()]));
            std::string bytes;
            text.toUTF8String(bytes);
            const struct {
                Formattable argument;
                std::string expected;
            } kinds[] = {{Formattable(real, Formattable::kIsDate), digits},
                         {Formattable(real), digits},
                         {Formattable(integer), "2:" + std::to_string(integer) + ";"},
                         {Formattable(text), "3:" + bytes.substr(0, bytes.find('<')) + ";"}};
            const auto& kind = kinds[number(0, 3)];
            arguments.push_back(kind.argument);
            expected += kind.expected;
        }
        CCmnIcuMessage message = makeMessage(arguments, id.c_str(), severity);
        ASSERT_EQ(contentOf(readMessage(message.serialize()->text)), expected);
    }
}

} // namespace
