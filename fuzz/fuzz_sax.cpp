// Fuzzer of the XML parser. The input is a document. The handler reads all that it gets; no
// document may expand beyond the parser's limit.
#include "cmnsaxhandler.h"
#include "cmnsaxparser.h"
#include "fuzzinput.h"

#include <xercesc/sax2/Attributes.hpp>
#include <xercesc/util/XMLString.hpp>

#include <clocale>

using namespace tarnix_cmn_4_4;

struct Counter : CCmnSaxParseHandler {
    void startElement(const XMLCh* const, const XMLCh* const, const XMLCh* const,
                      const xercesc::Attributes& attributes) override
    {
        for (XMLSize_t i = 0; i < attributes.getLength(); ++i) {
            units += xercesc::XMLString::stringLen(attributes.getValue(i));
            toWString(attributes.getQName(i));
        }
    }
    void characters(const XMLCh* const text, const XMLSize_t length) override
    {
        require(xercesc::XMLString::stringLen(text) == length, "the base class may read it");
        units += length;
        CCmnSaxParseHandler::characters(text, length);
    }
    std::size_t units = 0;
};

// Xerces-C leaks about 200 bytes for each malformed content model, of any length.
extern "C" const char* __lsan_default_suppressions() { return "leak:libxerces-c\n"; }

void fuzz(FuzzInput input)
{
    static const CCmnSaxLibrary library;
    require(std::setlocale(LC_ALL, "C.UTF-8"), "the locale exists");
    const std::string text = input.rest();
    Counter handler;
    CCmnSaxParser parser(&handler);
    parser.parse(text);
    const std::size_t units = handler.units;
    require(units <= 1000000 + 9 * text.size(), "expansion is limited");
    const std::size_t middle = text.size() / 2;
    parser.parse(std::vector<std::string>{text.substr(0, middle), text.substr(middle)});
    require(handler.units == 2 * units, "a document in pieces gives the same");
}
