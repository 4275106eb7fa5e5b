// Parsing XML in memory: what a handler gets, what it stores, and what the reader is closed to.
#include "cmnsaxhandler.h"
#include "cmnsaxparser.h"
#include "scratch.h"

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
            (m_Text += " " + toString(attributes.getQName(i)) + "=") +=
                toString(attributes.getValue(i));
        m_Text += ">";
    }
    // The text, with an exclamation mark behind it for a problem.
    std::string result() const { return m_Text + (hasLastError() ? "!" : ""); }
};

std::string parsed(const std::string& text)
{
    Recorder handler;
    CCmnSaxParser(&handler).parse(text);
    return handler.result();
}

// The document, all ASCII, in UTF-16.
std::string utf16(const std::string& text, bool isLittle)
{
    std::string wide;
    for (const char unit : text)
        wide += isLittle ? std::string{unit, '\0'} : std::string{'\0', unit};
    return wide;
}

// Entities that are each ten of the one before; `sigil` in a value is "&", or, for parameter
// entities, a reference to the percent sign.
std::string nested(int levels, const std::string& start, const std::string& sigil)
{
    const std::string keyword = sigil == "&#37;" ? "<!ENTITY % e" : "<!ENTITY e";
    std::string all = keyword + "0 '" + start + "'>";
    for (int i = 1; i <= levels; ++i)
        all += keyword + std::to_string(i) + " '" +
               repeated(sigil + "e" + std::to_string(i - 1) + ";", 10) + "'>";
    return all;
}

std::string document(const std::string& declarations, const std::string& root)
{
    return "<!DOCTYPE r [" + declarations + "]>" + root;
}

TEST(Sax, Documents)
{
    const Scratch scratch;
    scratch.write("file", "<!ENTITY e 'SECRET'>");
    const std::string dense = "&a; text text text text text", x = "<!ENTITY a 'x'>",
                      file = "SYSTEM 'file://" + scratch.path("file") + "'";
    const std::pair<std::string, std::string> cases[] = {
        {"<n:r xmlns:n='u' n:a=\"1\">x<s/>y</n:r>", "<n:r xmlns:n=u n:a=1>x<s>y"},
        {"\xEF\xBB\xBF<r>a&amp;b<![CDATA[<c>]]><!-- no --><?no?></r>", "<r>a&b<c>"},
        {"", "!"},
        {"<r>\xff</r>", "<r>!"},
        {"<?xml version='1.0' encoding='none'?>" + document(x, "<r>&a;</r>"), "!"},
        // Declarations of ordinary kind keep their effect, whatever their order and the encoding.
        {document("<!ENTITY a 'x&b;x'><!ENTITY b 'y<s/>'>", "<r>&a;</r>"), "<r>xy<s>x"},
        {document(x + "<!ATTLIST r d CDATA '&a;1'>", "<r e='&a;'/>"), "<r e=x d=x1>"},
        {document(nested(3, "", "&#37;") + "%e3;" + x, "<r>&a;</r>"), "<r>x"},
        {document(nested(2, "x", "&"), "<r>&e2;</r>"), "<r>" + std::string(100, 'x')},
        {document(x, "<r>" + repeated(dense, 10000) + "</r>"),
         "<r>" + repeated("x" + dense.substr(3), 10000)},
        {document("<!ENTITY \xD0\xB8 'x'>", "<r>&\xD0\xB8;</r>"), "<r>x"},
        {"\xFF\xFE" + utf16(document(x, "<r>&a;</r>"), true), "<r>x"},
        // A character beyond 16 bits where the reader cuts its text.
        {"<r>" + std::string((1 << 20) - 1, 'x') + "\xF0\x9F\x98\x80</r>",
         "<r>" + std::string((1 << 20) - 1, 'x') + "\xF0\x9F\x98\x80"},
        // No file is read.
        {"<!DOCTYPE r " + file + " [" + x + "]><r>&a;&e;</r>", "<r>x"},
        {document("<!ENTITY e " + file + ">", "<r>&e;</r>"), "<r>!"},
        {document("<!ENTITY % p " + file + ">%p;", "<r>&e;</r>"), "!"}};
    for (const auto& [text, result] : cases)
        EXPECT_EQ(result, parsed(text)) << text.substr(0, 200);
}

