// SPDX-License-Identifier: LicenseRef-Tarnix
// ExpansionGuard: the cost of the declarations, the names, and the limits.
#include "cmnsaxguard.h"

#include "cmnsaxtags.h"

#include <xercesc/framework/XMLNotationDecl.hpp>
#include <xercesc/util/XMLString.hpp>
#include <xercesc/util/XMLUni.hpp>

#include <algorithm>
#include <cstddef>

namespace tarnix_cmn_4_4
{
namespace
{

// The unit of cost is a character of the expanded text.

// To replace an entity takes the reader as long as about 400 characters in content, and about 30 in
// an attribute. The guard does not know where an entity is used. A value in between serves for
// both: the worst case, in content, takes about twice the time that its cost stands for.
constexpr double kReplacementCost = 200;

// To add a default attribute to an element takes as long as a few characters.
constexpr double kDefaultCost = 8;

// At each use of an element, the reader checks each attribute that is declared for it.
constexpr double kAttributeCost = 0.25;

// For each level of nesting the reader allocates 160 KiB, and assess calls itself.
constexpr int kMaxNesting = 256;

// As many as the reader's table of the attributes of an element has at first.
constexpr std::size_t kAttributeBuckets = 29;

xercesc::XMLScanner& scannerOf(xercesc::SAX2XMLReader& reader)
{
    return static_cast<ScannerAccess*>(reader.getValidator())->scanner();
}

} // namespace

ExpansionGuard::ExpansionGuard(xercesc::SAX2XMLReader& reader, SaxState& state, SaxText& text)
    : m_Reader(reader),
      m_Scanner(scannerOf(reader)),
      m_State(state),
      m_Text(text),
      m_MaxNesting(std::clamp(state.limits.nesting, 1, kMaxNesting))
{
    m_State.elements.clear();
    m_Reader.installAdvDocHandler(this);
    m_Scanner.setDocTypeHandler(this);
}

ExpansionGuard::~ExpansionGuard()
{
    m_Scanner.setDocTypeHandler(nullptr);
    m_Reader.removeAdvDocHandler(this);
}

// Without a declaration, an entity is an error for the scanner only as long as it has not seen an
// external subset or a parameter entity, which could have declared it. It would drop the reference
// without a word. Nothing is read here that could declare it.
void ExpansionGuard::rejectUnknownEntities()
{
    m_Scanner.setHasNoDTD(true);
}

void ExpansionGuard::addName(NameTable& table, const XMLCh* name) const
{
    if (table.add(name) > m_State.limits.sameHash) {
        throw SaxLimitExceeded{kHashLimitMessage};
    }
}

// Attribute lists and content models add elements too.
void ExpansionGuard::addElements()
{
    const XMLSize_t size = m_Grammar->getElemEnumerator().size();
    NameTable& elements = m_Tables->elements;
    while (elements.size() < size) {
        const auto id = static_cast<unsigned int>(elements.size() + 1);
        addName(elements, m_Grammar->getElemDecl(id)->getFullName());
    }
}

void ExpansionGuard::doctypeDecl(const xercesc::DTDElementDecl& /*root*/, const XMLCh* /*publicId*/,
                                 const XMLCh* /*systemId*/, bool /*hasInternalSubset*/,
                                 bool /*hasExternalSubset*/)
{
    m_Tables = std::make_unique<Tables>();
    m_Grammar =
        static_cast<xercesc::DTDGrammar*>(m_Reader.getGrammar(xercesc::XMLUni::fgDTDEntityString));
    m_Limit = m_State.limits.expansion +
              m_State.limits.expansionPerByte * static_cast<double>(m_Text.whole().size());
    rejectUnknownEntities();
}

// In the value, references to characters and to parameter entities have already been replaced: it
// is the text that the reader will scan.
void ExpansionGuard::entityDecl(const xercesc::DTDEntityDecl& entity, bool isParameter,
                                bool isIgnored)
{
    if (isIgnored) {
        return;
    }
    addName(isParameter ? m_Tables->parameters : m_Tables->entities, entity.getName());
    if (entity.isExternal()) {
        return;
    }
    TagWatch(m_State.limits).scan(entity.getValue(), entity.getValueLen());
    declare(useKeyOf(isParameter ? u'%' : u'&', entity.getName()), kReplacementCost,
            entity.getValue());
}

void ExpansionGuard::startAttList(const xercesc::DTDElementDecl& /*element*/)
{
    rejectUnknownEntities();
    addElements();
}

void ExpansionGuard::attDef(const xercesc::DTDElementDecl& element,
                            const xercesc::DTDAttDef& attribute, bool isIgnored)
{
    if (isIgnored) {
        return;
    }
    addName(m_Attributes.try_emplace(&element, kAttributeBuckets).first->second,
            attribute.getFullName());
    const XMLCh* const value = attribute.getValue();
    declare(useKeyOf(u'<', element.getFullName()), value != nullptr ? kDefaultCost : kAttributeCost,
            value);
}

void ExpansionGuard::elementDecl(const xercesc::DTDElementDecl& /*element*/, bool /*isIgnored*/)
{
    addElements();
}

void ExpansionGuard::notationDecl(const xercesc::XMLNotationDecl& notation, bool isIgnored)
{
    if (!isIgnored) {
        addName(m_Tables->notations, notation.getName());
    }
}

// The reader numbers the elements without a declaration as it adds them to its table.
void ExpansionGuard::startElement(const xercesc::XMLElementDecl& element, unsigned int /*uri*/,
                                  const XMLCh* /*prefix*/,
                                  const xercesc::RefVectorOf<xercesc::XMLAttr>& /*attributes*/,
                                  XMLSize_t /*count*/, bool /*isEmpty*/, bool isRoot)
{
    if (element.getCreateReason() == xercesc::XMLElementDecl::NoReason &&
        element.getId() > m_State.elements.size()) {
        addName(m_State.elements, element.getFullName());
    }
    if (isRoot) {
        m_Text.forget();
    }
}

// A null value counts as empty.
void ExpansionGuard::declare(UseKey key, double ownCost, const XMLCh* value)
{
    if (!m_Counts) {
        m_Counts = std::make_unique<UseCounts>(m_Text.whole());
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
        throw SaxLimitExceeded{kExpansionLimitMessage};
    }
}

void ExpansionGuard::assessOne(UseKey key, Declared& declared)
{
    m_Total -= m_Counts->of(key) * declared.cost;
    declared.round = 0;
    assess(declared, m_MaxNesting);
    m_Total += m_Counts->of(key) * declared.cost;
}

// Declarations that came earlier and use the new one now have a different cost.
void ExpansionGuard::assessAll()
{
    ++m_Round;
    m_Total = 0;
    for (auto& [key, declared] : m_Declared) {
        assess(declared, m_MaxNesting);
        m_Total += m_Counts->of(key) * declared.cost;
    }
}

// A cycle of entities ends at the maximum nesting. The work of this function counts towards the
// limit too: with declarations in the worst order it would be quadratic.
void ExpansionGuard::assess(Declared& declared, int levels)
{
    if (declared.round == m_Round) {
        return;
    }
    m_Work += 1 + static_cast<double>(declared.uses.size());
    if (levels == 0 || m_Work > m_Limit) {
        throw SaxLimitExceeded{kExpansionLimitMessage};
    }
    double cost = declared.ownCost;
    int depth = 1;
    for (Declared* used : declared.uses) {
        assess(*used, levels - 1);
        cost += used->cost;
        depth = std::max(depth, used->depth + 1);
    }
    if (depth > m_MaxNesting) {
        throw SaxLimitExceeded{kExpansionLimitMessage};
    }
    declared.cost = cost;
    declared.depth = depth;
    declared.round = m_Round;
}

} // namespace tarnix_cmn_4_4
