// Any bytes as a document. The handler touches all that it gets, and no document may give more than
// the parser's limit allows.
#include "cmnsaxhandler.h"
#include "cmnsaxparser.h"
#include "fuzzinput.h"

#include <clocale>
#include <xercesc/sax2/Attributes.hpp>
#include <xercesc/util/XMLString.hpp>

using namespace tarnix_cmn_4_4;

namespace
{

class Counter : public CCmnSaxParseHandler
{
public:
    void startElement(const XMLCh* const, const XMLCh* const, const XMLCh* const,
                      const xercesc::Attributes& attributes) override
    {
        for (XMLSize_t i = 0; i < attributes.getLength(); ++i) {
            m_Units += xercesc::XMLString::stringLen(attributes.getValue(i));
            toWString(attributes.getQName(i));
        }
    }
    void characters(const XMLCh* const text, const XMLSize_t length) override
    {
        require(xercesc::XMLString::stringLen(text) == length, "what the base class relies on");
        m_Units += length;
        CCmnSaxParseHandler::characters(text, length);
    }
    std::size_t units() const { return m_Units; }

private:
    std::size_t m_Units = 0;
};

} // namespace

// Xerces-C loses some 200 bytes with each malformed content model, however long it is.
extern "C" const char* __lsan_default_suppressions()
{
    return "leak:xercesc_3_2::MemoryManagerImpl::allocate\n";
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static const char* const locale = std::setlocale(LC_ALL, "C.UTF-8");
    static const CCmnSaxLibrary library;
    require(locale, "a locale");
    const std::string text = FuzzInput(data, size).rest();
    Counter handler;
    CCmnSaxParser parser(&handler);
    parser.parse(text);
    require(handler.units() <= 1000000 + 9 * size, "the limit");
    try {
        handler.throwLastError();
    } catch (const xercesc::SAXParseException& problem) {
        require(!handler.toString(problem.getMessage()).empty(), "a problem's text");
    }
    const std::size_t half = size / 2;
    parser.parse(std::vector<std::string>{text.substr(0, half), text.substr(half)});
    return 0;
}
