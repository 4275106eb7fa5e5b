// The SAX parser, and what closes its reader to documents that expand without bounds.
#include "cmnsaxparser.h"

#include "cmnsaxhandler.h"
#include "cmnstringtool.h"

#include <xercesc/framework/MemBufInputSource.hpp>
#include <xercesc/framework/XMLRecognizer.hpp>
#include <xercesc/sax2/DeclHandler.hpp>
#include <xercesc/sax2/XMLReaderFactory.hpp>
#include <xercesc/util/OutOfMemoryException.hpp>
#include <xercesc/util/PlatformUtils.hpp>
#include <xercesc/util/SecurityManager.hpp>
#include <xercesc/util/TransService.hpp>
#include <xercesc/util/XMLException.hpp>
#include <xercesc/util/XMLString.hpp>
#include <xercesc/util/XMLUni.hpp>

#include <algorithm>
#include <array>
#include <cstdint>
#include <memory>
#include <string_view>
#include <unordered_map>
#include <utility>

namespace tarnix_cmn_4_4
{
namespace
{

constexpr char kSourceName[] = "tarnix_sax_parser";

// The unit of cost is a character of the expanded text. A replacement of an entity in content costs
// the reader as much as some 400 characters, one in an attribute some 30; a default attribute as
// much as a few. Within the limit a small document takes some 20 ms. Each level of nesting takes a
// reader of 160 KiB.
constexpr double kBaseLimit = 1e6;
constexpr double kLimitPerByte = 8;
constexpr double kReplacementCost = 200;
constexpr double kDefaultCost = 8;
constexpr double kAttributeCost =
    0.25; // the reader looks at each that is declared, at each element
constexpr int kDeepestNesting = 32;

// ---- Uses of what a declaration can declare -----------------------------------------------------

// "&name" and "%name" use an entity, "<name" the default attributes of an element. A use is known
// by a hash of these characters. Two that share a hash are taken for one, which only makes a
// document look costlier than it is.
using Use = std::uint64_t;

constexpr Use kUseSeed = 0xCBF29CE484222325;

constexpr Use extended(Use use, XMLCh unit)
{
    return (use ^ unit) * 0x100000001B3;
}

bool isSigil(XMLCh unit)
{
    constexpr std::uint64_t sigils =
        std::uint64_t{1} << '&' | std::uint64_t{1} << '%' | std::uint64_t{1} << '<';
    return unit < 64 && (sigils >> unit & 1) != 0;
}

constexpr std::array<bool, 128> asciiNameUnits()
{
    std::array<bool, 128> units{};
    for (const XMLCh unit : std::u16string_view(u".-_:0123456789abcdefghijklmnopqrstuvwxyz"
                                                u"ABCDEFGHIJKLMNOPQRSTUVWXYZ")) {
        units[unit] = true;
    }
    return units;
}

// The two line ends of XML 1.1 end a name, the other characters beyond ASCII may belong to one.
bool isNameUnit(XMLCh unit)
{
    static constexpr std::array<bool, 128> ascii = asciiNameUnits();
    return unit < ascii.size() ? ascii[unit] : unit != 0x85 && unit != 0x2028;
}

Use useOf(XMLCh sigil, const XMLCh* name)
{
    Use use = extended(kUseSeed, sigil);
    for (; *name; ++name) {
        use = extended(use, *name);
    }
    return use;
}

// Finds the uses in a text that comes in pieces. It does not care where they stand: what is found
// in a comment is one more.
class UseScanner
{
public:
    template <class Unit, class Found>
    void scan(const Unit* text, std::size_t length, Found found)
    {
        const Unit* const end = text + length;
        while (true) {
            if (!m_Inside) {
                text = std::find_if(text, end, isSigil);
                if (text == end) {
                    return;
                }
                m_Inside = true;
                m_HasName = false;
                m_Use = extended(kUseSeed, *text++);
            }
            for (; text != end && isNameUnit(*text); ++text) {
                m_Use = extended(m_Use, *text);
                m_HasName = true;
            }
            if (text == end) {
                return;
            }
            if (m_HasName) {
                found(m_Use);
            }
            m_Inside = false;
        }
    }

private:
    Use m_Use = kUseSeed;
    bool m_Inside = false;
    bool m_HasName = false;
};

// ---- Reading the document ahead -----------------------------------------------------------------

using Transcoder = std::unique_ptr<xercesc::XMLTranscoder>;

constexpr std::size_t kPiece = 4096;

// The document's text behind its XML declaration, in the encoding in which the reader will read it.
// Every doubt about that encoding makes it unknown: a text that the reader reads otherwise than
// this could hide uses.
struct Decoded {
    const XMLByte* data = nullptr;
    std::size_t size = 0;
    Transcoder transcoder; // null if the encoding is unknown
    bool isUtf8 = false;
};

template <class Encoding>
Transcoder makeTranscoder(Encoding encoding)
{
    xercesc::XMLTransService::Codes code;
    return Transcoder(xercesc::XMLPlatformUtils::fgTransService->makeNewTranscoderFor(
        encoding, code, kPiece, xercesc::XMLPlatformUtils::fgMemoryManager));
}

// The ASCII characters of the XML declaration, from "<?xml" to ">"; empty if there is none. The
// zeros of wider encodings and a byte order mark are left out. False if it does not end soon.
bool findDeclaration(const std::string& text, std::string& declaration)
{
    constexpr std::size_t longest = 1024;
    constexpr std::size_t start = 5;
    for (std::size_t i = 0; i < text.size() && i < longest; ++i) {
        const auto byte = static_cast<unsigned char>(text[i]);
        if (byte > 0 && byte < 0x80) {
            declaration += text[i];
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
    return text.size() < longest;
}

// The encoding that the declaration names, or the empty text; false if it cannot be told for sure.
// Any quoted text but those of the other two values is taken for it.
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

// Whether the encoding reads the declaration, which is ASCII, as what it is. The reader passes over
// the name of one that does not, or goes over to it behind the declaration.
bool readsAscii(const std::string& encoding, const std::string& declaration)
{
    const Transcoder transcoder = makeTranscoder(encoding.c_str());
    if (!transcoder) {
        return false;
    }
    std::array<XMLCh, kPiece> units;
    std::array<unsigned char, kPiece> sizes;
    XMLSize_t eaten = 0;
    const XMLSize_t length = transcoder->transcodeFrom(
        reinterpret_cast<const XMLByte*>(declaration.data()), declaration.size(), units.data(),
        units.size(), eaten, sizes.data());
    return std::equal(units.data(), units.data() + length, declaration.begin(), declaration.end());
}

Decoded decode(const std::string& text)
{
    using xercesc::XMLRecognizer;
    Decoded decoded;
    decoded.data = reinterpret_cast<const XMLByte*>(text.data());
    decoded.size = text.size();
    std::string declaration;
    std::string encoding;
    if (!findDeclaration(text, declaration) || !findEncoding(declaration, encoding)) {
        return decoded;
    }
    const auto sensed = XMLRecognizer::basicEncodingProbe(decoded.data, decoded.size);
    if (sensed == XMLRecognizer::UTF_8) {
        // The declaration is ASCII even where what follows is not.
        const std::size_t behind = declaration.empty() ? 0 : text.find('>') + 1;
        decoded.data += behind;
        decoded.size -= behind;
        if (encoding.empty()) {
            decoded.transcoder = makeTranscoder(sensed);
        } else if (readsAscii(encoding, declaration)) {
            decoded.transcoder = makeTranscoder(encoding.c_str());
        }
        decoded.isUtf8 = encoding.empty() || CCmnStringTool::CompareNoCase(encoding, "UTF-8");
    } else if ((sensed == XMLRecognizer::UTF_16B || sensed == XMLRecognizer::UTF_16L) &&
               (encoding.empty() || CCmnStringTool::CompareNoCase(encoding, "UTF-16"))) {
        decoded.transcoder = makeTranscoder(sensed);
    }
    return decoded;
}

// The bytes of the next piece if each is a character of its own, otherwise 0. Transcoding them
// would take longer than all the rest of the count. Without an early end, so that the compiler
// takes many bytes at once.
std::size_t asciiPiece(const Decoded& utf8)
{
    const std::size_t size = std::min(utf8.size, kPiece);
    unsigned char all = 0;
    for (std::size_t i = 0; i < size; ++i) {
        all |= utf8.data[i];
    }
    return all < 0x80 ? size : 0;
}

// How often each use stands in the document, or more often where two share a place.
class UseCounts
{
public:
    // The shortest use, with what has to end it, has three characters.
    explicit UseCounts(const std::string& text) : m_Most(static_cast<double>(text.size()) / 3)
    {
        try {
            m_IsKnown = count(decode(text));
        } catch (const xercesc::XMLException&) {
            m_IsKnown = false; // not in that encoding, as the reader will find if it gets there
        }
    }

    // At least 1: what is declared counts.
    double of(Use use) const
    {
        return m_IsKnown ? std::max(1.0, static_cast<double>(m_Counts[placeOf(use)])) : m_Most;
    }

private:
    // Names that differ in their last character only differ in the low bits of the hash.
    static std::size_t placeOf(Use use)
    {
        return static_cast<std::size_t>(use * 0x9E3779B97F4A7C15 >> (64 - kPlaceBits));
    }

    bool count(Decoded document)
    {
        if (!document.transcoder) {
            return false;
        }
        UseScanner scanner;
        const auto found = [this](Use use) { ++m_Counts[placeOf(use)]; };
        std::array<XMLCh, kPiece> piece;
        std::array<unsigned char, kPiece> sizes;
        XMLSize_t eaten = 1;
        while (document.size > 0 && eaten > 0) {
            const std::size_t plain = document.isUtf8 ? asciiPiece(document) : 0;
            if (plain > 0) {
                scanner.scan(document.data, plain, found);
                eaten = plain;
            } else {
                const XMLSize_t length = document.transcoder->transcodeFrom(
                    document.data, document.size, piece.data(), piece.size(), eaten, sizes.data());
                scanner.scan(piece.data(), length, found);
            }
            document.data += eaten;
            document.size -= eaten;
        }
        return true;
    }

    static constexpr int kPlaceBits = 13;
    std::array<std::uint64_t, std::size_t{1} << kPlaceBits> m_Counts{};
    double m_Most;
    bool m_IsKnown = false;
};

// ---- The limit ----------------------------------------------------------------------------------

struct ExpansionRefused {
};

constexpr XMLCh kRefusal[] = u"the document's declarations expand to too much text";

// While it lives, the reader tells it of each declaration before anything can use it, and it raises
// ExpansionRefused when the document could pass the limit. The reader's own limit, which it also
// sets, holds for content and attributes only, and counts replacements but not their length.
class ExpansionGuard final : public xercesc::DeclHandler
{
public:
    // The property comes first: it is refused during a parse, whose guard then stays.
    ExpansionGuard(xercesc::SAX2XMLReader& reader, const std::string& text)
        : m_Reader(&reader),
          m_Text(text),
          m_Limit(kBaseLimit + kLimitPerByte * static_cast<double>(text.size()))
    {
        m_Security.setEntityExpansionLimit(static_cast<XMLSize_t>(m_Limit / kReplacementCost));
        m_Reader->setProperty(xercesc::XMLUni::fgXercesSecurityManager, &m_Security);
        m_Reader->setDeclarationHandler(this);
    }
    ~ExpansionGuard() override
    {
        if (m_Reader == nullptr) {
            return;
        }
        m_Reader->setDeclarationHandler(nullptr);
        m_Reader->setProperty(xercesc::XMLUni::fgXercesSecurityManager, nullptr);
    }
    ExpansionGuard(const ExpansionGuard&) = delete;
    ExpansionGuard& operator=(const ExpansionGuard&) = delete;

    // The reader is about to go, or in a state in which it takes no property.
    void abandonReader() { m_Reader = nullptr; }

    // The name of a parameter entity comes with its percent sign. References to characters and
    // parameter entities have been replaced in the value: it is what the reader will scan.
    void internalEntityDecl(const XMLCh* const name, const XMLCh* const value) override
    {
        const bool isParameter = name[0] == u'%';
        declare(useOf(isParameter ? u'%' : u'&', name + (isParameter ? 1 : 0)), kReplacementCost,
                value);
    }

    void attributeDecl(const XMLCh* const element, const XMLCh* const /*attribute*/,
                       const XMLCh* const /*type*/, const XMLCh* const /*mode*/,
                       const XMLCh* const value) override
    {
        declare(useOf(u'<', element), value != nullptr ? kDefaultCost : kAttributeCost, value);
    }

    void elementDecl(const XMLCh* const /*name*/, const XMLCh* const /*model*/) override {}
    void externalEntityDecl(const XMLCh* const /*name*/, const XMLCh* const /*publicId*/,
                            const XMLCh* const /*systemId*/) override
    {
    }

private:
    struct Declared {
        double ownCost = 0;
        std::vector<Declared*> uses;
        bool isUsed = false; // by a declaration
        // What one use of it amounts to, as of a round of assessment.
        double cost = 0;
        int depth = 0;
        unsigned int round = 0;
    };

    // A null value is an empty one.
    void declare(Use use, double ownCost, const XMLCh* value)
    {
        if (!m_Counts) {
            m_Counts = std::make_unique<UseCounts>(m_Text);
        }
        Declared& declared = m_Declared[use];
        const std::size_t length = xercesc::XMLString::stringLen(value);
        declared.ownCost += ownCost + static_cast<double>(length);
        UseScanner().scan(value, length, [this, &declared](Use other) {
            Declared& used = m_Declared[other];
            used.isUsed = true;
            declared.uses.push_back(&used);
        });
        if (declared.isUsed) {
            assessAll();
        } else {
            assessOne(use, declared);
        }
        if (m_Total > m_Limit) {
            throw ExpansionRefused();
        }
    }

    void assessOne(Use use, Declared& declared)
    {
        m_Total -= m_Counts->of(use) * declared.cost;
        declared.round = 0;
        assess(declared, 1);
        m_Total += m_Counts->of(use) * declared.cost;
    }

    // What was declared before the entity that it uses has another cost now.
    void assessAll()
    {
        ++m_Round;
        m_Total = 0;
        for (auto& [use, declared] : m_Declared) {
            assess(declared, 1);
            m_Total += m_Counts->of(use) * declared.cost;
        }
    }

    // Entities that use each other in a circle end at the deepest level. The work counts towards
    // the limit too, or declarations in the worst order would make it grow with their square.
    void assess(Declared& declared, int level)
    {
        if (declared.round == m_Round) {
            return;
        }
        m_Work += 1 + static_cast<double>(declared.uses.size());
        if (level > kDeepestNesting || m_Work > m_Limit) {
            throw ExpansionRefused();
        }
        double cost = declared.ownCost;
        int depth = 1;
        for (Declared* used : declared.uses) {
            assess(*used, level + 1);
            cost += used->cost;
            depth = std::max(depth, used->depth + 1);
        }
        if (depth > kDeepestNesting) {
            throw ExpansionRefused();
        }
        declared.cost = cost;
        declared.depth = depth;
        declared.round = m_Round;
    }

    xercesc::SAX2XMLReader* m_Reader;
    const std::string& m_Text;
    const double m_Limit;
    xercesc::SecurityManager m_Security;
    std::unique_ptr<UseCounts> m_Counts; // null before the first declaration
    std::unordered_map<Use, Declared> m_Declared;
    double m_Total = 0;
    double m_Work = 0;
    unsigned int m_Round = 1;
};

struct Feature {
    const XMLCh* name;
    bool value;
};

// Null if Xerces-C fails. A reader that is not closed to the last feature is not kept.
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
        CCmnSaxLibrary::endUse(); // of an object that does not come to be
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
    } catch (const ExpansionRefused&) {
        if (m_Handler != nullptr) {
            m_Handler->fatalError(
                xercesc::SAXParseException(kRefusal, nullptr, source.getSystemId(), 0, 0));
        }
    } catch (const xercesc::OutOfMemoryException&) {
        // It stays in the midst of that parse, and would refuse every other one.
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
