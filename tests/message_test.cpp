// Messages: what formatting makes of a pattern, what the serialised text is, and what the reader
// makes of texts that the writer did not write.
#include "cmnmessage.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <random>

using namespace tarnix_cmn_4_4;
using icu::Formattable;
using icu::UnicodeString;

namespace
{

CCmnIcuMessage makeMessage(const std::vector<Formattable>& arguments, const char* id = "an.id",
                           int severity = 7)
{
    return CCmnIcuMessage(id, arguments.data(), static_cast<int>(arguments.size()),
                          static_cast<tarnix_eseverity>(severity), "some.cpp", 12);
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
    std::string all = message.getMessageId() + " " + std::to_string(message.getSeverity()) + " ";
    for (std::size_t at = 0; (at = text.find(" TYPE=", at)) != std::string::npos;) {
        const std::size_t value = at + 8;
        at = text.find('<', value);
        all += text.substr(value - 2, 1) + ":" + text.substr(value, at - value) + ";";
    }
    return all;
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
const std::string kEnd = "</ARGVALUE>";

TEST(Message, Format)
{
    CCmnIcuMessage message = makeMessage({UnicodeString(u"/v\U0001F600"), 97, 2.5});
    const std::pair<const wchar_t*, const wchar_t*> cases[] = {
        {L"app: {0}: {1}% \U0001F600, {2}", L"app: /v\U0001F600: 97% \U0001F600, 2.5"},
        {L"it''s '{0}' {1,plural,one{one}other{# files}}", L"it's {0} 97 files"},
        {L"}it''s #| \U0001F600", L"}it's #| \U0001F600"}, // nothing to format
        {L"can''t", L"can't"},
        {L"a\x110000", L"a\uFFFD"},
        {L"app: {0", L"app: {0"},              // refused
        {L"app: {0,date} more", L"app: "},     // a text is no date
        {L"{0,date} more", L"{0,date} more"}}; // nothing before the failure
    for (const auto& [pattern, text] : cases)
        EXPECT_STREQ(message.formatMessage(pattern).c_str(), text);
    EXPECT_STREQ(makeMessage({}).formatMessage(L"it''s '{0}' {0}").c_str(), L"it's {0} {0}");
    EXPECT_STREQ(readMessage("").formatMessage(L"{0}").c_str(), L"{0}");
}

TEST(Message, OwnsWhatItHolds)
{
    CCmnIcuMessage source = makeMessage({UnicodeString(u"first"), 1}), assigned = makeMessage({});
    const SCmnMessageInfo *const record = source.serialize(), *const other = assigned.serialize();
    const std::string text = record->text;
    EXPECT_EQ(record->length, text.size());
    source.addRef();
    CCmnIcuMessage copy(source);
    assigned = source;
    const SCmnMessageInfo empty{"<SERIALIZED_MESSAGE MSGID=new SEVERITY=1>", 0};
    source.deserialize(&empty);
    EXPECT_EQ(record->text, text); // until the next serialize
    EXPECT_EQ(source.serialize(), record);
    EXPECT_EQ(record->text + std::to_string(record->length), "0");
    EXPECT_EQ(other->text, text);
    for (CCmnIcuMessage* message : {&copy, &assigned}) {
        EXPECT_EQ(message->getFile() + std::to_string(message->getRefCount()), "some.cpp1");
        message->deserialize(message->serialize()); // its own text
        EXPECT_EQ(contentOf(*message), "an.id 7 3:first;2:1;");
    }
}

TEST(Message, SerializedText)
{
    const Formattable inner[] = {1, 2}, date(86400000.0, Formattable::kIsDate);
    CCmnIcuMessage message =
        makeMessage({date, UnicodeString(u"a\t<>&\n\u00E4\U0001F600"), Formattable(inner, 2),
                     std::int64_t{1} << 40, UnicodeString(char16_t{0xD800})});
    EXPECT_EQ(message.serialize()->text,
              header("an.id", 7) + opening(0, 0) + "8.64e+07" + kEnd + "\n" + opening(1, 3) +
                  "a\t<>&\n\xC3\xA4\xF0\x9F\x98\x80" + kEnd + "\n" + opening(2, 4) + kEnd + "\n" +
                  opening(3, 5) + kEnd + "\n" + opening(4, 3) + kEnd + "\n</SERIALIZED_MESSAGE>\n");
    // The header line has room for an id of 985 bytes less the digits of the severity.
    for (const int severity : {3, INT_MIN}) {
        const std::string id(986 - std::to_string(severity).size(), 'x');
        CCmnIcuMessage cut = makeMessage({5}, id.c_str(), severity);
        EXPECT_EQ(cut.serialize()->text, header(id, severity).substr(0, 1023) + opening(0, 2) +
                                             "5</ARGVALUE>\n</SERIALIZED_MESSAGE>\n");
        CCmnIcuMessage fits = makeMessage({5}, id.c_str() + 1, severity);
        EXPECT_EQ(contentOf(readMessage(fits.serialize()->text)), contentOf(fits));
    }
}

TEST(Message, DamagedTexts)
{
    const std::string head = header("id", 5), number = opening(0, 2), text = opening(0, 3),
                      five = number + "5" + kEnd, start = "<SERIALIZED_MESSAGE", longId(1500, 'x');
    const std::pair<std::string, std::string> cases[] = {
        {"", "old 7 2:1;"},
        {" \n<x>" + head + five, "id 5 2:5;"},
        {start + ">" + five, "old 7 2:5;"},
        {start + " \t MSGID=\n id \n SEVERITY= +5" + five, "id 5 "},
        {start + " MSGID=a b SEVERITY=5>" + five, "a 7 2:5;"},
        {header("", 5) + five, "SEVERITY=5> 7 2:5;"},
        {header("a>b<ARGVALUE", 5) + five, "a>b<ARGVALUE 5 "},
        {header(longId, 4), longId.substr(0, 1023) + " 4 "},
        {head + text + "a<12345678" + five, "id 5 3:a;"}, // half of the tag is dropped
        {head + text + "a<123456789" + five, "id 5 3:a;2:5;"},
        {head + opening(9, 3) + "</NOT.THIS>" + opening(-3, 2) + "<" + five, "id 5 3:;2:0;"},
        {head + opening(0, 4) + "x" + kEnd + opening(0, -1) + kEnd + five, "id 5 2:5;"},
        {head + "<ARGVALUEINDEX= 0TYPE=\n2 x='y'>6" + kEnd, "id 5 2:6;"},
        {head + "<ARGVALUE INDEX=0 " + five + "7>8", "id 5 "},
        {head + number + " -12abc" + kEnd + opening(0, 0) + "1e3x", "id 5 2:-12;1:1000;"},
        {head + text + "\xFF" + kEnd + text + "a>\t\n", "id 5 3:;3:a>\t\n;"}};
    for (const auto& [damaged, content] : cases) {
        CCmnIcuMessage message = makeMessage({1}, "old");
        const SCmnMessageInfo info{damaged.c_str(), 0};
        message.deserialize(&info);
        EXPECT_EQ(contentOf(message), content) << damaged;
    }
}

// Texts that a reader which goes back, or measures or moves the rest at each step, does not finish.
TEST(Message, HostileTextsTakeLinearTime)
{
    const std::pair<const char*, int> cases[] = {
        {"<ARGVALUE INDEX=0 TYPE=2>", 500'000}, // every other one is taken for a closing tag
        {"<ARGVALUE INDEX=0 TYPE=3></ARGVALUE>", 1'000'000},
        {"<ARGVALUE INDEX=0 TYPE=2", 0},
        {"<SERIALIZED_MESSAG", 0},
        {"                ", 0}};
    for (const auto& [repeated, arguments] : cases) {
        std::string text = header("id", 5);
        for (int i = 0; i < 1'000'000; ++i)
            text += repeated;
        const std::string back = readMessage(text).serialize()->text;
        EXPECT_EQ(std::count(back.begin(), back.end(), '\t'), arguments) << repeated;
        EXPECT_EQ(contentOf(readMessage(text.substr(1))), " 0 ");
    }
}

TEST(Message, RoundTrip)
{
    std::mt19937 random(20260);
    const std::u32string alphabet = U"<>&\"'\t\n\r {}/=%ab\u00E4\u3042\uFFFF\U0001F600";
    for (int round = 0; round < 100'000; ++round) {
        const int integer = static_cast<int>(random()) >> random() % 32;
        const double real = std::ldexp(integer, static_cast<int>(random() % 400) - 200);
        UnicodeString text(0, u'a', round % 100 == 0 ? 1020 : 0); // up to the end of a piece
        for (auto length = random() % 12; length > 0; --length)
            text.append(static_cast<UChar32>(alphabet[random() % alphabet.size()]));
        std::string bytes;
        text.toUTF8String(bytes);
        std::ostringstream expected; // a real number has six digits, and an array is not carried
        expected << "an.id " << integer << " 3:" << bytes.substr(0, bytes.find('<'))
                 << ";1:" << real << ";2:" << integer << ";";
        CCmnIcuMessage message =
            makeMessage({text, real, Formattable(nullptr, 0), integer}, "an.id", integer);
        ASSERT_EQ(contentOf(readMessage(message.serialize()->text)), expected.str());
    }
}

} // namespace
