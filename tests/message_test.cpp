// SPDX-License-Identifier: LicenseRef-Tarnix
// Messages: copies, the serialised text, and what stays when a text is incomplete. The fuzzers
// compare formatting with ICU, and reading with a simple reader.
#include "cmnmessage.h"
#include "cmnstringtool.h"
#include "support/repeat.h"
#include "support/testlocale.h"

#include <gtest/gtest.h>
#include <unicode/locid.h>

#include <algorithm>

using namespace tarnix_cmn_4_4;
using icu::Formattable;

namespace
{

CCmnIcuMessage makeMessage(const std::vector<Formattable>& arguments, const char* id = "an.id")
{
    return CCmnIcuMessage(id, arguments.data(), static_cast<int>(arguments.size()),
                          tarnix_eseverity{7}, "some.cpp", 12);
}

// The id, the severity and the first two arguments.
std::string contentOf(CCmnIcuMessage& message)
{
    return message.getMessageId() + " " + std::to_string(message.getSeverity()) + " " +
           CCmnStringTool::tstr2str(message.formatMessage(L"{0} {1}"));
}

TEST(Message, OwnsWhatItHolds)
{
    CCmnIcuMessage source = makeMessage({icu::UnicodeString(u"first"), 1}),
                   assigned = makeMessage({});
    const SCmnMessageInfo *const record = source.serialize(), *const other = assigned.serialize();
    const std::string text = record->text;
    EXPECT_EQ(record->length, text.size());
    source.addRef();
    CCmnIcuMessage copy(source);
    assigned = source;
    source = makeMessage({});
    EXPECT_EQ(source.serialize(), record);
    EXPECT_STREQ(record->text, "");
    EXPECT_EQ(record->length, 0U);
    EXPECT_EQ(other->text, text);
    for (CCmnIcuMessage* message : {&copy, &assigned}) {
        EXPECT_EQ(message->getFile(), std::string("some.cpp"));
        EXPECT_EQ(message->getRefCount(), 1);
        EXPECT_EQ(message->getLine(), 12);
        EXPECT_EQ(contentOf(*message), "an.id 7 first 1");
    }
}

TEST(Message, SerializedTextFollowsTheLocale)
{
    UErrorCode status = U_ZERO_ERROR;
    icu::Locale::setDefault(icu::Locale::getUS(), status); // the texts depend on it
    MadeLocales locales;
    locales.make("comma", "ISO-8859-1", // far faster to make than UTF-8
                 "LC_NUMERIC\ndecimal_point \",\"\nthousands_sep \"\"\ngrouping -1\n"
                 "END LC_NUMERIC\n");
    // The header line has room for 1023 bytes: its newline is cut.
    const std::string id(985, 'x');
    const Formattable inner[] = {1, 2}, date(86400000.0, Formattable::kIsDate);
    CCmnIcuMessage message = makeMessage({date, 1 / 3.0, Formattable(inner, 2),
                                          std::int64_t{1} << 40, icu::UnicodeString(u"\U0001F600")},
                                         id.c_str());
    for (const char point : {'.', ','}) {
        const TestLocale locale(point == ',' ? "comma" : "C", LC_NUMERIC);
        EXPECT_TRUE(locale.isKnown());
        std::string text = "<SERIALIZED_MESSAGE MSGID=" + id +
                           " SEVERITY=7>\t<ARGVALUE INDEX=0 TYPE=0>8.64e+07</ARGVALUE>\n"
                           "\t<ARGVALUE INDEX=1 TYPE=1>0.333333</ARGVALUE>\n"
                           "\t<ARGVALUE INDEX=2 TYPE=4></ARGVALUE>\n"
                           "\t<ARGVALUE INDEX=3 TYPE=5></ARGVALUE>\n"
                           "\t<ARGVALUE INDEX=4 TYPE=3>\U0001F600</ARGVALUE>\n"
                           "</SERIALIZED_MESSAGE>\n";
        std::replace(text.begin(), text.end(), '.', point);
        EXPECT_EQ(message.serialize()->text, text);
        CCmnIcuMessage back(message.serialize());
        EXPECT_EQ(contentOf(back), id + " 7 86,400,000 0.333");
    }
}

// What a text does not contain stays as it was.
TEST(Message, Deserializes)
{
    const std::string five = "<ARGVALUE INDEX=0 TYPE=2>5<";
    const std::pair<std::string, const char*> cases[] = {
        {five, "old 7 1 {1}"},
        {"<SERIALIZED_MESSAGE>" + five, "old 7 5 {1}"},
        {"<SERIALIZED_MESSAGE><ARGVALUE INDEX=2>5<", "old 7 {0} {1}"},
        {"<SERIALIZED_MESSAGE MSGID=new SEVERITY=3>", "new 3 {0} {1}"}};
    for (const auto& [text, content] : cases) {
        CCmnIcuMessage message = makeMessage({1}, "old");
        const SCmnMessageInfo info{text.c_str(), 0};
        message.deserialize(&info);
        EXPECT_EQ(contentOf(message), content) << text;
    }
}

// How deep braces nest is compared with ICU by the fuzzer. Braces that nest too deep for ICU's
// stack come back unchanged, and so do patterns that are already text; but the result never refers
// to the caller's text.
TEST(Message, FormatsWithinLimits)
{
    const auto nested = [](const std::string& open, int times, const std::string& close) {
        return repeated(open, times) + "x" + repeated(close, times);
    };
    const std::pair<std::string, std::string> cases[] = {
        {"plain", ""},
        {"{0,number,{'a{'0}}" + nested("{0,plural,other{", 16, "}}"), "{a{1}x"},
        {"}" + repeated("{0,plural,other{''", 16) + "{0}" + repeated("}}", 16), ""},
        {"'{''a{''' " + nested("{0,plural,other{it's ", 17, "}}"), ""},
        {repeated("{0}", 32) + "{", ""},
        {nested("{0,choice,0#", 100'000, "}"), ""},
    };
    CCmnIcuMessage message = makeMessage({1});
    for (const auto& [pattern, text] : cases) {
        tstr borrowed = CCmnStringTool::str2tstr(pattern);
        const tstr result = message.formatMessage(tstr(&borrowed[0], nullptr, false));
        borrowed[0] = '\0';
        EXPECT_EQ(CCmnStringTool::tstr2str(result), text.empty() ? pattern : text) << pattern;
    }
}

// A class that overrides formatMessage is formatted by its own. ICU would take its default locale
// for a language without data.
TEST(Message, FormatsInALanguage)
{
    struct Louder : CCmnIcuMessage {
        using CCmnIcuMessage::CCmnIcuMessage;
        tstr formatMessage(tstr pattern) override
        {
            return CCmnIcuMessage::formatMessage(pattern + L"!");
        }
    };
    UErrorCode status = U_ZERO_ERROR;
    icu::Locale::setDefault(icu::Locale::getGermany(), status);
    const Formattable number(1234.5);
    Louder message("id", &number, 1, {}, "", 0);
    const std::pair<std::string, const wchar_t*> cases[] = {
        {"la_VA", L"1,234.5 other!"},      {"de_Cyrl", L"1,234.5 other!"},
        {"de", L"1.234,5 other!"},         {"de-AT", L"1\u00A0234,5 other!"},
        {"cs@x=y", L"1\u00A0234,5 many!"}, {"root", L"1,234.5 other!"},
        {"../cs", L"1,234.5 other!"},      {std::string(300, 'x'), L"1,234.5 other!"}};
    for (const auto& [language, text] : cases)
        EXPECT_STREQ(
            message.formatInLanguage(L"{0} {0, plural, many{many} other{other}}", language).c_str(),
            text)
            << language;
    EXPECT_STREQ(message.formatMessage(L"{0}").c_str(), L"1.234,5!");
}

} // namespace
