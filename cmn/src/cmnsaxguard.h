// SPDX-License-Identifier: LicenseRef-Tarnix
// Limits what the declarations and the names of an XML document may cost.
#ifndef TARNIX_CMNSAXGUARD_H
#define TARNIX_CMNSAXGUARD_H

#include "cmnsaxstate.h"
#include "cmnsaxuses.h"

#include <xercesc/framework/XMLDocumentHandler.hpp>
#include <xercesc/internal/XMLScanner.hpp>
#include <xercesc/sax2/SAX2XMLReader.hpp>
#include <xercesc/validators/DTD/DTDGrammar.hpp>
#include <xercesc/validators/DTD/DTDValidator.hpp>
#include <xercesc/validators/DTD/DocTypeHandler.hpp>

#include <map>
#include <memory>
#include <string>
#include <vector>

namespace tarnix_cmn_4_4
{

constexpr XMLCh kExpansionLimitMessage[] = u"the document's declarations expand to too much text";
constexpr XMLCh kHashLimitMessage[] = u"the document has too many names with one hash";

// A validator is the only object of a reader that knows its scanner. This one is never asked to
// validate anything.
class ScannerAccess final : public xercesc::DTDValidator
{
public:
    xercesc::XMLScanner& scanner() { return *getScanner(); }
};

// The text that is being parsed.
class SaxText
{
public:
    SaxText() = default;
    SaxText(const SaxText&) = delete;
    SaxText& operator=(const SaxText&) = delete;
    virtual ~SaxText() = default;
    // All of the text, also what the reader has not asked for yet.
    virtual const std::string& whole() = 0;
    // The root element has begun: the text need not be kept.
    virtual void forget() {}
};

// Attached to a reader for one parse. The reader reports each declaration before the document can
// use it, and each element. The guard adds up the possible cost of all uses of all declarations,
// and throws SaxLimitExceeded when the sum exceeds the limit. The limit of the reader itself is not
// enough: it covers only content and attributes, and it counts replacements, not their length.
//
// It also counts the names with one hash in each table of the reader: each of them makes every
// further use of such a name slower.
class ExpansionGuard final : public xercesc::DocTypeHandler, public xercesc::XMLDocumentHandler
{
public:
    ExpansionGuard(xercesc::SAX2XMLReader& reader, SaxState& state, SaxText& text);
    ~ExpansionGuard() override;
    ExpansionGuard(const ExpansionGuard&) = delete;
    ExpansionGuard& operator=(const ExpansionGuard&) = delete;

    // ---- Declarations
    void doctypeDecl(const xercesc::DTDElementDecl& root, const XMLCh* publicId,
                     const XMLCh* systemId, bool hasInternalSubset,
                     bool hasExternalSubset) override;
    void entityDecl(const xercesc::DTDEntityDecl& entity, bool isParameter,
                    bool isIgnored) override;
    void startAttList(const xercesc::DTDElementDecl& element) override;
    void attDef(const xercesc::DTDElementDecl& element, const xercesc::DTDAttDef& attribute,
                bool isIgnored) override;
    void elementDecl(const xercesc::DTDElementDecl& element, bool isIgnored) override;
    void notationDecl(const xercesc::XMLNotationDecl& notation, bool isIgnored) override;
    void endIntSubset() override { rejectUnknownEntities(); }
    void doctypeComment(const XMLCh* /*text*/) override {}
    void doctypePI(const XMLCh* /*target*/, const XMLCh* /*data*/) override {}
    void doctypeWhitespace(const XMLCh* /*text*/, XMLSize_t /*length*/) override {}
    void endAttList(const xercesc::DTDElementDecl& /*element*/) override {}
    void endExtSubset() override {}
    void resetDocType() override {}
    void startIntSubset() override {}
    void startExtSubset() override {}
    void TextDecl(const XMLCh* /*version*/, const XMLCh* /*encoding*/) override {}

    // ---- Content
    void startElement(const xercesc::XMLElementDecl& element, unsigned int uri, const XMLCh* prefix,
                      const xercesc::RefVectorOf<xercesc::XMLAttr>& attributes, XMLSize_t count,
                      bool isEmpty, bool isRoot) override;
    void docCharacters(const XMLCh* /*text*/, XMLSize_t /*length*/, bool /*isCData*/) override {}
    void docComment(const XMLCh* /*text*/) override {}
    void docPI(const XMLCh* /*target*/, const XMLCh* /*data*/) override {}
    void endDocument() override {}
    void endElement(const xercesc::XMLElementDecl& /*element*/, unsigned int /*uri*/,
                    bool /*isRoot*/, const XMLCh* /*prefix*/) override
    {
    }
    void endEntityReference(const xercesc::XMLEntityDecl& /*entity*/) override {}
    void ignorableWhitespace(const XMLCh* /*text*/, XMLSize_t /*length*/, bool /*isCData*/) override
    {
    }
    void resetDocument() override {}
    void startDocument() override {}
    void startEntityReference(const xercesc::XMLEntityDecl& /*entity*/) override {}
    void XMLDecl(const XMLCh* /*version*/, const XMLCh* /*encoding*/, const XMLCh* /*standalone*/,
                 const XMLCh* /*actualEncoding*/) override
    {
    }

private:
    struct Declared {
        double ownCost{};            // without what its value uses
        std::vector<Declared*> uses; // declarations that the value of this one uses
        bool isUsed{};               // by the value of another declaration
        // Computed by assess.
        double cost{};        // of one use, nested uses included
        int depth{};          // of nesting: 1 if the value uses nothing
        unsigned int round{}; // in which cost and depth were computed, or 0: outdated
    };

    void rejectUnknownEntities();
    void addName(NameTable& table, const XMLCh* name) const;
    void addElements();
    void declare(UseKey key, double ownCost, const XMLCh* value);
    void assessOne(UseKey key, Declared& declared);
    void assessAll();
    // `levels`: how deep the declaration and what it uses may still be nested.
    void assess(Declared& declared, int levels);

    xercesc::SAX2XMLReader& m_Reader;
    xercesc::XMLScanner& m_Scanner;
    SaxState& m_State;
    SaxText& m_Text;
    const int m_MaxNesting;
    xercesc::DTDGrammar* m_Grammar = nullptr;
    // The tables that the reader makes for each document, with as many buckets.
    struct Tables {
        static constexpr std::size_t kBuckets = 109;
        NameTable elements{kBuckets};
        NameTable entities{kBuckets};
        NameTable parameters{kBuckets};
        NameTable notations{kBuckets};
    };
    std::unique_ptr<Tables> m_Tables; // null before the document type declaration
    std::map<const xercesc::DTDElementDecl*, NameTable> m_Attributes;

    double m_Limit{};                    // set with the tables
    std::unique_ptr<UseCounts> m_Counts; // null before the first declaration
    // Contains also what a value uses before it is declared, or without being declared. Not a hash
    // table: a document could choose names whose keys collide.
    std::map<UseKey, Declared> m_Declared;
    double m_Total{};         // the possible cost of all uses
    double m_Work{};          // steps of assess, limited too
    unsigned int m_Round = 1; // a new one makes every cost outdated
};

} // namespace tarnix_cmn_4_4

#endif
