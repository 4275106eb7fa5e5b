// SPDX-License-Identifier: LicenseRef-Tarnix
// Parsing XML in memory: what a handler gets and stores, and what the parser refuses to do.
#include "cmnsaxhandler.h"
#include "cmnsaxparser.h"
#include "support/repeat.h"
#include "support/scratchdirectory.h"

#include <gtest/gtest.h>
#include <xercesc/sax2/Attributes.hpp>
#include <xercesc/util/PlatformUtils.hpp>
#include <xercesc/util/XMLString.hpp>

#include <malloc.h>

#include <map>
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

// The text once for each of `count` names, which take the place of its "@". In a table of the
// reader with so many buckets, all of them are in one. Few names are, so these are kept.
std::string named(std::size_t count, const std::string& text, XMLSize_t buckets = 1)
{
    static std::map<XMLSize_t, std::pair<int, std::vector<std::string>>> known;
    auto& [next, names] = known[buckets];
    for (std::u16string units; names.size() < count; ++next) {
        const std::string name = "x" + std::to_string(next * 7919LL);
        units.assign(name.begin(), name.end());
        if (xercesc::XMLString::hash(units.c_str(), buckets) == 0)
            names.push_back(name);
    }
    std::string all;
    for (std::size_t i = 0; i < count; ++i)
        all += std::string(text).replace(text.find('@'), 1, names[i]);
    return all;
}

std::string utf16(const std::string& text, const std::string& mark = "\xFF\xFE")
{
    std::string units = mark;
    for (const char unit : text)
        units += mark == "\xFF\xFE" ? std::string{unit, '\0'} : std::string{'\0', unit};
    return units;
}

std::string resultOf(const std::string& text)
{
    Recorder handler;
    CCmnSaxParser(&handler).parse(text);
    return handler.result();
}

const std::string declaredX = "<!ENTITY a 'x'>", version = "<?xml version='1.0' ",
                  manyAttributes = named(1200, " @=''");

TEST(Sax, Documents)
{
    const ScratchDirectory scratch;
    scratch.write("file", "<!ENTITY e 'SECRET'>");
    // `cut` has a surrogate pair where the parser splits its text.
    const std::string file = "SYSTEM 'file://" + scratch.path("file") + "'",
                      dense = document(declaredX,
                                       "<r>" + repeated("&a; 25 characters of text ...", 52000) +
                                           "</r>"),
                      shown = "<r" + repeated("x 25 characters of text ...", 52000),
                      cut = std::string((1 << 20) - 1, 'x') + "\xF0\x9F\x98\x80",
                      quotes = "<a" + named(600, " @=''") + "<b" + named(600, " @=''") + "</" +
                               manyAttributes + "<" + manyAttributes;
    const struct {
        std::string text, result;
    } cases[] = {
        {"<n:r xmlns:n='u' n:a=\"1\">x<s/>y</n:r>", "<n:r xmlns:nu n:a1x<sy"},
        {"<r>" + cut + "<s/>x</r>", "<r" + cut + "<sx"},
        {"<r>" + std::string(5000, 'x') + "</r>", "<r" + std::string(5000, 'x')}, // in one piece
        // Ordinary declarations keep their effect in any order.
        {document("<!ENTITY a 'x&b;x'><!ENTITY b 'y<s/>'>", "<r>&a;</r>"), "<rxy<sx"},
        {document(declaredX + "<!ATTLIST r d CDATA '&a;1'>", "<r e='&a;'/>"), "<r ex dx1"},
        {document(nested(3, 10, "&#37;") + "%e3;" + repeated(declaredX, 501), "<r>&a;</r>"), "<rx"},
        {"\xEF\xBB\xBF<?xml version='1.1' encoding='UTF-8' standalone='no'?>" + dense, shown},
        {version + "standalone='yes'?>" + dense, shown},
        {utf16(document(declaredX, "<r>&a;</r>")), "<rx"},
        // No file is read.
        {"<!DOCTYPE r " + file + " [" + declaredX + "]><r>&a;<!--&e;--><![CDATA[&e;]]></r>",
         "<rx&e;"},
        // What was not read is not dropped.
        {"<!DOCTYPE r " + file + " [" + declaredX + "]><r>&a;&e;</r>", "<rx!"},
        {document("%q;", "<r>&e;</r>"), "<r!"},
        {document("<!ENTITY e " + file + ">", "<r>&e;</r>"), "<r!"},
        {"<!DOCTYPE r " + file + "><r a='&e;'/>", "!"},
        {document("<!ENTITY % p ''>%p;<!ATTLIST r a CDATA '&e;'>", "<r/>"), "!"},
        {document("<!ENTITY % p " + file + ">%p;", "<r>&e;</r>"), "!"},
        // So many attributes are refused in a tag, but not in text.
        {"<?x" + manyAttributes + "?><r>" + manyAttributes + "<![CDATA[" + quotes + "]]></r>",
         "<r" + manyAttributes + quotes},
        // Not the encoding that it declares: reported, but read.
        {version + "encoding='UTF-16'?><r>" + std::string(300000, 'x') + "</r>",
         "<r" + std::string(300000, 'x') + "!"}};
    for (const auto& [text, result] : cases)
        EXPECT_EQ(result, resultOf(text)) << text.substr(0, 200);
}

