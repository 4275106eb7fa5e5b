// SPDX-License-Identifier: LicenseRef-Tarnix
// Compares the SAX classes with bare Xerces-C, with the same features and the same handling of the
// text: all character data of a document is collected in one narrow string.
#include "cmnsaxhandler.h"
#include "cmnsaxparser.h"

#include <benchmark/benchmark.h>
#include <xercesc/framework/MemBufInputSource.hpp>
#include <xercesc/sax2/XMLReaderFactory.hpp>
#include <xercesc/util/XMLString.hpp>
#include <xercesc/util/XMLUni.hpp>
#include <xercesc/util/XercesVersion.hpp>

#include <memory>
#include <string>

using namespace tarnix_cmn_4_4;
using xercesc::XMLUni;

namespace
{

[[maybe_unused]] const bool kVersionsStated = [] {
    benchmark::AddCustomContext("peer Xerces-C", XERCES_FULLVERSIONDOT);
    return true;
}();

class Gatherer : public CCmnSaxParseHandler
{
public:
    const std::string& text() const { return m_Text; }
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
    const std::string& text() const { return m_Text; }

private:
    std::string m_Text;
};

class BareReader
{
public:
    BareReader()
    {
        for (const XMLCh* feature :
             {XMLUni::fgSAX2CoreValidation, XMLUni::fgSAX2CoreNameSpaces, XMLUni::fgXercesSchema,
              XMLUni::fgXercesSchemaFullChecking, XMLUni::fgSAX2CoreNameSpacePrefixes,
              XMLUni::fgXercesLoadExternalDTD}) {
            m_Reader->setFeature(feature, false);
        }
        m_Reader->setFeature(XMLUni::fgXercesDisableDefaultEntityResolution, true);
    }

    void parse(const std::string& text, BareGatherer& handler)
    {
        m_Reader->setContentHandler(&handler);
        m_Reader->setErrorHandler(&handler);
        m_Reader->parse(xercesc::MemBufInputSource(reinterpret_cast<const XMLByte*>(text.data()),
                                                   text.size(), "bare", false));
    }

private:
    const CCmnSaxLibrary m_Library;
    const std::unique_ptr<xercesc::SAX2XMLReader> m_Reader{
        xercesc::XMLReaderFactory::createXMLReader()};
};

// Records of a few fields, like those of messages and settings. With declarations, each record uses
// an entity and a default attribute.
std::string documentOf(std::int64_t entries, bool hasDeclarations)
{
    std::string text = "<?xml version='1.0' encoding='UTF-8'?>\n";
    if (hasDeclarations) {
        text += "<!DOCTYPE list [<!ENTITY unit 'seconds'><!ATTLIST entry kind CDATA 'plain'>]>\n";
    }
    text += "<list>\n";
    for (std::int64_t i = 0; i < entries; ++i) {
        text += "  <entry id='" + std::to_string(i) + "'><name>some name of an entry</name>" +
                "<value>" + std::to_string(i * 37) + (hasDeclarations ? " &unit;" : " seconds") +
                "</value><text>A line of text, with an &amp; and some more words.</text></entry>\n";
    }
    return text + "</list>\n";
}

void count(benchmark::State& state, std::size_t bytes)
{
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(bytes));
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

void parseTarnix(benchmark::State& state, bool hasDeclarations)
{
    const std::string text = documentOf(state.range(0), hasDeclarations);
    CCmnSaxParser parser;
    std::string gathered;
    for (auto _ : state) {
        Gatherer handler;
        parser.setHandler(&handler);
        parser.parse(text);
        benchmark::DoNotOptimize(handler);
        if (handler.text().size() != gathered.size()) {
            gathered = handler.text();
        }
    }
    count(state, text.size());
    BareGatherer other;
    BareReader().parse(text, other);
    if (gathered != other.text()) {
        state.SkipWithError("the text differs from the bare reader's");
    }
}

void parseBare(benchmark::State& state, bool hasDeclarations)
{
    const std::string text = documentOf(state.range(0), hasDeclarations);
    BareReader reader;
    for (auto _ : state) {
        BareGatherer handler;
        reader.parse(text, handler);
        benchmark::DoNotOptimize(handler);
    }
    count(state, text.size());
}

constexpr std::int64_t kEntries = 66'000; // 10 MiB

void growth(benchmark::internal::Benchmark* benchmark)
{
    benchmark->Arg(10)->Arg(1000)->Arg(100'000);
}

BENCHMARK_CAPTURE(parseTarnix, plain, false)->Name("sax:tarnix")->Arg(kEntries);
BENCHMARK_CAPTURE(parseBare, plain, false)->Name("sax:xerces")->Arg(kEntries);
BENCHMARK_CAPTURE(parseTarnix, declared, true)->Name("sax_declarations:tarnix")->Arg(kEntries);
BENCHMARK_CAPTURE(parseBare, declared, true)->Name("sax_declarations:xerces")->Arg(kEntries);
BENCHMARK_CAPTURE(parseTarnix, growth, false)->Name("sax_growth:tarnix")->Apply(growth);
BENCHMARK_CAPTURE(parseBare, growth, false)->Name("sax_growth:xerces")->Apply(growth);

} // namespace

BENCHMARK_MAIN();
