// Protects the SAX parser from documents whose declarations expand without bounds.
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

// The text of the fatal error that a document over the limit is reported with.
constexpr XMLCh kExpansionRefusal[] = u"the document's declarations expand to too much text";

// Thrown out of the parse when a document could exceed the limit.
struct ExpansionRefused {
};

// Attached to a reader for one parse. The reader passes on each declaration before anything can use
// it; the guard adds up what all uses of all declarations could cost, and throws ExpansionRefused
// when that exceeds the limit. The reader's own limit, which is set here too, is not enough: it
// holds for content and attributes only, and it counts replacements, not their length.
class ExpansionGuard final : public xercesc::DeclHandler
{
public:
    // Throws, with the reader unchanged, during a parse, whose own guard stays in place.
    ExpansionGuard(xercesc::SAX2XMLReader& reader, const std::string& text);
    ~ExpansionGuard() override;
    ExpansionGuard(const ExpansionGuard&) = delete;
    ExpansionGuard& operator=(const ExpansionGuard&) = delete;

    // The reader is about to be destroyed, or in a state in which it accepts no property.
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
        double ownCost = 0;
        std::vector<Declared*> uses; // of other declarations, in this one's value
        bool isUsed = false;         // by another declaration
        // The cost of one use of it, nested uses included, as computed in that round.
        double cost = 0;
        int depth = 0;
        unsigned int round = 0;
    };

    void declare(Use use, double ownCost, const XMLCh* value);
    void assessOne(Use use, Declared& declared);
    void assessAll();
    void assess(Declared& declared, int level);

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

} // namespace tarnix_cmn_4_4

#endif