TEST(Sax, RefusedDocuments)
{
    const std::string big = "'" + std::string(50000, 'x') + "'", entity = "<!ENTITY e " + big + ">",
                      uses = document(entity, "<r>" + repeated("&e;", 20000) + "</r>"),
                      hidden = document(entity, "<r>" + repeated("+ACY-e;", 20000) + "</r>"),
                      model = "<!ELEMENT r (" + repeated("x,", 2000) + "x)>";
    const std::string documents[] = {
        // Unbounded expansion.
        document("<!ATTLIST s" + named(2000, " @ CDATA #IMPLIED") + ">",
                 "<r>" + repeated("<s/>", 20000) + "</r>"),
        document(nested(9, 10, "&"), "<r>&e9;</r>"),
        document(nested(9, 10, "&#37;") + "%e9;", "<r/>"),
        document("<!ENTITY a '&b;'><!ENTITY b '&a;'>", "<r>&a;</r>"),
        document("<!ENTITY e '" + repeated("<s/>", 100) + "'><!ATTLIST s a CDATA " + big + ">",
                 "<r>&e;</r>"),
        // The check itself would take quadratic time.
        document("<!ENTITY a '" + named(1200, "&@;") + "'>" + named(1200, "<!ENTITY @ ''>"),
                 "<r/>"),
        // Names in one bucket, and what takes too much memory.
        document(named(501, "<!ENTITY @ ''>", 879), "<r/>"),
        document(named(501, "<!ENTITY % @ ''>", 879), "<r/>"),
        document(named(501, "<!ENTITY @ SYSTEM 'x' NDATA n>", 879), "<r/>"),
        document(named(501, "<!NOTATION @ SYSTEM 'x'>", 879), "<r/>"),
        document(named(501, "<!ATTLIST r @ CDATA #IMPLIED>", 959), "<r/>"),
        document(named(501, "<!ATTLIST @ a CDATA #IMPLIED>", 879), "<r/>"),
        document("<!ELEMENT r (" + named(501, "@|", 879) + "x)*>", "<r/>"), document(model, "<r/>"),
        document("<!ENTITY % p '" + model + "'>%p;", "<r/>"),
        document("<!ENTITY e \"&#60;r" + manyAttributes + "/>\">", "<r/>"),
        "<?x?>" + std::string(9000, ' ') + "<r" + manyAttributes + "/>",
        utf16("<r" + manyAttributes + "/>", "\xFE\xFF"),
        version + "encoding='UTF-7'?><r" + manyAttributes + "/>",
        version + "encoding='UTF-16'?><r" + manyAttributes + "/>",
        "<?xml version='1.1'?>" + document("<!ATTLIST s a CDATA " + big + ">",
                                           "<r>" + repeated("<s\u0085/><s\u2028/>", 20) + "</r>"),
        // The worst case is assumed where references cannot be found.
        uses, utf16(uses), version + "encoding='UTF-7'?>" + hidden,
        version + repeated(" ", 3000) + "encoding='UTF-7'?>" + hidden,
        version + "encoding='ibm-1200'?>" + uses, // cannot encode its own declaration
        "\xEF\xBB\xBF" + version + "encoding='IBM037'?>" + uses};
    for (const std::string& text : documents)
        EXPECT_EQ("!", resultOf(text)) << text.substr(0, 200);
}

// A document of a megabyte. By default it may expand to 1e6 characters and 8 for each byte.
std::string megabyte(const std::string& declaration, const std::string& use, int uses)
{
    const std::string start = document(declaration, "<r>" + repeated(use, uses));
    return start + std::string(1000000 - 4 - start.size(), ' ') + "</r>";
}

