// Limits how far the declarations of an XML document may expand ("billion laughs" attack).
#ifndef TARNIX_CMNSAXGUARD_H
#define TARNIX_CMNSAXGUARD_H

#include "cmnsaxuses.h"

#include <xercesc/sax2/DeclHandler.hpp>
#include <xercesc/sax2/SAX2XMLReader.hpp>
#include <xercesc/util/SecurityManager.hpp>

#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

namespace tarnix_cmn_4_4
{

// The text of the fatal error for a document over the limit.
constexpr XMLCh kExpansionLimitMessage[] = u"the document's declarations expand to too much text";

// Thrown out of the parse when a document could exceed the limit.
struct ExpansionLimitExceeded {
};

// Attached to a reader for one parse. The reader reports each declaration before the document can
// use it. The guard adds up the possible cost of all uses of all declarations, and throws
// ExpansionLimitExceeded when the sum exceeds the limit. The guard sets the limit of the reader
// too, but that is not enough: it covers only content and attributes, and it counts replacements,
// not their length.
class ExpansionGuard final : public xercesc::DeclHandler
{
public:
    // Throws if the reader is in the middle of a parse. The reader then keeps the guard of that
    // parse.
    ExpansionGuard(xercesc::SAX2XMLReader& reader, const std::string& text);
    ~ExpansionGuard() override;
    ExpansionGuard(const ExpansionGuard&) = delete;
    ExpansionGuard& operator=(const ExpansionGuard&) = delete;

    // Detaches from a reader that is about to be destroyed, or that no longer accepts a property.
    void abandonReader() { m_Reader = nullptr; }

    void internalEntityDecl(const XMLCh* name, const XMLCh* value) override;
    void attributeDecl(const XMLCh* element, const XMLCh* attribute, const XMLCh* type,
                       const XMLCh* mode, const XMLCh* value) override;
    void elementDecl(const XMLCh* /*name*/, const XMLCh* /*model*/) override {}
    void externalEntityDecl(const XMLCh* /*name*/, const XMLCh* /*publicId*/,
                            const XMLCh* /*systemId*/) override
    {
    }

private:
    struct Declared {
        double ownCost = 0;          // without what its value uses
        std::vector<Declared*> uses; // declarations that the value of this one uses
        bool isUsed = false;         // by the value of another declaration
        // Computed by assess.
        double cost = 0;        // of one use, nested uses included
        int depth = 0;          // of nesting: 1 if the value uses nothing
        unsigned int round = 0; // in which cost and depth were computed, or 0: outdated
    };

    void declare(UseKey key, double ownCost, const XMLCh* value);
    void assessOne(UseKey key, Declared& declared);
    void assessAll();
    // `level` counts the declarations on the way to this one: 1 for the first.
    void assess(Declared& declared, int level);

    xercesc::SAX2XMLReader* m_Reader;
    const std::string& m_Text;
    const double m_Limit;
    xercesc::SecurityManager m_Security;
    std::unique_ptr<UseCounts> m_Counts; // null before the first declaration
    // Contains also what a value uses before it is declared, or without being declared.
    std::unordered_map<UseKey, Declared> m_Declared;
    double m_Total = 0;       // the possible cost of all uses
    double m_Work = 0;        // steps of assess, limited too
    unsigned int m_Round = 1; // a new one makes every cost outdated
};

} // namespace tarnix_cmn_4_4

#endif
