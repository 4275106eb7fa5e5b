// The SAX classes beside bare Xerces-C in the same program, with the same features and the same
// handling of the text: all character data of a document ends up in one narrow string.
#include "cmnsaxhandler.h"
#include "cmnsaxparser.h"

#include <benchmark/benchmark.h>

#include <memory>
#include <string>
#include <xercesc/framework/MemBufInputSource.hpp>
#include <xercesc/sax2/XMLReaderFactory.hpp>
#include <xercesc/util/XMLString.hpp>
#include <xercesc/util/XMLUni.hpp>

using namespace tarnix_cmn_4_4;
using xercesc::XMLUni;

namespace
{

class Gatherer : public CCmnSaxParseHandler
{
public:
    std::size_t size() const { return m_Text.size(); }
};

class BareGatherer : public xercesc::DefaultHandler
{
public:
    void characters(const XMLCh* const text, const XMLSize_t /*length*/) override
    {
        char* narrow = xercesc::XMLString::transcode(text);
        m_Text += narrow;
        xercesc::XMLString::release(&narrow);
    }
    void fatalError(const xercesc::SAXParseException& problem) override { throw problem; }
    std::size_t size() const { return m_Text.size(); }

private:
    std::string m_Text;
};

// Records of a few fields, as messages and settings have them: some 8 MB. With declarations, an
// entity and a default attribute are used in each.
std::string documentOf(bool hasDeclarations)
{
    std::string text = "<?xml version='1.0' encoding='UTF-8'?>\n";
    if (hasDeclarations)
        text += "<!DOCTYPE list [<!ENTITY unit 'seconds'><!ATTLIST entry kind CDATA 'plain'>]>\n";
    text += "<list>\n";
    for (int i = 0; i < 50000; ++i) {
        text += "  <entry id='" + std::to_string(i) + "'><name>some name of an entry</name>" +
                "<value>" + std::to_string(i * 37) + (hasDeclarations ? " &unit;" : " seconds") +
                "</value><text>A line of text, with an &amp; and some more words.</text></entry>\n";
    }
    return text + "</list>\n";
}

void report(benchmark::State& state, std::size_t bytes, std::size_t gathered)
{
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(bytes));
    state.counters["gathered"] = static_cast<double>(gathered);
}

void Own(benchmark::State& state)
{
    const std::string text = documentOf(state.range(0) != 0);
    CCmnSaxParser parser;
    std::size_t gathered = 0;
    for (auto _ : state) {
        Gatherer handler;
        parser.setHandler(&handler);
        parser.parse(text);
        gathered = handler.size();
        if (handler.hasLastError())
            state.SkipWithError("not parsed");
    }
    report(state, text.size(), gathered);
}

void Bare(benchmark::State& state)
{
    const CCmnSaxLibrary library;
    const std::string text = documentOf(state.range(0) != 0);
    const std::unique_ptr<xercesc::SAX2XMLReader> reader(
        xercesc::XMLReaderFactory::createXMLReader());
    for (const XMLCh* feature :
         {XMLUni::fgSAX2CoreValidation, XMLUni::fgSAX2CoreNameSpaces, XMLUni::fgXercesSchema,
          XMLUni::fgXercesSchemaFullChecking, XMLUni::fgSAX2CoreNameSpacePrefixes})
        reader->setFeature(feature, false);
    std::size_t gathered = 0;
    for (auto _ : state) {
        BareGatherer handler;
        reader->setContentHandler(&handler);
        reader->setErrorHandler(&handler);
        reader->parse(xercesc::MemBufInputSource(reinterpret_cast<const XMLByte*>(text.data()),
                                                 text.size(), "bare", false));
        gathered = handler.size();
    }
    report(state, text.size(), gathered);
}

BENCHMARK(Own)->ArgName("declarations")->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
BENCHMARK(Bare)->ArgName("declarations")->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
