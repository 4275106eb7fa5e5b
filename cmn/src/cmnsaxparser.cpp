// SPDX-License-Identifier: LicenseRef-Tarnix
// CCmnSaxParser: a reader without the features that untrusted input could misuse.
#include "cmnsaxparser.h"

#include "cmnsaxguard.h"
#include "cmnsaxhandler.h"
#include "cmnsaxpieces.h"
#include "cmnsaxstate.h"

#include <xercesc/framework/MemBufInputSource.hpp>
#include <xercesc/sax/SAXException.hpp>
#include <xercesc/sax2/XMLReaderFactory.hpp>
#include <xercesc/util/OutOfMemoryException.hpp>
#include <xercesc/util/XMLException.hpp>
#include <xercesc/util/XMLUni.hpp>

#include <memory>
#include <new>
#include <utility>

namespace tarnix_cmn_4_4
{
namespace
{

using xercesc::SAX2XMLReader;
using xercesc::XMLUni;

constexpr char kSourceName[] = "tarnix_sax_parser";
constexpr XMLCh kMemoryLimitMessage[] = u"the document needs too much memory";

struct Feature {
    const XMLCh* name;
    bool value;
};

// Null if Xerces-C fails, or if one of the features cannot be set.
std::unique_ptr<SAX2XMLReader> makeReader(SaxState& state, SaxMemory& memory)
{
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
        std::unique_ptr<SAX2XMLReader> reader(xercesc::XMLReaderFactory::createXMLReader(&memory));
        for (const Feature& feature : features) {
            reader->setFeature(feature.name, feature.value);
        }
        reader->setValidator(new (&memory) ScannerAccess); // the reader deletes it
        reader->setProperty(XMLUni::fgXercesSecurityManager, &state);
        return reader;
    } catch (const xercesc::XMLException&) {
        return nullptr;
    }
}

// With a state of its own. Null as above.
SAX2XMLReader* makeReader()
{
    auto state = std::make_unique<SaxState>();
    std::unique_ptr<SAX2XMLReader> reader = makeReader(*state, *state->memory);
    if (reader) {
        static_cast<void>(state.release()); // the reader leads to it
    }
    return reader.release();
}

SaxState& stateOf(const SAX2XMLReader& reader)
{
    return *static_cast<SaxState*>(reader.getProperty(XMLUni::fgXercesSecurityManager));
}

void attach(SAX2XMLReader& reader, xercesc::DefaultHandler* handler)
{
    try {
        reader.setContentHandler(handler);
        reader.setErrorHandler(handler);
    } catch (const xercesc::XMLException&) {
    }
}

// After a failed allocation a reader counts as parsing, and rejects every further parse. If this
// fails too, the reader stays what it is until the next parse.
SAX2XMLReader* replaced(SAX2XMLReader* broken, xercesc::DefaultHandler* handler)
{
    SaxState& state = stateOf(*broken);
    auto memory = std::make_unique<SaxMemory>();
    std::unique_ptr<SAX2XMLReader> reader = makeReader(state, *memory);
    if (!reader) {
        return broken;
    }
    attach(*reader, handler);
    state.renewElements();
    // From here on nothing throws.
    delete broken; // NOLINT(cppcoreguidelines-owning-memory)
    state.memory = std::move(memory);
    state.isBroken = false;
    return reader.release();
}

// A reader that can parse, or null.
SAX2XMLReader* usable(SAX2XMLReader* reader, xercesc::DefaultHandler* handler)
{
    if (reader == nullptr) {
        reader = makeReader();
        if (reader != nullptr) {
            attach(*reader, handler);
        }
    } else if (stateOf(*reader).isBroken) {
        reader = replaced(reader, handler);
    }
    return reader;
}

class ParseInProgress
{
public:
    explicit ParseInProgress(SaxState& state) : m_State(state)
    {
        if (m_State.isParsing) {
            throw xercesc::SAXNotSupportedException("a parse is in progress");
        }
        m_State.isParsing = true;
    }
    ~ParseInProgress()
    {
        m_State.isParsing = false;
        m_State.memory->removeLimit();
    }
    ParseInProgress(const ParseInProgress&) = delete;
    ParseInProgress& operator=(const ParseInProgress&) = delete;

private:
    SaxState& m_State;
};

// Replaces a reader that the parse has broken, and with it frees its memory.
class Replacement
{
public:
    Replacement(SAX2XMLReader*& reader, xercesc::DefaultHandler*& handler, SaxState& state)
        : m_Reader(reader), m_Handler(handler), m_State(state)
    {
    }
    ~Replacement()
    {
        if (!m_State.isBroken) {
            return;
        }
        try {
            m_Reader = replaced(m_Reader, m_Handler);
        } catch (...) { // still no memory: the next parse tries again
        }
    }
    Replacement(const Replacement&) = delete;
    Replacement& operator=(const Replacement&) = delete;

private:
    SAX2XMLReader*& m_Reader;
    xercesc::DefaultHandler*& m_Handler;
    SaxState& m_State;
};

// Returns the message for the handler if the document exceeds a limit, otherwise null. `begin` may
// look at the start of the document.
template <class Begin>
const XMLCh* parseWithin(SAX2XMLReader& reader, SaxState& state, SaxText& text,
                         const xercesc::InputSource& source, Begin begin)
{
    const ParseInProgress parsing(state);
    state.memory->limit(static_cast<double>(state.limits.memory));
    try {
        begin();
        const ExpansionGuard guard(reader, state, text);
        reader.parse(source);
    } catch (const SaxLimitExceeded& limit) {
        return limit.message;
    } catch (const xercesc::OutOfMemoryException&) {
        state.isBroken = true;
        if (!state.memory->wasExceeded()) {
            throw;
        }
        return kMemoryLimitMessage;
    }
    return nullptr;
}

void report(xercesc::DefaultHandler* handler, const XMLCh* message,
            const xercesc::InputSource& source)
{
    if (handler != nullptr && message != nullptr) {
        handler->fatalError(
            xercesc::SAXParseException(message, nullptr, source.getSystemId(), 0, 0));
    }
}

class WholeText final : public SaxText
{
public:
    explicit WholeText(const std::string& text) : m_Text(text) {}
    const std::string& whole() override { return m_Text; }

private:
    const std::string& m_Text;
};

} // namespace

