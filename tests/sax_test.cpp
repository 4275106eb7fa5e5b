// Parsing XML in memory: what a handler gets and stores, and what the parser refuses to do.
#include "cmnsaxhandler.h"
#include "cmnsaxparser.h"
#include "support/repeat.h"
#include "support/scratchdirectory.h"

#include <gtest/gtest.h>
#include <xercesc/sax2/Attributes.hpp>
#include <xercesc/util/PlatformUtils.hpp>

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

TEST(Sax, Documents)
{
    const ScratchDirectory scratch;
    scratch.write("file", "<!ENTITY e 'SECRET'>");
    // `cut` has a surrogate pair where the parser splits its text.
    const std::string file = "SYSTEM 'file://" + scratch.path("file") + "'", x = "<!ENTITY a 'x'>",
                      version = "<?xml version='1.0' ",
                      dense = repeated("&a; text text text text text", 10000),
                      cut = std::string((1 << 20) - 1, 'x') + "\xF0\x9F\x98\x80",
                      big = "'" + std::string(50000, 'x') + "'", entity = "<!ENTITY e " + big + ">",
                      many = document(entity, "<r>" + repeated("&e;", 20000) + "</r>"),
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
        // Ordinary declarations keep their effect in any order.
        {document("<!ENTITY a 'x&b;x'><!ENTITY b 'y<s/>'>", "<r>&a;</r>"), "<rxy<sx"},
        {document(x + "<!ATTLIST r d CDATA '&a;1'>", "<r e='&a;'/>"), "<r ex dx1"},
        {document(nested(3, 10, "&#37;") + "%e3;" + x, "<r>&a;</r>"), "<rx"},
        {"\xEF\xBB\xBF" + version + "encoding='UTF-8'?>" + document(x, "<r>" + dense + "</r>"),
         "<r" + repeated("x text text text text text", 10000)},
        {utf16(document(x, "<r>&a;</r>")), "<rx"},
        // No file is read.
        {"<!DOCTYPE r " + file + " [" + x + "]><r>&a;&e;</r>", "<rx"},
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

TEST(Sax, DocumentsInLinesAndLaterParsesAndProblems)
{
    Recorder handler;
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
    handler.warning(SAXParseException(u"warning", nullptr, u"id", 5, 6));
    handler.error(handler.getLastError());
    EXPECT_EQ("warning", handler.toString(handler.getLastError().getMessage()));
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
