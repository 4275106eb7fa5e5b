// SPDX-License-Identifier: LicenseRef-Tarnix
// Limits the size of a single tag or content model, before the reader sees it.
#ifndef TARNIX_CMNSAXTAGS_H
#define TARNIX_CMNSAXTAGS_H

#include "cmnsaxstate.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <iterator>

namespace tarnix_cmn_4_4
{

constexpr XMLCh kTagLimitMessage[] = u"a tag of the document has too many attributes";
constexpr XMLCh kModelLimitMessage[] = u"a content model of the document has too many names";

// The reader looks up each attribute of a tag, and each name of a content model, before it reports
// anything. This counts them in the text, which may arrive in pieces, and throws SaxLimitExceeded.
//
// Tags are short as a rule. One that could exceed a limit covers at least one whole block, in which
// no other tag starts; so nearly always the search in a block ends at its first tag.
class TagWatch
{
public:
    explicit TagWatch(const CCmnSaxLimits& limits)
        : m_MaxAttributes(limits.attributes),
          m_MaxNames(limits.contentModel),
          // An attribute has at least four characters, and a parenthesis is one.
          m_Block(std::max<std::size_t>(std::min(m_MaxAttributes, m_MaxNames / 2), 1))
    {
    }

    template <class Unit>
    void scan(const Unit* text, std::size_t size)
    {
        const Unit* const end = text + size;
        while (true) {
            if (m_Inside == Inside::nothing) {
                text = findLong(text, end);
            }
            if (text == end) {
                return;
            }
            text = step(text, end);
        }
    }

private:
    enum class Inside { nothing, start, declaration, tag, quote, model };

    static bool hasMarkup(const XMLByte* from, const XMLByte* to)
    {
        return std::memchr(from, '<', static_cast<std::size_t>(to - from)) != nullptr;
    }
    static bool hasMarkup(const XMLCh* from, const XMLCh* to)
    {
        return std::find(from, to, u'<') != to;
    }

    // The start of the next markup that covers a whole block or reaches the end of the text.
    template <class Unit>
    const Unit* findLong(const Unit* text, const Unit* end)
    {
        const Unit* from = text;
        while (true) {
            const Unit* const limit =
                from + std::min(static_cast<std::size_t>(end - from), m_Block);
            const bool isLast = limit == end;
            if (!isLast && hasMarkup(from, limit)) {
                from = limit;
                continue;
            }
            const auto start = std::find(std::make_reverse_iterator(isLast ? end : from),
                                         std::make_reverse_iterator(text), Unit{'<'});
            if (start.base() != text) {
                return start.base() - 1;
            }
            if (isLast) {
                return end;
            }
            text = from = limit;
        }
    }

    // Takes at least one unit, and ends at the end of the markup or of the text.
    template <class Unit>
    const Unit* step(const Unit* text, const Unit* end)
    {
        if (m_Inside == Inside::nothing) {
            m_Inside = Inside::start;
            m_Count = m_Matched = 0;
            ++text;
        }
        for (; text != end && m_Inside != Inside::nothing; ++text) {
            if (*text == '<') { // none may be inside another
                m_Inside = Inside::nothing;
                return text;
            }
            take(*text);
        }
        return text;
    }

    void take(XMLCh unit);

    const std::size_t m_MaxAttributes;
    const std::size_t m_MaxNames;
    const std::size_t m_Block;
    Inside m_Inside = Inside::nothing;
    // Set when they begin to count, by step and take.
    XMLCh m_Quote{};
    std::size_t m_Matched{}; // characters of the keyword of a declaration
    std::size_t m_Count{};
};

} // namespace tarnix_cmn_4_4

#endif
