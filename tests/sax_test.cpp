// Parsing XML in memory: what a handler gets and stores, and what the parser refuses to do.
#include "cmnsaxhandler.h"
#include "cmnsaxparser.h"
#include "support/repeat.h"
#include "support/scratchdirectory.h"

#include <gtest/gtest.h>
#include <xercesc/sax2/Attributes.hpp>
#include <xercesc/util/PlatformUtils.hpp>
#include <xercesc/util/XMLString.hpp>

#include <tuple>
#include <type_traits>

using namespace tarnix_cmn_4_4;
using xercesc::SAXParseException;

namespace
{

struct Recorder : CCmnSaxParseHandler {
    void startElement(const XMLCh* const, const XMLCh* const, const XMLCh* const qname,
                      const xercesc::Attributes& attributes) override
    {
        m_Text += "<" + toString(qname);
        for (XMLSize_t i = 0; i < attributes.getLength(); ++i)
            m_Text += " " + toString(attributes.getQName(i)) + toString(attributes.getValue(i));
    }
    // The text, followed by an exclamation mark after a problem.
    std::string result() const { return m_Text + (hasLastError() ? "!" : ""); }
};

std::string document(const std::string& declarations, const std::string& root)
{
    return "<!DOCTYPE r [" + declarations + "]>" + root;
}

// Declares entities each of which is `width` times the one before. `sigil` starts a reference: "&",
// or, for parameter entities, the character reference of the percent sign.
std::string nested(int levels, int width, const std::string& sigil)
{
    const std::string keyword = sigil == "&" ? "<!ENTITY e" : "<!ENTITY % e";
    std::string all = keyword + "0 ''>";
    for (int i = 1; i <= levels; ++i)
        all += keyword + std::to_string(i) + " '" +
               repeated(sigil + "e" + std::to_string(i - 1) + ";", width) + "'>";
    return all;
}

// A text with each of `count` names, all of which have the same hash in the reader's tables.
template <class Text>
std::string colliding(int count, const Text& text)
{
    std::string all;
    for (int i = 0; i < count; ++i) {
        std::string name = "n";
        for (int bit = 0; bit < 11; ++bit)
            name += i >> bit & 1 ? "b0" : "aV";
        all += text(name);
    }
    return all;
}

TEST(Sax, Documents)
{
    const ScratchDirectory scratch;
    scratch.write("file", "<!ENTITY e 'SECRET'>");
    // `cut` has a surrogate pair where the parser splits its text.
    const std::string file = "SYSTEM 'file://" + scratch.path("file") + "'", x = "<!ENTITY a 'x'>",
                      version = "<?xml version='1.0' ",
                      dense = repeated("&a; text text text text text", 52000),
                      cut = std::string((1 << 20) - 1, 'x') + "\xF0\x9F\x98\x80",
                      big = "'" + std::string(50000, 'x') + "'", entity = "<!ENTITY e " + big + ">",
                      many = document(entity, "<r>" + repeated("&e;", 20000) + "</r>"),
                      manyAttributes = colliding(1200, [](auto n) { return " " + n + "=''"; }),
                      someAttributes = colliding(600, [](auto n) { return " " + n + "=''"; }),
                      hidden = document(entity, "<r>" + repeated("+ACY-e;", 20000) + "</r>");
    const auto utf16 = [](const std::string& text) {
        std::string units = "\xFF\xFE";
        for (const char unit : text)
            units += {unit, '\0'};
        return units;
    };
    std::string implied;
    for (int i = 0; i < 2000; ++i)
        implied += " a" + std::to_string(i) + " CDATA #IMPLIED";
    const std::pair<std::string, std::string> cases[] = {
        {"<n:r xmlns:n='u' n:a=\"1\">x<s/>y</n:r>", "<n:r xmlns:nu n:a1x<sy"},
        {"<r>" + cut + "<s/>x</r>", "<r" + cut + "<sx"},
        {"<r>" + std::string(5000, 'x') + "</r>", "<r" + std::string(5000, 'x')}, // in one piece
        // Ordinary declarations keep their effect in any order.
        {document("<!ENTITY a 'x&b;x'><!ENTITY b 'y<s/>'>", "<r>&a;</r>"), "<rxy<sx"},
        {document(x + "<!ATTLIST r d CDATA '&a;1'>", "<r e='&a;'/>"), "<r ex dx1"},
        {document(nested(3, 10, "&#37;") + "%e3;" + x, "<r>&a;</r>"), "<rx"},
        {"\xEF\xBB\xBF" + version + "encoding='UTF-8'?>" + document(x, "<r>" + dense + "</r>"),
         "<r" + repeated("x text text text text text", 52000)},
        {utf16(document(x, "<r>&a;</r>")), "<rx"},
        // No file is read.
        {"<!DOCTYPE r " + file + " [" + x + "]><r>&a;<!--&e;--><![CDATA[&e;]]></r>", "<rx&e;"},
        // What was not read is not dropped.
        {"<!DOCTYPE r " + file + " [" + x + "]><r>&a;&e;</r>", "<rx!"},
        {"<!DOCTYPE r " + file + "><r a='&e;'/>", "!"},
        {"<!DOCTYPE r " + file + " [<!ENTITY a '&e;'>]><r>&a;</r>", "<r!"},
        {document("<!ENTITY % p ''>%p;<!ATTLIST r a CDATA '&e;'>", "<r/>"), "!"},
        {document("<!ENTITY % p ''>%p;", "<r a='&e;'/>"), "!"},
        {document("%q;", "<r>&e;</r>"), "<r!"},
        {document("<!ENTITY e " + file + ">", "<r>&e;</r>"), "<r!"},
        {document("<!ENTITY % p " + file + ">%p;", "<r>&e;</r>"), "!"},
        // Unbounded expansion is refused.
        {document("<!ATTLIST s" + implied + ">", "<r>" + repeated("<s/>", 20000) + "</r>"), "!"},
        {document(nested(9, 10, "&"), "<r>&e9;</r>"), "!"},
        {document(nested(9, 10, "&#37;") + "%e9;", "<r/>"), "!"},
        {document(nested(60, 1, "&"), "<r>&e60;</r>"), "!"},
        {document("<!ENTITY a '&b;'><!ENTITY b '&a;'>", "<r>&a;</r>"), "!"},
        {document("<!ENTITY e '" + repeated("<s/>", 100) + "'><!ATTLIST s a CDATA " + big + ">",
                  "<r>&e;</r>"),
         "!"},
        // So are names with one hash, and what takes too much memory.
        {document(colliding(600, [](auto n) { return "<!ENTITY " + n + " ''>"; }), "<r/>"), "!"},
        {document(colliding(600, [](auto n) { return "<!ENTITY % " + n + " ''>"; }), "<r/>"), "!"},
        {document(colliding(600, [](auto n) { return "<!ENTITY " + n + " SYSTEM 'x' NDATA n>"; }),
                  "<r/>"),
         "!"},
        {document(colliding(600, [](auto n) { return "<!NOTATION " + n + " SYSTEM 'x'>"; }),
                  "<r/>"),
         "!"},
        {document(colliding(600, [](auto n) { return "<!ATTLIST r " + n + " CDATA #IMPLIED>"; }),
                  "<r/>"),
         "!"},
        {document("<!ELEMENT r (" + colliding(600, [](auto n) { return n + "|"; }) + "x)*>",
                  "<r/>"),
         "!"},
        {document("<!ELEMENT r (" + repeated("x,", 2000) + "x)>", "<r/>"), "!"},
        {document("<!ENTITY % p '<!ELEMENT r (" + repeated("x,", 2000) + "x)>'>%p;", "<r/>"), "!"},
        {"<r" + manyAttributes + "/>", "!"},
        {"<?x?>" + std::string(9000, ' ') + "<r" + manyAttributes + "/>", "!"},
        {utf16("<r" + manyAttributes + "/>"), "!"},
        {version + "encoding='UTF-7'?><r" + manyAttributes + "/>", "!"},
        {version + "encoding='UTF-16'?><r" + manyAttributes + "/>", "!"},
        {version + "encoding='UTF-16'?><r>" + std::string(300000, 'x') +
             "</r>", // reported, but read
         "<r" + std::string(300000, 'x') + "!"},
        {document("<!ENTITY e \"&#60;r" + manyAttributes + "/>\">", "<r/>"), "!"},
        {"<r><![CDATA[<a" + someAttributes + "<b" + someAttributes + "]]></r>",
         "<r<a" + someAttributes + "<b" + someAttributes},
        {"<r><![CDATA[" + std::string(9000, 'x') + manyAttributes + "]]></r>",
         "<r" + std::string(9000, 'x') + manyAttributes},
        {"\x4C\x6F\xA7\x94" + std::string(300000, '\x40'), "!"}, // EBCDIC
        // Also in other encodings: the worst case is assumed where references cannot be found.
        {many, "!"},
        {utf16(many), "!"},
        {version + "encoding='UTF-7'?>" + hidden, "!"},
        {version + repeated(" ", 3000) + "encoding='UTF-7'?>" + hidden, "!"},
        {version + "encoding='ibm-1200'?>" + many, "!"}, // cannot encode its own declaration
        {"\xEF\xBB\xBF" + version + "encoding='IBM037'?>" + many, "!"}};
    for (const auto& [text, result] : cases) {
        Recorder handler;
        CCmnSaxParser(&handler).parse(text);
        EXPECT_EQ(result, handler.result()) << text.substr(0, 200);
    }
}

TEST(Sax, ElementsWithOneHash)
{
    // The names have one place only in a table of a certain size, which the first document leaves.
    std::string names, few;
    for (int i = 0, found = 0; found < 1400; ++i) {
        const std::string name = "x" + std::to_string(i * 7919LL);
        names += "<y" + std::to_string(i) + "/>";
        if (xercesc::XMLString::hash(std::u16string(name.begin(), name.end()).c_str(), 1919) == 0) {
            (found < 700 ? few : names) += "<" + name + "/>";
            ++found;
        }
    }
    names.resize(names.find("<y1000/>"));
    CCmnSaxParser parser;
    const std::tuple<std::string, bool> cases[] = {
        {few, false},
        {names, false},
        {few, true},
        {names, false},
        {colliding(600, [](auto n) { return "<" + n + "/>"; }), true}};
    for (const auto& [elements, isRefused] : cases) {
        CCmnSaxParseHandler handler;
        parser.setHandler(&handler);
        parser.parse("<r>" + elements + "</r>");
        EXPECT_EQ(isRefused, handler.hasLastError()) << elements.substr(0, 20);
    }
}

TEST(Sax, LimitsOfAParser)
{
    const std::string alpha = document("<!ENTITY alpha 'x'>",
                                       "<r>" + repeated("&alpha;", 19600) + "</r>"),
                      deep = repeated("<a>", 100000) + repeated("</a>", 100000),
                      nests = document(nested(40, 1, "&"), "<r>&e40;</r>");
    // Each entity is declared before the one that it uses.
    const auto reversed = [](const std::string& names) {
        std::string all;
        for (std::size_t i = 0; i + 1 < names.size(); ++i)
            all += std::string("<!ENTITY ") + names[i] + " '&" + names[i + 1] + ";'>";
        return document(all + "<!ENTITY " + names.back() + " 'x'>", "<r/>");
    };
    CCmnSaxLimits limits;
    const auto with = [&limits](auto member, int value) {
        CCmnSaxLimits changed = limits;
        changed.*member = static_cast<std::decay_t<decltype(changed.*member)>>(value);
        return changed;
    };
    using L = CCmnSaxLimits;
    const struct {
        const char* name;
        CCmnSaxLimits limits;
        std::string text;
        bool isAccepted;
    } cases[] = {
        {"expansion, default", limits, alpha, false},
        {"more expansion", with(&L::expansion, 5000000), alpha, true},
        {"more for each byte", with(&L::expansionPerByte, 40), alpha, true},
        {"nesting, default", limits, nests, false},
        {"more nesting", with(&L::nesting, 50), nests, true},
        {"nesting that suffices", with(&L::nesting, 41), nests, true},
        {"nesting, one too few", with(&L::nesting, 40), nests, false},
        {"one level", with(&L::nesting, 1), reversed("a"), true},
        {"reversed, suffices", with(&L::nesting, 4), reversed("abcd"), true},
        {"reversed, one too few", with(&L::nesting, 3), reversed("abcd"), false},
        {"reversed, other names", with(&L::nesting, 4), reversed("dcba"), true},
        // The one after it would use what the reader kept.
        {"memory", with(&L::memoryPerByte, 10), deep, false},
        {"memory, default", limits, deep, true},
        {"attributes that suffice", with(&L::attributes, 2), "<r a='' b=''/>", true},
        {"attributes", with(&L::attributes, 2), "<r a='' b='' c=''/>", false},
        {"content", with(&L::contentModel, 3), document("<!ELEMENT r (a,(b|c))>", "<r/>"), false},
        {"content that suffices", with(&L::contentModel, 4),
         document("<!ELEMENT r (a,(b|c))>", "<r/>"), true},
        {"names with one hash", with(&L::sameHash, 1), "<r><aV/><b0/></r>", false},
        {"names that suffice", with(&L::sameHash, 2), "<r><aV/><b0/></r>", true},
    };
    CCmnSaxParser parser; // the same one after each refusal
    for (const auto& test : cases) {
        CCmnSaxParseHandler handler;
        parser.setHandler(&handler);
        EXPECT_TRUE(parser.setLimits(test.limits)) << test.name;
        parser.parse(test.text);
        EXPECT_EQ(test.isAccepted, !handler.hasLastError()) << test.name;
        EXPECT_EQ(test.limits.nesting, parser.getLimits().nesting) << test.name;
    }
}

TEST(Sax, DocumentsInPiecesOfAnySize)
{
    const std::string x = "<!ENTITY a 'x'>",
                      long1 = repeated("<s b='\xC3\xA4'>w\xC3\xB6rd</s>\n", 9000),
                      many = colliding(1200, [](auto n) { return " " + n + "=''"; });
    const std::string deep = repeated("<a>", 60000) + repeated("</a>", 60000);
    std::string utf16 = "\xFF\xFE";
    for (const char unit : document(x, "<r>&a;</r>"))
        utf16 += {unit, '\0'};
    for (const std::string& text :
         {document(x, "<r>&a;" + long1 + "</r>"), "<r>" + long1 + "</r>", utf16, std::string("<r>"),
          deep, std::string(), "<r>" + repeated("<s/>", 20000) + "<s" + many + "/></r>"})
        for (const std::size_t size : {1u, 1000u, 60000u}) {
            Recorder whole, pieces;
            CCmnSaxParser(&whole).parse(text);
            std::size_t given = 0;
            CCmnSaxParser(&pieces).parsePieces([&] {
                const std::string piece = text.substr(given, size);
                given += piece.size();
                return piece;
            });
            EXPECT_EQ(whole.hasLastError(), pieces.hasLastError()) << text.substr(0, 60);
            EXPECT_TRUE(whole.hasLastError() || whole.result() == pieces.result());
        }
    // The handler gets the start before the end exists.
    Recorder handler;
    CCmnSaxParser parser(&handler);
    int count = 0;
    const auto endless = [&]() -> std::string {
        if (++count < 50)
            return count == 1 ? "<r>" : std::string(10000, ' ');
        EXPECT_EQ(0u, handler.result().find("<r"));
        throw count;
    };
    EXPECT_THROW(parser.parsePieces(endless), int);
    const auto again = [&]() -> std::string { return parser.parse("<s/>"), "<r/>"; };
    EXPECT_THROW(parser.parsePieces(again), xercesc::SAXNotSupportedException);
    parser.parse("<s/>");
    EXPECT_FALSE(handler.hasLastError());
}

TEST(Sax, DocumentsInLinesAndLaterParsesAndProblems)
{
    Recorder handler;
    EXPECT_EQ("", handler.getLastErrorText());
    EXPECT_NO_THROW(handler.throwLastError());
    EXPECT_EQ(L"", handler.toWString(nullptr));
    CCmnSaxParser parser;
    parser.parse("<lost>");
    parser.setHandler(&handler);
    parser.parse(std::vector<std::string>{"<r>", "wo", "rd", "</r>"});
    parser.parse("<r>s</r>");
    EXPECT_EQ("<rword<rs", handler.result());
    parser.parse(std::vector<std::string>());
    EXPECT_EQ("<rword<rs!", handler.result());
    handler.error(SAXParseException(nullptr, nullptr, nullptr, 1, 1));
    EXPECT_NO_THROW(handler.throwLastError());
    EXPECT_EQ("line 1, column 1", handler.getLastErrorText());
    handler.error(SAXParseException(u"\u00E4\U0001F600", nullptr, nullptr, 0, 0));
    EXPECT_EQ("\xC3\xA4\xF0\x9F\x98\x80", handler.getLastErrorText());
    handler.warning(SAXParseException(u"warning", nullptr, u"id", 5, 6));
    handler.error(handler.getLastError());
    EXPECT_EQ("warning", handler.toString(handler.getLastError().getMessage()));
    EXPECT_EQ("line 5, column 6: warning", handler.getLastErrorText());
}

TEST(Sax, ThreadsAndProblemsThatOutliveTheirParser)
{
    runOnThreads(4, [](int) {
        for (int round = 0; round < 200; ++round) {
            try {
                Recorder handler;
                CCmnSaxParser(&handler).parse(document("<!ENTITY a 'x'>", "<r>&a;\n</s>"));
                EXPECT_THROW(handler.throwLastError(), SAXParseException); // each time
                handler.throwLastError();
                ADD_FAILURE() << "the problem is gone";
            } catch (const SAXParseException& problem) {
                EXPECT_TRUE(problem.getLineNumber() == 2 && *problem.getMessage());
            }
        }
    });
    // The last parser has terminated Xerces-C.
    EXPECT_EQ(nullptr, xercesc::XMLPlatformUtils::fgMemoryManager);
}

} // namespace
