// ExpansionGuard: the cost of the declarations, and the limit.
#include "cmnsaxguard.h"

#include <xercesc/util/XMLString.hpp>
#include <xercesc/util/XMLUni.hpp>

#include <algorithm>
#include <cstddef>

namespace tarnix_cmn_4_4
{
namespace
{

// The unit of cost is a character of the expanded text.

// The limit of every document, and what each of its bytes adds to it. A small document within the
// limit takes about 20 ms.
constexpr double kBaseLimit = 1e6;
constexpr double kLimitPerByte = 8;

// To replace an entity takes the reader as long as about 400 characters in content, and about 30 in
// an attribute. The guard does not know where an entity is used. A value in between serves for
// both: the worst case, in content, takes about twice the time that its cost stands for.
constexpr double kReplacementCost = 200;

// To add a default attribute to an element takes as long as a few characters.
constexpr double kDefaultCost = 8;

// At each use of an element, the reader checks each attribute that is declared for it.
constexpr double kAttributeCost = 0.25;

// For each level of nesting the reader allocates 160 KiB.
constexpr int kMaxNesting = 32;

} // namespace

ExpansionGuard::ExpansionGuard(xercesc::SAX2XMLReader& reader, const std::string& text)
    : m_Reader(&reader),
      m_Text(text),
      m_Limit(kBaseLimit + kLimitPerByte * static_cast<double>(text.size()))
{
    m_Security.setEntityExpansionLimit(static_cast<XMLSize_t>(m_Limit / kReplacementCost));
    // First, because it may throw and must then leave the reader unchanged.
    m_Reader->setProperty(xercesc::XMLUni::fgXercesSecurityManager, &m_Security);
    m_Reader->setDeclarationHandler(this);
}

ExpansionGuard::~ExpansionGuard()
{
    if (m_Reader == nullptr) {
        return;
    }
    m_Reader->setDeclarationHandler(nullptr);
    m_Reader->setProperty(xercesc::XMLUni::fgXercesSecurityManager, nullptr);
}

// The name of a parameter entity starts with a percent sign. In the value, references to characters
// and to parameter entities have already been replaced: it is the text that the reader will scan.
void ExpansionGuard::internalEntityDecl(const XMLCh* const name, const XMLCh* const value)
{
    const bool isParameter = name[0] == u'%';
    declare(useKeyOf(isParameter ? u'%' : u'&', name + (isParameter ? 1 : 0)), kReplacementCost,
            value);
}

void ExpansionGuard::attributeDecl(const XMLCh* const element, const XMLCh* const /*attribute*/,
                                   const XMLCh* const /*type*/, const XMLCh* const /*mode*/,
                                   const XMLCh* const value)
{
    declare(useKeyOf(u'<', element), value != nullptr ? kDefaultCost : kAttributeCost, value);
}

// A null value counts as empty.
void ExpansionGuard::declare(UseKey key, double ownCost, const XMLCh* value)
{
    if (!m_Counts) {
        m_Counts = std::make_unique<UseCounts>(m_Text);
    }
    Declared& declared = m_Declared[key];
    const std::size_t length = xercesc::XMLString::stringLen(value);
    declared.ownCost += ownCost + static_cast<double>(length);
    UseScanner().scan(value, length, [this, &declared](UseKey other) {
        Declared& used = m_Declared[other];
        used.isUsed = true;
        declared.uses.push_back(&used);
    });
    if (declared.isUsed) {
        assessAll();
    } else {
        assessOne(key, declared);
    }
    if (m_Total > m_Limit) {
        throw ExpansionLimitExceeded();
    }
}

void ExpansionGuard::assessOne(UseKey key, Declared& declared)
{
    m_Total -= m_Counts->of(key) * declared.cost;
    declared.round = 0;
    assess(declared, 1);
    m_Total += m_Counts->of(key) * declared.cost;
}

// Declarations that came earlier and use the new one now have a different cost.
void ExpansionGuard::assessAll()
{
    ++m_Round;
    m_Total = 0;
    for (auto& [key, declared] : m_Declared) {
        assess(declared, 1);
        m_Total += m_Counts->of(key) * declared.cost;
    }
}

// A cycle of entities ends at the maximum nesting. The work of this function counts towards the
// limit too: with declarations in the worst order it would be quadratic.
void ExpansionGuard::assess(Declared& declared, int level)
{
    if (declared.round == m_Round) {
        return;
    }
    m_Work += 1 + static_cast<double>(declared.uses.size());
    if (level > kMaxNesting || m_Work > m_Limit) {
        throw ExpansionLimitExceeded();
    }
    double cost = declared.ownCost;
    int depth = 1;
    for (Declared* used : declared.uses) {
        assess(*used, level + 1);
        cost += used->cost;
        depth = std::max(depth, used->depth + 1);
    }
    if (depth > kMaxNesting) {
        throw ExpansionLimitExceeded();
    }
    declared.cost = cost;
    declared.depth = depth;
    declared.round = m_Round;
}

} // namespace tarnix_cmn_4_4
