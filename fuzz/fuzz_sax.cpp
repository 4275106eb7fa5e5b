// SPDX-License-Identifier: LicenseRef-Tarnix
// Fuzzer of the XML parser. The input is a document, or, after a byte 1, makes a large one by
// FuzzInput::expanded. In that, each byte 2 becomes another name, all with the same hash in the
// reader's tables, and each byte 3 becomes a number. The handler reads all that it gets; no
// document may expand beyond the parser's limit.
#include "cmnsaxhandler.h"
#include "cmnsaxparser.h"
#include "fuzzbounds.h"
#include "support/testlocale.h"

#include <xercesc/sax2/Attributes.hpp>
#include <xercesc/util/XMLString.hpp>

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

static std::string documentOf(FuzzInput input)
{
    const std::string text = input.rest();
    if (text.empty() || text[0] != '\1')
        return text;
    FuzzInput rest(std::string_view(text).substr(1));
    std::string all;
    unsigned int names = 0;
    for (const char c : rest.expanded(800000)) {
        if (c == '\3')
            all += std::to_string(names++);
        else if (c != '\2')
            all += c;
        else
            for (unsigned int bits = names++ | 1U << 15; bits > 1; bits /= 2)
                all += bits % 2 != 0 ? "b0" : "aV";
    }
    return all;
}

void fuzz(FuzzInput input)
{
    static const CCmnSaxLibrary library;
    static const TestLocale locale("C.UTF-8");
    require(locale.isKnown(), "the locale exists");
    const std::string text = documentOf(input);
    Counter handler;
    CCmnSaxParser parser(&handler);
    {
        // The handler keeps up to nine characters for each byte.
        const FuzzBounds bounds(0.5, 1.5e-6, 32e6, 300, double(text.size()));
        parser.parse(text);
    }
    require(handler.units <= 1000000 + 9 * text.size(), "expansion is limited");
    std::size_t given = 0;
    const auto next = [&] {
        const std::string piece = text.substr(given, 1 + given % 4096 * 3);
        given += piece.size();
        return piece;
    };
    Counter other;
    CCmnSaxParser(&other).parsePieces(next);
    require(handler.hasLastError() == other.hasLastError(), "a document in pieces is the same");
    require(handler.hasLastError() || handler.units == other.units, "so is its text");
}
