// Messages: what they own, what the serialised text is, and what stays of an old one. The fuzzers
// compare formatting with ICU, and reading with a plain reader.
#include "cmnmessage.h"
#include "cmnstringtool.h"
#include "scratch.h"

#include <climits>
#include <clocale>

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

void read(CCmnIcuMessage& message, const std::string& text)
{
    const SCmnMessageInfo info{text.c_str(), 0};
    message.deserialize(&info);
}

// Id, severity, and the first two arguments.
std::string contentOf(CCmnIcuMessage& message)
{
    return message.getMessageId() + " " + std::to_string(message.getSeverity()) + " " +
           CCmnStringTool::tstr2str(message.formatMessage(L"{0} {1}"));
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
    read(source, "<SERIALIZED_MESSAGE>");
    EXPECT_EQ(record->text, text); // until the next serialize
    EXPECT_EQ(source.serialize(), record);
    EXPECT_EQ(record->text + std::to_string(record->length), "0");
    EXPECT_EQ(other->text, text);
    for (CCmnIcuMessage* message : {&copy, &assigned}) {
        EXPECT_EQ(message->getFile() + std::to_string(message->getRefCount()), "some.cpp1");
        message->deserialize(message->serialize()); // its own text
        EXPECT_EQ(contentOf(*message), "an.id 7 first 1");
    }
}

// A locale made here: a text from it is read back there.
TEST(Message, NumbersFollowTheLocale)
{
    const Scratch scratch;
    scratch.write("source", "LC_NUMERIC\ndecimal_point \",\"\nthousands_sep \"\"\ngrouping -1\n"
                            "END LC_NUMERIC\n");
    const std::string command = "cd " + scratch.path() + " && localedef -c -f UTF-8 -i ./source ";
    EXPECT_NE(std::system((command + "./comma 2>&-").c_str()), -1);
    setenv("LOCPATH", scratch.path().c_str(), 1);
    const locale_t made = newlocale(LC_NUMERIC_MASK, "comma", nullptr);
    unsetenv("LOCPATH");
    ASSERT_TRUE(made);
    const locale_t former = uselocale(made);
    CCmnIcuMessage message = makeMessage({1.5, 2});
    const std::string text = message.serialize()->text;
    EXPECT_NE(text.find(">1,5<"), std::string::npos) << text;
    read(message, text);
    uselocale(former);
    freelocale(made);
    EXPECT_EQ(contentOf(message), "an.id 7 1.5 2");
}

TEST(Message, SerializedText)
{
    const Formattable inner[] = {1, 2}, date(86400000.0, Formattable::kIsDate);
    CCmnIcuMessage message = makeMessage(
        {date, 1 / 3.0, -5, UnicodeString(u"a\t<>&\n\u00E4\U0001F600"), Formattable(inner, 2),
         std::int64_t{1} << 40, UnicodeString(char16_t{0xD800})});
    EXPECT_STREQ(message.serialize()->text,
                 "<SERIALIZED_MESSAGE MSGID=an.id SEVERITY=7>\n"
                 "\t<ARGVALUE INDEX=0 TYPE=0>8.64e+07</ARGVALUE>\n"
                 "\t<ARGVALUE INDEX=1 TYPE=1>0.333333</ARGVALUE>\n"
                 "\t<ARGVALUE INDEX=2 TYPE=2>-5</ARGVALUE>\n"
                 "\t<ARGVALUE INDEX=3 TYPE=3>a\t<>&\n\xC3\xA4\xF0\x9F\x98\x80</ARGVALUE>\n"
                 "\t<ARGVALUE INDEX=4 TYPE=4></ARGVALUE>\n"
                 "\t<ARGVALUE INDEX=5 TYPE=5></ARGVALUE>\n"
                 "\t<ARGVALUE INDEX=6 TYPE=3></ARGVALUE>\n"
                 "</SERIALIZED_MESSAGE>\n");
    // A pair across the end of the pieces in which a text is converted.
    const UnicodeString across = UnicodeString(1023, u'x', 1023) + UnicodeString(u"\U0001F600");
    EXPECT_NE(std::string(makeMessage({across}).serialize()->text).find("x\xF0\x9F\x98\x80<"),
              std::string::npos);
    // The header line has room for 1023 bytes with its line end.
    for (const std::size_t length : {984U, 985U}) {
        const std::string id(length, 'x'),
            header = "<SERIALIZED_MESSAGE MSGID=" + id + " SEVERITY=3>\n";
        EXPECT_EQ(makeMessage({5}, id.c_str(), 3).serialize()->text,
                  header.substr(0, 1023) +
                      "\t<ARGVALUE INDEX=0 TYPE=2>5</ARGVALUE>\n</SERIALIZED_MESSAGE>\n");
    }
}

TEST(Message, WhatIsNotReadOrFormattedStays)
{
    const std::string five = "<ARGVALUE INDEX=0 TYPE=2>5<";
    const std::pair<std::string, const char*> cases[] = {
        {five, "old 7 1 {1}"},
        {"<SERIALIZED_MESSAGE>" + five, "old 7 5 {1}"},
        {"<SERIALIZED_MESSAGE MSGID=a b SEVERITY=5>", "a 7 {0} {1}"}};
    for (const auto& [damaged, content] : cases) {
        CCmnIcuMessage message = makeMessage({1}, "old");
        read(message, damaged);
        EXPECT_EQ(contentOf(message), content) << damaged;
    }
    EXPECT_STREQ(makeMessage({}).formatMessage(L"it''s \x110000").c_str(), L"it's \uFFFD");
    EXPECT_STREQ(makeMessage({}).formatMessage(L"\x110000").c_str(), L"\uFFFD");
}

// Texts that a reader which goes back, or measures or moves the rest at each step, does not finish.
TEST(Message, HostileTextsTakeLinearTime)
{
    for (const std::string piece :
         {"<ARGVALUE INDEX=0 TYPE=2>1</ARGVALUE>", "<ARGVALUE INDEX=0 TYPE=2", "<SERIALIZED_MESSAG",
          "                "}) {
        const std::string many = repeated(piece, 1'000'000);
        CCmnIcuMessage message = makeMessage({});
        read(message, many);
        read(message, "<SERIALIZED_MESSAGE>" + many);
        EXPECT_EQ(contentOf(message), piece.back() == '>' ? "an.id 7 1 1" : "an.id 7 {0} {1}");
    }
}

} // namespace
