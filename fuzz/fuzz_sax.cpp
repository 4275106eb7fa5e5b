// Any bytes as a document. The handler touches all that it gets, and no document may give more than
// the parser's limit allows.
#include "cmnsaxhandler.h"
#include "cmnsaxparser.h"

#include <clocale>
#include <cstdint>
#include <cstdlib>
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
        if (xercesc::XMLString::stringLen(text) != length)
            std::abort(); // what the base class relies on
        m_Units += length;
        CCmnSaxParseHandler::characters(text, length);
    }
    std::size_t units() const { return m_Units; }

private:
    std::size_t m_Units = 0;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static const char* const locale = std::setlocale(LC_ALL, "C.UTF-8");
    static const CCmnSaxLibrary library;
    const std::string text(reinterpret_cast<const char*>(data), size);
    Counter handler;
    CCmnSaxParser parser(&handler);
    parser.parse(text);
    if (!locale || handler.units() > 1000000 + 9 * size)
        std::abort();
    try {
        handler.throwLastError();
    } catch (const xercesc::SAXParseException& problem) {
        if (!handler.hasLastError() || handler.toString(problem.getMessage()).empty())
            std::abort();
    }
    const std::size_t half = size / 2;
    parser.parse(std::vector<std::string>{text.substr(0, half), text.substr(half)});
    return 0;
}
