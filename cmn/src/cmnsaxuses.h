// SPDX-License-Identifier: LicenseRef-Tarnix
// Counts how often a document uses entities and the default attributes of elements, and checks the
// size of its tags.
#ifndef TARNIX_CMNSAXUSES_H
#define TARNIX_CMNSAXUSES_H

#include "cmnsaxparser.h"

#include <xercesc/util/XercesDefs.hpp>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace tarnix_cmn_4_4
{

// "&name" and "%name" use an entity, "<name" uses the default attributes of an element. What is
// used is identified by a key, a hash of these characters that begins with the first one. The uses
// of two names with the same key are counted together, which can only make a document look more
// expensive than it is.
using UseKey = std::uint64_t;

constexpr UseKey extended(UseKey key, XMLCh unit)
{
    return (key ^ unit) * 0x100000001B3;
}

inline bool isSigil(XMLCh unit)
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

// U+0085 and U+2028 are newlines in XML 1.1 and end a name. Every other character outside ASCII may
// be part of a name.
inline bool isNameUnit(XMLCh unit)
{
    static constexpr std::array<bool, 128> ascii = asciiNameUnits();
    return unit < ascii.size() ? ascii[unit] : unit != 0x85 && unit != 0x2028;
}

inline UseKey useKeyOf(XMLCh sigil, const XMLCh* name)
{
    UseKey key = sigil;
    for (; *name != 0; ++name) {
        key = extended(key, *name);
    }
    return key;
}

// Finds the uses in a text that arrives in pieces. It ignores the context: a use in a comment
// counts too.
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
                m_Key = *text++;
            }
            for (; text != end && isNameUnit(*text); ++text) {
                m_Key = extended(m_Key, *text);
                m_HasName = true;
            }
            if (text == end) {
                return;
            }
            if (m_HasName) {
                found(m_Key);
            }
            m_Inside = false;
        }
    }

private:
    bool m_Inside{};
    // Set when a use begins.
    UseKey m_Key{};
    bool m_HasName{};
};

// How many uses of each key a document has. Keys may share a counter, so that a count may be too
// high, but never too low.
class UseCounts
{
public:
    // Reads the whole text in the encoding that the reader will use. If that encoding is not
    // certain, each key is assumed to occur as often as the length of the text allows.
    explicit UseCounts(const std::string& text);

    // At least 1, because a declaration costs something even if it is never used.
    double of(UseKey key) const
    {
        return m_IsKnown ? std::max(1.0, static_cast<double>(m_Counts[counterOf(key)]))
                         : m_MaxCount;
    }

private:
    static constexpr int kCounterBits = 13;

    // Uses the high bits of a product: names that differ only in their last character differ only
    // in the low bits of the hash.
    static std::size_t counterOf(UseKey key)
    {
        return static_cast<std::size_t>(key * 0x9E3779B97F4A7C15 >> (64 - kCounterBits));
    }

    bool count(const std::string& text);

    std::array<std::uint64_t, std::size_t{1} << kCounterBits> m_Counts{};
    double m_MaxCount;
    bool m_IsKnown = false;
};

// More than an XML declaration has.
constexpr std::size_t kMaxDeclaration = 1024;

constexpr XMLCh kEncodingLimitMessage[] = u"the document is too large for its encoding";

// Whether the markup of the text consists of single bytes that occur nowhere else. The text has at
// least the XML declaration of the document.
bool hasAsciiMarkup(const std::string& text);

// Throws SaxLimitExceeded if the text has a tag or a content model over the limit, or if it is
// large and in an encoding in which that cannot be found out.
void checkTags(const std::string& text, const CCmnSaxLimits& limits);

} // namespace tarnix_cmn_4_4

#endif
