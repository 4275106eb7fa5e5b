// Any bytes as a document. The handler touches all that it gets, and no document may give more than
// the parser's limit allows.
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
        require(xercesc::XMLString::stringLen(text) == length, "what the base class relies on");
        units += length;
        CCmnSaxParseHandler::characters(text, length);
    }
    std::size_t units = 0;
};

// Xerces-C loses some 200 bytes with each malformed content model, however long it is.
extern "C" const char* __lsan_default_suppressions() { return "leak:libxerces-c\n"; }

void fuzz(FuzzInput input)
{
    static const CCmnSaxLibrary library;
    require(std::setlocale(LC_ALL, "C.UTF-8"), "a locale");
    const std::string text = input.rest();
    Counter handler;
    CCmnSaxParser parser(&handler);
    parser.parse(text);
    const std::size_t units = handler.units;
    require(units <= 1000000 + 9 * text.size(), "the limit");
    const std::size_t middle = text.size() / 2;
    parser.parse(std::vector<std::string>{text.substr(0, middle), text.substr(middle)});
    require(handler.units == 2 * units, "the same once more, in pieces");
}