TEST(Sax, LimitsOfAParser)
{
    const auto inOne = [](XMLSize_t of, std::size_t n) {
        return "<r>" + named(n, "<@/>", of) + "</r>";
    };
    const auto nests = [](int levels) { return document(nested(levels, 1, "&"), "<r/>"); };
    const auto expands = [](int n) { return megabyte("<!ENTITY alpha 'x'>", "&alpha;", n); };
    // Each entity is declared before the one that it uses, and assessed before it.
    const std::string reversed =
        document("<!ENTITY d '&b;'><!ENTITY b '&c;'><!ENTITY c '&a;'>" + declaredX, "<r/>");
    const std::string byDefault = "<!ATTLIST s a CDATA '" + std::string(99, 'x') + "' b CDATA 'x'>",
                      deep = repeated("<a>", 100000) + repeated("</a>", 100000),
                      vague = version + std::string(1024, ' ') + "?><r/>"; // too long to look at
    const auto model = [](int names) {
        return document("<!ELEMENT r (" + repeated("x|", names - 1) + "y)>", "<r/>");
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
        {"a table that grows", limits, "<r>" + named(1439, "<@/>") + "</r>", true},
        {"names in one bucket, too many", limits, inOne(3839, 501), false},
        {"names in one bucket", limits, inOne(3839, 500), true},
        {"many declarations", limits, document(named(3000, "<!ENTITY @ ''>"), "<r/>"), true},
        {"expansion, too much", limits, expands(44777), false},
        {"just enough expansion", with(&L::expansion, 1000177), expands(44777), true},
        {"default attributes", limits, megabyte(byDefault, "<s/>", 77586), true},
        {"default attributes, too many", limits, megabyte(byDefault, "<s/>", 77587), false},
        {"nesting", limits, nests(31), true},
        {"nesting, too deep", limits, nests(32), false},
        {"256 levels", with(&L::nesting, 999), nests(255) + std::string(1 << 20, ' '), true},
        {"257 levels", with(&L::nesting, 999), nests(256) + std::string(1 << 20, ' '), false},
        {"reversed", with(&L::nesting, 4), reversed, true},
        {"reversed, too deep", with(&L::nesting, 3), reversed, false},
        // The one after it would use what the reader kept.
        {"memory", with(&L::memoryPerByte, 10), deep, false},
        {"memory, default", limits, deep, true},
        {"names in one bucket of a new reader", limits, inOne(959, 501), false},
        {"attributes", limits, "<r" + named(1000, " @=''") + "/>", true},
        {"attributes, too many", limits, "<r" + named(1001, " @=''") + "/>", false},
        {"no attributes", with(&L::attributes, 0), "<r a=''/>", false},
        {"content", limits, model(1000), true},
        {"content, too much", limits, model(1001), false},
        {"entity that is not read, in a comment", limits,
         document("<!ENTITY e SYSTEM 'x'>", "<r><!--" + repeated("&e;", 6000) + "--></r>"), true},
        {"unknown encoding", limits, vague + std::string((256 << 10) - vague.size(), ' '), true},
        {"larger", limits, vague + std::string((256 << 10) + 1 - vague.size(), ' '), false},
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

TEST(Sax, DocumentsInPieces) // of any size: see the fuzzer
{
    Recorder handler;
    CCmnSaxParser parser(&handler);
    int count = 0;
    std::size_t before = 0;
    // The handler gets the start before the end exists, and the parser does not keep what it got.
    const auto endless = [&]() -> std::string {
        const std::size_t used = ::mallinfo2().uordblks;
        before = before == 0 ? used : before;
        if (++count < 50)
            return count == 1 ? version + "encoding='ISO-8859-1'?><r>"
                              : "<!--" + std::string(100000, ' ') + "-->";
        EXPECT_EQ("<r", handler.result());
        EXPECT_LT(used, before + 2000000);
        throw count;
    };
    EXPECT_THROW(parser.parsePieces(endless), int);
    const auto again = [&] { return parser.setLimits({}) ? "" : (parser.parse("<s/>"), ""); };
    EXPECT_THROW(parser.parsePieces(again), xercesc::SAXNotSupportedException);
    // What came before a declaration counts for its limit.
    const std::string pieces[] = {"<!--" + std::string(2000, ' ') + "-->",
                                  document("<!ENTITY a 'x'>", "<r>&a;&a;&a;</r>"), ""};
    EXPECT_TRUE(parser.setLimits({0.0})); // just what each byte allows
    parser.parsePieces([next = pieces]() mutable { return *next++; });
    EXPECT_FALSE(handler.hasLastError());
    parser.parsePieces([&] { return count-- < 50 ? "" : utf16("<r" + manyAttributes + "/>"); });
    EXPECT_TRUE(handler.hasLastError());
}

TEST(Sax, DocumentsInLinesAndLaterParsesAndProblems)
{
    Recorder handler;
    EXPECT_EQ("", handler.getLastErrorText());
    EXPECT_EQ(0u, handler.getLastError().getLineNumber());
    EXPECT_EQ(0u, handler.getLastError().getColumnNumber());
    EXPECT_EQ(L"x", handler.toWString(nullptr) + handler.toWString(u"x"));
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
                EXPECT_EQ(2u, problem.getLineNumber());
                EXPECT_NE(u'\0', *problem.getMessage());
            }
        }
    });
    {
        const CCmnSaxLibrary library;
        static_cast<void>(CCmnSaxLibrary(library)); // a copy counts too
        EXPECT_NE(nullptr, xercesc::XMLPlatformUtils::fgMemoryManager);
    }
    // The last parser has terminated Xerces-C.
    EXPECT_EQ(nullptr, xercesc::XMLPlatformUtils::fgMemoryManager);
}

} // namespace
