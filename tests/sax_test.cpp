// Parsing XML in memory: what a handler gets, what it stores, and what the reader is closed to.
#include "cmnsaxhandler.h"
#include "cmnsaxparser.h"
#include "scratch.h"

#include <sys/inotify.h>
#include <unistd.h>
#include <xercesc/sax2/Attributes.hpp>
#include <xercesc/util/PlatformUtils.hpp>

#include <atomic>
#include <memory>
#include <thread>

using namespace tarnix_cmn_4_4;
using xercesc::SAXParseException;

namespace
{

class Recorder : public CCmnSaxParseHandler
{
public:
    void startElement(const XMLCh* const, const XMLCh* const, const XMLCh* const qname,
                      const xercesc::Attributes& attributes) override
    {
        m_Text += "<" + toString(qname);
        for (XMLSize_t i = 0; i < attributes.getLength(); ++i)
            (m_Text += " " + toString(attributes.getQName(i)) + "=") +=
                toString(attributes.getValue(i));
        m_Text += ">";
    }
    const std::string& text() const { return m_Text; }
};

// What a parse left: the text, with an exclamation mark behind it for a problem.
std::string parsed(const std::string& text)
{
    Recorder handler;
    CCmnSaxParser(&handler).parse(text);
    return handler.text() + (handler.hasLastError() ? "!" : "");
}

std::string repeated(const std::string& text, int times)
{
    std::string all;
    for (int i = 0; i < times; ++i)
        all += text;
    return all;
}

// The document, all ASCII, in UTF-16.
std::string utf16(const std::string& text, bool isLittle)
{
    std::string wide;
    for (const char unit : text)
        wide += isLittle ? std::string{unit, '\0'} : std::string{'\0', unit};
    return wide;
}

// Nothing holds Xerces-C any more: every use of it has been given back.
bool isTerminated()
{
    return xercesc::XMLPlatformUtils::fgMemoryManager == nullptr;
}

// `sigil` in an entity's value is "&", or, for parameter entities, a reference to the percent sign.
std::string nested(int levels, int width, const std::string& start, const std::string& sigil)
{
    const std::string keyword = sigil == "&" ? "<!ENTITY e" : "<!ENTITY % e";
    std::string declarations = keyword + "0 '" + start + "'>";
    for (int i = 1; i <= levels; ++i)
        declarations += keyword + std::to_string(i) + " '" +
                        repeated(sigil + "e" + std::to_string(i - 1) + ";", width) + "'>";
    return declarations;
}

std::string document(const std::string& declarations, const std::string& root)
{
    return "<!DOCTYPE r [" + declarations + "]>" + root;
}

TEST(Sax, Documents)
{
    const std::string dense = "&a; text text text text text";
    const std::pair<std::string, std::string> cases[] = {
        {"<r a='1' b=\"2\">x<s/>y</r>", "<r a=1 b=2>x<s>y"},
        {"<r>a&amp;b<![CDATA[<c>]]><!-- no --><?no?></r>", "<r>a&b<c>"},
        {"<n:r xmlns:n='u' n:a='1'/>", "<n:r xmlns:n=u n:a=1>"},
        {"\xEF\xBB\xBF<r>bom</r>", "<r>bom"},
        {"", "!"},
        {"<r>x</s>", "<r>x!"},
        {"<r a='1' a='2'/>", "!"},
        {"<r>&nothing;</r>", "<r>!"},
        {"<r>\xff</r>", "<r>!"},
        {"<r/><s/>", "<r>!"},
        // Declarations of ordinary kind keep their effect, whatever their order and the encoding.
        {document("<!ENTITY a 'x&b;x'><!ENTITY b 'y<s/>'>", "<r>&a;</r>"), "<r>xy<s>x"},
        {document("<!ENTITY a 'x'><!ATTLIST r d CDATA '&a;1'>", "<r e='&a;'/>"), "<r e=x d=x1>"},
        {document("<!ENTITY % p \"<!ENTITY a 'x'>\">%p;", "<r>&a;</r>"), "<r>x"},
        {document(nested(3, 10, "", "&#37;") + "%e3;", "<r/>"), "<r>"},
        {document(nested(2, 10, "x", "&"), "<r>&e2;</r>"), "<r>" + std::string(100, 'x')},
        {document("<!ENTITY a 'x'>", "<r>" + repeated(dense, 10000) + "</r>"),
         "<r>" + repeated("x" + dense.substr(3), 10000)},
        {document("<!ENTITY \xD0\xB8 'x'><!ENTITY \xD0\xBC '&\xD0\xB8;y'>", "<r>&\xD0\xBC;</r>"),
         "<r>xy"},
        {"\xFF\xFE" + utf16(document("<!ENTITY a 'x'>", "<r>&a;</r>"), true), "<r>x"},
        {"<!DOCTYPE r SYSTEM 'none.dtd' [<!ENTITY a 'x'>]><r>&a;</r>", "<r>x"},
    };
    for (const auto& [text, result] : cases)
        EXPECT_EQ(result, parsed(text)) << text.substr(0, 200);
    EXPECT_TRUE(isTerminated());
}

TEST(Sax, TextThatWouldExpandWithoutBoundsIsRefused)
{
    const std::string lol = nested(10, 10, "lol", "&");
    const std::string big = "'" + std::string(50000, 'x') + "'";
    const std::string entity = "<!ENTITY e " + big + ">";
    const std::string many = repeated("&e;", 20000);
    std::string chain;
    for (int i = 60; i > 0; --i)
        chain += "<!ENTITY e" + std::to_string(i) + " '&e" + std::to_string(i - 1) + ";'>";
    const std::string attacks[] = {
        document(lol, "<r>&e10;</r>"),
        document(lol, "<r a='&e10;'/>"),
        document(lol + "<!ATTLIST r a CDATA '&e10;'>", "<r/>"),
        document(nested(10, 10, "", "&#37;") + "%e10;", "<r/>"),
        document("<!ENTITY % p \"" + nested(9, 10, "lol", "&#38;") + "\">%p;", "<r a='&e9;'/>"),
        document(chain + "<!ENTITY e0 'x'>", "<r>&e60;</r>"),
        document("<!ENTITY a '&b;'><!ENTITY b '&a;'>", "<r>&a;</r>"),
        document(entity, "<r>" + many + "</r>"),
        document(entity + "<!ATTLIST r a CDATA '" + many + "'>", "<r/>"),
        document("<!ATTLIST s a CDATA " + big + ">", "<r>" + repeated("<s/>", 20000) + "</r>"),
        document("<!ENTITY e '" + repeated("<s/>", 100) + "'><!ATTLIST s a CDATA " + big + ">",
                 "<r>&e;</r>"),
    };
    for (const std::string& attack : attacks) {
        const std::string declared = "<?xml version='1.0' encoding='utf-16'?>" + attack;
        // The last one goes over to another encoding behind its declaration, at an odd place.
        for (const std::string& text :
             {attack, "\xFF\xFE" + utf16(attack, true), utf16(declared, false),
              "<?xml version='1.0' encoding='UTF-16LE'?>" + utf16(attack, true)})
            EXPECT_EQ("!", parsed(text)) << attack.substr(0, 200);
    }
    std::string hidden = document(entity + "<!ATTLIST r a CDATA '" + many + "'>", "<r/>");
    for (std::size_t at = 0; (at = hidden.find("&e;", at)) != std::string::npos;)
        hidden.replace(at, 1, "+ACY-");
    for (const std::size_t blanks : {1U, 3000U})
        EXPECT_EQ("!", parsed("<?xml version='1.0'" + std::string(blanks, ' ') +
                              "encoding='UTF-7'?>" + hidden));
}

TEST(Sax, NoFileIsRead)
{
    const Scratch scratch;
    scratch.write("file", "<!ENTITY e 'SECRET'>");
    const std::string file = "SYSTEM 'file://" + scratch.path("file") + "'";
    const int watch = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    ASSERT_GE(inotify_add_watch(watch, scratch.path().c_str(), IN_OPEN | IN_ACCESS), 0);
    EXPECT_EQ("<r>!", parsed(document("<!ENTITY x " + file + ">", "<r>&x;</r>")));
    EXPECT_EQ("!", parsed(document("<!ENTITY x " + file + ">", "<r a='&x;'/>")));
    EXPECT_EQ("!", parsed(document("<!ENTITY % x " + file + ">%x;", "<r>&e;</r>")));
    EXPECT_EQ("<r>t", parsed("<!DOCTYPE r " + file + "><r>t</r>"));
    EXPECT_EQ("<r>", parsed("<!DOCTYPE r " + file + "><r>&e;</r>"));
    char event[4096];
    EXPECT_EQ(-1, read(watch, event, sizeof event));
    scratch.read("file");
    EXPECT_GT(read(watch, event, sizeof event), 0) << "the watch sees nothing";
    close(watch);
}

TEST(Sax, LinesAndLaterParsesAddUp)
{
    Recorder handler;
    CCmnSaxParser parser;
    parser.parse("<lost>");
    parser.setHandler(&handler);
    parser.parse(std::vector<std::string>{"<r>", "wo", "rd", "</r>"});
    parser.parse("<r>s</r>");
    EXPECT_FALSE(handler.hasLastError());
    parser.parse(std::vector<std::string>());
    EXPECT_TRUE(handler.hasLastError());
    parser.setHandler(nullptr);
    parser.parse("<r>lost</r>");
    EXPECT_EQ("<r>word<r>s", handler.text());
}

TEST(Sax, StoresTheLastProblem)
{
    CCmnSaxParseHandler handler;
    EXPECT_NO_THROW(handler.throwLastError());
    EXPECT_EQ(nullptr, handler.getLastError().getMessage());
    EXPECT_EQ("", handler.toString(nullptr));
    EXPECT_EQ(L"", handler.toWString(nullptr));
    EXPECT_EQ(L"wide", handler.toWString(u"wide"));

    handler.error(SAXParseException(nullptr, nullptr, nullptr, 1, 1));
    EXPECT_TRUE(handler.hasLastError());
    EXPECT_NO_THROW(handler.throwLastError());
    handler.fatalError(SAXParseException(u"fatal", nullptr, u"id", 3, 4));
    handler.warning(SAXParseException(u"warning", nullptr, nullptr, 5, 6));
    EXPECT_EQ("warning", handler.toString(handler.getLastError().getMessage()));
    EXPECT_THROW(handler.throwLastError(), SAXParseException);
    EXPECT_THROW(handler.throwLastError(), xercesc::SAXException);
}

TEST(Sax, WhatIsThrownOutlivesHandlerAndParser)
{
    try {
        CCmnSaxParseHandler handler;
        CCmnSaxParser(&handler).parse("<r>\n</s>");
        handler.throwLastError();
        FAIL() << "nothing thrown";
    } catch (const SAXParseException& problem) {
        EXPECT_EQ(2U, problem.getLineNumber());
        EXPECT_NE(u'\0', *problem.getMessage());
    }
}

TEST(Sax, AnyOrderOfLifeOnManyThreads)
{
    std::atomic<int> wrong{0};
    const auto work = [&wrong](bool isHandlerFirst, bool isParserLast) {
        for (int round = 0; round < 50; ++round) {
            auto handler = isHandlerFirst ? std::make_unique<Recorder>() : nullptr;
            auto parser = std::make_unique<CCmnSaxParser>(handler.get());
            if (!handler)
                handler = std::make_unique<Recorder>();
            parser->setHandler(handler.get());
            parser->parse(document("<!ENTITY a 'x'>", "<r>&a;</s>"));
            if (!isParserLast)
                parser.reset();
            wrong += handler->text() != "<r>x" || !handler->hasLastError() ||
                     handler->toString(handler->getLastError().getMessage()).empty();
            handler.reset();
        }
    };
    std::vector<std::thread> threads;
    for (int order = 0; order < 4; ++order)
        threads.emplace_back(work, order % 2 == 0, order < 2);
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(0, wrong);
    EXPECT_TRUE(isTerminated());
}

} // namespace
