// SPDX-License-Identifier: LicenseRef-Tarnix
// UseCounts: finds the encoding of a document and counts the uses. The check of the tags.
#include "cmnsaxuses.h"

#include "cmnsaxtags.h"
#include "cmnstringtool.h"

#include <unicode/utf8.h>
#include <xercesc/framework/XMLRecognizer.hpp>
#include <xercesc/util/PlatformUtils.hpp>
#include <xercesc/util/TransService.hpp>
#include <xercesc/util/XMLException.hpp>

#include <algorithm>
#include <cstdio>
#include <memory>

namespace tarnix_cmn_4_4
{
namespace
{

using Transcoder = std::unique_ptr<xercesc::XMLTranscoder>;

constexpr std::size_t kPiece = BUFSIZ;

// The largest text whose tags need not be checked, because the worst of them is fast enough.
constexpr std::size_t kMaxUnknownSize = std::size_t{256} << 10;

// The text of the document after its XML declaration, and the encoding in which the reader will
// read it. If there is any doubt, the encoding is unknown: if the reader used a different one, some
// uses would not be counted.
struct Decoded {
    const XMLByte* data;
    std::size_t size;
    Transcoder transcoder; // null if the encoding is unknown
    bool isUtf8;
};

// What the start of a document says about its encoding.
struct Start {
    xercesc::XMLRecognizer::Encodings sensed;
    std::string declaration;
    std::string encoding;
    bool isCertain;
};

template <class Encoding>
Transcoder makeTranscoder(Encoding encoding)
{
    xercesc::XMLTransService::Codes code;
    return Transcoder(xercesc::XMLPlatformUtils::fgTransService->makeNewTranscoderFor(
        encoding, code, kPiece, xercesc::XMLPlatformUtils::fgMemoryManager));
}

// Collects the ASCII characters of the XML declaration, from "<?xml" to ">"; none if there is no
// declaration. Skips a byte order mark, and the zeros of wider encodings. False if the declaration
// does not end within a usual length.
bool findDeclaration(const std::string& text, std::string& declaration)
{
    constexpr std::size_t start = 5;
    for (const char byte : std::string_view(text).substr(0, kMaxDeclaration)) {
        if (static_cast<signed char>(byte) > 0) {
            declaration += byte;
        }
        if (declaration.size() == start + 1 &&
            (declaration.compare(0, start, "<?xml") != 0 || declaration[start] > ' ')) {
            declaration.clear();
            return true;
        }
        if (byte == '>') {
            return true;
        }
    }
    return text.size() < kMaxDeclaration;
}

// Gets the encoding that the declaration names, or an empty text; false if it is not certain. Each
// quoted text is taken as the encoding, except the possible values of the other two attributes.
bool findEncoding(const std::string& declaration, std::string& encoding)
{
    std::size_t start = 0;
    while ((start = declaration.find_first_of("\"'", start)) != std::string::npos) {
        const std::size_t end = declaration.find(declaration[start], start + 1);
        if (end == std::string::npos) {
            return false;
        }
        const std::string value = declaration.substr(start + 1, end - start - 1);
        start = end + 1;
        if (value == "1.0" || value == "1.1" || value == "yes" || value == "no") {
            continue;
        }
        if (!encoding.empty()) {
            return false;
        }
        encoding = value;
    }
    return true;
}

// Whether the declaration, which is ASCII, is the same text in this encoding. If it is not, the
// reader ignores the encoding, or switches to it only after the declaration.
bool readsAscii(const std::string& encoding, const std::string& declaration)
{
    const Transcoder transcoder = makeTranscoder(encoding.c_str());
    if (!transcoder) {
        return false;
    }
    std::array<XMLCh, kPiece> units;
    std::array<unsigned char, kPiece> sizes;
    XMLSize_t consumed;
    const XMLSize_t length = transcoder->transcodeFrom(
        reinterpret_cast<const XMLByte*>(declaration.data()), declaration.size(), units.data(),
        units.size(), consumed, sizes.data());
    return std::equal(units.data(), units.data() + length, declaration.begin(), declaration.end());
}

Start startOf(const std::string& text)
{
    Start start;
    start.sensed = xercesc::XMLRecognizer::basicEncodingProbe(
        reinterpret_cast<const XMLByte*>(text.data()), text.size());
    start.isCertain =
        findDeclaration(text, start.declaration) && findEncoding(start.declaration, start.encoding);
    return start;
}

bool isUtf16(const Start& start)
{
    return start.sensed == xercesc::XMLRecognizer::UTF_16B ||
           start.sensed == xercesc::XMLRecognizer::UTF_16L;
}

Decoded decode(const std::string& text, const Start& start)
{
    Decoded decoded{reinterpret_cast<const XMLByte*>(text.data()), text.size(), nullptr, false};
    if (!start.isCertain) {
        return decoded;
    }
    const std::string& encoding = start.encoding;
    if (start.sensed == xercesc::XMLRecognizer::UTF_8) {
        // The declaration is ASCII, even if what follows is not. It may have no end.
        const std::size_t skipped =
            start.declaration.empty() ? 0 : std::min(text.find('>'), text.size());
        decoded.data += skipped;
        decoded.size -= skipped;
        if (encoding.empty()) {
            decoded.transcoder = makeTranscoder(start.sensed);
        } else if (readsAscii(encoding, start.declaration)) {
            decoded.transcoder = makeTranscoder(encoding.c_str());
        }
        decoded.isUtf8 = encoding.empty() || CCmnStringTool::CompareNoCase(encoding, "UTF-8");
    } else if (isUtf16(start) &&
               (encoding.empty() || CCmnStringTool::CompareNoCase(encoding, "UTF-16"))) {
        decoded.transcoder = makeTranscoder(start.sensed);
    }
    return decoded;
}

// The size of the next piece if all of it is ASCII, otherwise 0. ASCII is not transcoded, because
// that would take longer than the rest of the count. The loop has no early exit, so that the
// compiler can vectorize it.
std::size_t asciiPiece(const Decoded& utf8)
{
    const std::size_t size = std::min(utf8.size, kPiece);
    unsigned char all{};
    for (std::size_t i = 0; i < size; ++i) {
        all |= utf8.data[i];
    }
    return U8_IS_SINGLE(all) ? size : 0;
}

// Passes the text on in pieces, as bytes where they are ASCII and otherwise as UTF-16.
template <class Scan>
void scanAll(Decoded& document, Scan scan)
{
    std::array<XMLCh, kPiece> piece;
    std::array<unsigned char, kPiece> sizes;
    XMLSize_t consumed = document.size;
    while (consumed != 0 && document.size != 0) {
        const std::size_t plain = document.isUtf8 ? asciiPiece(document) : 0;
        if (plain != 0) {
            scan(document.data, plain);
            consumed = plain;
        } else {
            const XMLSize_t length = document.transcoder->transcodeFrom(
                document.data, document.size, piece.data(), piece.size(), consumed, sizes.data());
            scan(piece.data(), length);
        }
        document.data += consumed;
        document.size -= consumed;
    }
}

} // namespace

// The shortest use has three characters: "&", one character of a name, and the one that ends it.
UseCounts::UseCounts(const std::string& text) : m_MaxCount(static_cast<double>(text.size()) / 3)
{
    try {
        m_IsKnown = count(text);
    } catch (const xercesc::XMLException&) {
        // Invalid in that encoding: the reader fails too, if it gets there.
    }
}

bool UseCounts::count(const std::string& text)
{
    Decoded document = decode(text, startOf(text));
    if (!document.transcoder) {
        return false;
    }
    UseScanner scanner;
    const auto found = [this](UseKey key) { ++m_Counts[counterOf(key)]; };
    scanAll(document,
            [&](const auto* units, std::size_t length) { scanner.scan(units, length, found); });
    return true;
}

bool hasAsciiMarkup(const std::string& text)
{
    const Start start = startOf(text);
    if (!start.isCertain || start.sensed != xercesc::XMLRecognizer::UTF_8) {
        return false;
    }
    const std::string encoding = CCmnStringTool::tostrlower(start.encoding);
    // The reader ignores UTF-16 in a declaration of single bytes.
    const auto isIt = [&encoding](const char* name) { return encoding.rfind(name, 0) == 0; };
    return encoding.empty() || encoding == "utf-8" || encoding == "utf-16" || isIt("us-ascii") ||
           isIt("iso-8859-") || isIt("windows-125");
}

void checkTags(const std::string& text, const CCmnSaxLimits& limits)
{
    TagWatch watch(limits);
    if (hasAsciiMarkup(text)) {
        watch.scan(reinterpret_cast<const XMLByte*>(text.data()), text.size());
        return;
    }
    try {
        const Start start = startOf(text);
        Decoded document = decode(text, start);
        if (!document.transcoder && isUtf16(start)) {
            document.transcoder = makeTranscoder(start.sensed); // whatever it declares
        }
        if (document.transcoder) {
            scanAll(document,
                    [&watch](const auto* units, std::size_t length) { watch.scan(units, length); });
        } else if (text.size() > kMaxUnknownSize) {
            throw SaxLimitExceeded{kEncodingLimitMessage};
        }
    } catch (const xercesc::XMLException&) {
        // Invalid in that encoding: the reader fails at the same place.
    }
}

} // namespace tarnix_cmn_4_4