TEST(Sax, TextThatWouldExpandWithoutBoundsIsRefused)
{
    const std::string lol = nested(9, "lol", "&"), big = "'" + std::string(50000, 'x') + "'",
                      entity = "<!ENTITY e " + big + ">", many = repeated("&e;", 20000),
                      list = "<!ATTLIST s a CDATA " + big + ">";
    std::string upwards = "<!ENTITY e0 'x'>", downwards = upwards;
    for (int i = 0; i < 60; ++i) {
        const std::string next =
            "<!ENTITY e" + std::to_string(i + 1) + " '&e" + std::to_string(i) + ";'>";
        upwards += next;
        downwards.insert(0, next);
    }
    std::string implied;
    for (int i = 0; i < 2000; ++i)
        implied += " a" + std::to_string(i) + " CDATA #IMPLIED";
    const std::string attacks[] = {
        document("<!ATTLIST s" + implied + ">", "<r>" + repeated("<s/>", 20000) + "</r>"),
        document(lol, "<r a='&e9;'>&e9;</r>"),
        document(lol + "<!ATTLIST r a CDATA '&e9;'>", "<r/>"),
        document(nested(9, "", "&#37;") + "%e9;", "<r/>"),
        document("<!ENTITY % p \"" + nested(9, "lol", "&#38;") + "\">%p;", "<r a='&e9;'/>"),
        document(upwards, "<r>&e60;</r>"),
        document(downwards, "<r>&e60;</r>"),
        document("<!ENTITY a '&b;'><!ENTITY b '&a;'>", "<r>&a;</r>"),
        document(entity, "<r>" + many + "</r>"),
        document("<!ENTITY e '" + repeated("<s/>", 100) + "'>" + list, "<r>&e;</r>"),
        document(list, "<r>" + repeated("<s/>", 20000) + "</r>"),
        document(entity + "<!ATTLIST r a CDATA '" + many + "'>", "<r/>")};
    for (const std::string& attack : attacks)
        // The last one goes over to another encoding behind its declaration, at an odd place.
        for (const std::string& text :
             {attack, "\xFF\xFE" + utf16(attack, true),
              utf16("<?xml version='1.0' encoding='utf-16'?>" + attack, false),
              "<?xml version='1.0' encoding='UTF-16LE'?>" + utf16(attack, true)})
            EXPECT_EQ("!", parsed(text)) << attack.substr(0, 200);
    for (const std::string name : {"UTF-16", "ISO-10646-UCS-2", "ibm-1200", "UTF-32", "IBM037"})
        for (const std::string mark : {"", "\xEF\xBB\xBF"})
            EXPECT_EQ("!", parsed(mark + "<?xml version='1.0' encoding='" + name + "'?>" +
                                  document(entity, "<r>" + many + "</r>")))
                << name;
    const std::string hidden = document(entity, "<r>" + repeated("+ACY-e;", 20000) + "</r>");
    for (const int blanks : {1, 3000}) // where the encoding is looked for, and behind that
        EXPECT_EQ("!", parsed("<?xml version='1.0'" + repeated(" ", blanks) + "encoding='UTF-7'?>" +
                              hidden));
}

TEST(Sax, LinesLaterParsesAndProblems)
{
    Recorder handler;
    EXPECT_NO_THROW(handler.throwLastError());
    EXPECT_EQ(L"wide", handler.toWString(nullptr) + handler.toWString(u"wide"));
    CCmnSaxParser parser;
    parser.parse("<lost>");
    parser.setHandler(&handler);
    parser.parse(std::vector<std::string>{"<r>", "wo", "rd", "</r>"});
    parser.parse("<r>s</r>");
    EXPECT_EQ("<r>word<r>s", handler.result());
    parser.parse(std::vector<std::string>());
    EXPECT_EQ("<r>word<r>s!", handler.result());
    handler.error(SAXParseException(nullptr, nullptr, nullptr, 1, 1));
    EXPECT_NO_THROW(handler.throwLastError());
    handler.warning(SAXParseException(u"warning", nullptr, u"id", 5, 6));
    handler.error(handler.getLastError());
    EXPECT_EQ("warning", handler.toString(handler.getLastError().getMessage()));
}

TEST(Sax, AnyOrderOfLifeOnManyThreads)
{
    onThreads(4, [](int order) {
        for (int round = 0; round < 50; ++round) {
            auto handler = std::make_unique<Recorder>();
            auto parser = std::make_unique<CCmnSaxParser>(order % 2 == 0 ? handler.get() : nullptr);
            parser->setHandler(handler.get());
            parser->parse(document("<!ENTITY a 'x'>", "<r>&a;\n</s>"));
            if (order < 2)
                parser.reset();
            EXPECT_EQ(handler->result(), "<r>x\n!");
            EXPECT_THROW(handler->throwLastError(), SAXParseException); // and once more
            try {
                handler->throwLastError();
                ADD_FAILURE() << "the problem is gone";
            } catch (const SAXParseException& problem) { // which outlives both
                handler.reset();
                parser.reset();
                EXPECT_TRUE(problem.getLineNumber() == 2 && *problem.getMessage());
            }
        }
    });
    // Every use of Xerces-C has been given back.
    EXPECT_EQ(nullptr, xercesc::XMLPlatformUtils::fgMemoryManager);
}

} // namespace
