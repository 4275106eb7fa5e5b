// CCmnSaxParser: a reader without the features that untrusted input could misuse.
#include "cmnsaxparser.h"

#include "cmnsaxguard.h"
#include "cmnsaxhandler.h"

#include <xercesc/framework/MemBufInputSource.hpp>
#include <xercesc/sax2/XMLReaderFactory.hpp>
#include <xercesc/util/OutOfMemoryException.hpp>
#include <xercesc/util/XMLException.hpp>
#include <xercesc/util/XMLUni.hpp>

#include <memory>
#include <utility>

namespace tarnix_cmn_4_4
{
namespace
{

constexpr char kSourceName[] = "tarnix_sax_parser";

struct Feature {
    const XMLCh* name;
    bool value;
};

// Null if Xerces-C fails, or if one of the features cannot be set.
xercesc::SAX2XMLReader* makeReader()
{
    using xercesc::XMLUni;
    const Feature features[] = {
        {XMLUni::fgSAX2CoreValidation, false},
        {XMLUni::fgSAX2CoreNameSpaces, false},
        {XMLUni::fgXercesSchema, false},
        {XMLUni::fgXercesSchemaFullChecking, false},
        {XMLUni::fgSAX2CoreNameSpacePrefixes, false},
        {XMLUni::fgXercesLoadExternalDTD, false},
        {XMLUni::fgXercesDisableDefaultEntityResolution, true},
    };
    try {
        std::unique_ptr<xercesc::SAX2XMLReader> reader(
            xercesc::XMLReaderFactory::createXMLReader());
        for (const Feature& feature : features) {
            reader->setFeature(feature.name, feature.value);
        }
        return reader.release();
    } catch (const xercesc::XMLException&) {
        return nullptr;
    }
}

} // namespace

CCmnSaxParser::CCmnSaxParser(xercesc::DefaultHandler* handler)
    : m_Handler(nullptr), m_Reader(nullptr)
{
    init();
    if (handler != nullptr) {
        setHandler(handler);
    }
}

CCmnSaxParser::~CCmnSaxParser()
{
    delete m_Reader; // NOLINT(cppcoreguidelines-owning-memory)
    CCmnSaxLibrary::endUse();
}

void CCmnSaxParser::init()
{
    CCmnSaxLibrary::beginUse();
    try {
        m_Reader = makeReader();
    } catch (...) {
        CCmnSaxLibrary::endUse(); // the destructor does not run if the constructor throws
        throw;
    }
}

void CCmnSaxParser::setHandler(xercesc::DefaultHandler* handler)
{
    m_Handler = handler;
    if (m_Reader == nullptr) {
        return;
    }
    try {
        m_Reader->setContentHandler(handler);
        m_Reader->setErrorHandler(handler);
    } catch (const xercesc::XMLException&) {
    }
}

void CCmnSaxParser::parse(const std::string& text)
{
    if (m_Reader == nullptr) {
        m_Reader = makeReader();
        setHandler(m_Handler);
    }
    if (m_Reader == nullptr) {
        return;
    }
    const xercesc::MemBufInputSource source(reinterpret_cast<const XMLByte*>(text.data()),
                                            text.size(), kSourceName, false);
    ExpansionGuard guard(*m_Reader, text);
    try {
        m_Reader->parse(source);
    } catch (const ExpansionLimitExceeded&) {
        if (m_Handler != nullptr) {
            m_Handler->fatalError(xercesc::SAXParseException(kExpansionLimitMessage, nullptr,
                                                             source.getSystemId(), 0, 0));
        }
    } catch (const xercesc::OutOfMemoryException&) {
        // The reader still counts as parsing, and would reject every further parse.
        guard.abandonReader();
        delete std::exchange(m_Reader, nullptr); // NOLINT(cppcoreguidelines-owning-memory)
        throw;
    }
}

void CCmnSaxParser::parse(const std::vector<std::string>& lines)
{
    std::size_t size = 0;
    for (const std::string& line : lines) {
        size += line.size() + 1;
    }
    std::string text;
    text.reserve(size);
    for (const std::string& line : lines) {
        text += line;
    }
    parse(text);
}

} // namespace tarnix_cmn_4_4