CCmnSaxParser::CCmnSaxParser(xercesc::DefaultHandler* handler)
    : m_Handler(nullptr), m_Reader(nullptr)
{
    init();
    setHandler(handler);
}

CCmnSaxParser::~CCmnSaxParser()
{
    if (m_Reader != nullptr) {
        const std::unique_ptr<SaxState> state(&stateOf(*m_Reader));
        delete m_Reader; // NOLINT(cppcoreguidelines-owning-memory)
    }
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
    if (m_Reader != nullptr) {
        attach(*m_Reader, handler);
    }
}

bool CCmnSaxParser::setLimits(const CCmnSaxLimits& limits)
{
    m_Reader = usable(m_Reader, m_Handler);
    if (m_Reader == nullptr || stateOf(*m_Reader).isParsing) {
        return false;
    }
    stateOf(*m_Reader).limits = limits;
    return true;
}

CCmnSaxLimits CCmnSaxParser::getLimits() const
{
    return m_Reader != nullptr ? stateOf(*m_Reader).limits : CCmnSaxLimits();
}

void CCmnSaxParser::parse(const std::string& text)
{
    m_Reader = usable(m_Reader, m_Handler);
    if (m_Reader == nullptr) {
        return;
    }
    SaxState& state = stateOf(*m_Reader);
    const Replacement replacement(m_Reader, m_Handler, state);
    const xercesc::MemBufInputSource source(reinterpret_cast<const XMLByte*>(text.data()),
                                            text.size(), kSourceName, false);
    WholeText whole(text);
    const auto begin = [&] {
        state.memory->raiseLimit(state.bytesFor(text.size()));
        checkTags(text, state.limits);
    };
    report(m_Handler, parseWithin(*m_Reader, state, whole, source, begin), source);
}

void CCmnSaxParser::parsePieces(const std::function<std::string()>& next)
{
    m_Reader = usable(m_Reader, m_Handler);
    if (m_Reader == nullptr) {
        return;
    }
    SaxState& state = stateOf(*m_Reader);
    const Replacement replacement(m_Reader, m_Handler, state);
    SaxPieces pieces(next, state);
    const SaxPieceSource source(pieces, kSourceName);
    report(m_Handler, parseWithin(*m_Reader, state, pieces, source, [&pieces] { pieces.start(); }),
           source);
}

void CCmnSaxParser::parse(const std::vector<std::string>& lines)
{
    std::size_t size = 0;
    for (const std::string& line : lines) {
        size += line.size();
    }
    std::string text;
    text.reserve(size);
    for (const std::string& line : lines) {
        text += line;
    }
    parse(text);
}

} // namespace tarnix_cmn_4_4
