// SPDX-License-Identifier: LicenseRef-Tarnix
#include "patterntree.h"

#include "cmnpattern.h"
#include "cmnstringtool.h"

#include <unicode/locid.h>

#include <algorithm>

namespace catalogcheck
{
namespace
{

using Part = icu::MessagePattern::Part;

bool isNumber(const Part& part)
{
    return part.getType() == UMSGPAT_PART_TYPE_ARG_INT ||
           part.getType() == UMSGPAT_PART_TYPE_ARG_DOUBLE;
}

Need needOf(UMessagePatternArgType type, const std::string& simpleType)
{
    switch (type) {
    case UMSGPAT_ARG_TYPE_NONE:
        return Need::text;
    case UMSGPAT_ARG_TYPE_SELECT:
        return Need::word;
    case UMSGPAT_ARG_TYPE_SIMPLE:
        return simpleType == "date" || simpleType == "time" ? Need::date : Need::number;
    default:
        return Need::number;
    }
}

// The parts of a pattern that ICU has accepted.
class TreeReader
{
public:
    explicit TreeReader(const icu::MessagePattern& pattern) : m_Pattern(pattern) {}

    Message message(std::int32_t start) const
    {
        Message message;
        for (std::int32_t i = start + 1; i < m_Pattern.getLimitPartIndex(start); ++i) {
            if (m_Pattern.getPartType(i) == UMSGPAT_PART_TYPE_ARG_START) {
                message.arguments.push_back(argument(i));
                i = m_Pattern.getLimitPartIndex(i);
            } else if (m_Pattern.getPartType(i) == UMSGPAT_PART_TYPE_REPLACE_NUMBER) {
                message.hasNumber = true;
            }
        }
        return message;
    }

private:
    Argument argument(std::int32_t start) const
    {
        const Part& name = m_Pattern.getPart(start + 1);
        Argument argument;
        argument.type = m_Pattern.getPart(start).getArgType();
        argument.name = utf8(m_Pattern.getSubstring(name));
        if (name.getType() == UMSGPAT_PART_TYPE_ARG_NUMBER) {
            argument.number = name.getValue();
        }
        const std::int32_t rest = start + 2;
        std::string simpleType;
        if (argument.type == UMSGPAT_ARG_TYPE_SIMPLE) {
            simpleType = utf8(
                m_Pattern.getSubstring(m_Pattern.getPart(rest)).toLower(icu::Locale::getRoot()));
        } else if (argument.type != UMSGPAT_ARG_TYPE_NONE) {
            argument.branches = branches(rest, m_Pattern.getLimitPartIndex(start));
        }
        argument.need = needOf(argument.type, simpleType);
        return argument;
    }

    // A number before the first selector is the offset of a plural.
    std::vector<Branch> branches(std::int32_t begin, std::int32_t end) const
    {
        std::vector<Branch> branches;
        double offset = 0;
        Branch branch;
        for (std::int32_t i = begin; i < end; ++i) {
            const Part& part = m_Pattern.getPart(i);
            if (part.getType() == UMSGPAT_PART_TYPE_ARG_SELECTOR) {
                branch.keyword = utf8(m_Pattern.getSubstring(part));
            } else if (isNumber(part) && branch.keyword.empty()) {
                offset = m_Pattern.getNumericValue(part);
            } else if (isNumber(part)) {
                branch.exact = true;
                branch.value = m_Pattern.getNumericValue(part) - offset;
            } else if (part.getType() == UMSGPAT_PART_TYPE_MSG_START) {
                branch.message = message(i);
                branches.push_back(std::move(branch));
                branch = Branch();
                i = m_Pattern.getLimitPartIndex(i);
            }
        }
        return branches;
    }

    const icu::MessagePattern& m_Pattern;
};

// The end of the text that the apostrophe at `begin` quotes. Two apostrophes in it are one.
std::int32_t quoteEnd(const icu::UnicodeString& text, std::int32_t begin)
{
    std::int32_t end = text.indexOf(u'\'', begin + 1);
    while (end >= 0 && text.charAt(end + 1) == u'\'') {
        end = text.indexOf(u'\'', end + 2);
    }
    return end < 0 ? text.length() : end + 1;
}

// Whether an apostrophe that ICU drops quotes a brace, or the number of a plural.
bool quotesSyntax(const icu::UnicodeString& text, std::int32_t at)
{
    const char16_t next = text.charAt(at + 1);
    return text.charAt(at) == u'\'' && (next == u'{' || next == u'}' || next == u'#');
}

// ICU marks the apostrophes that it drops: the second one of two, and the first one of a quote.
std::vector<std::string> quotedSyntax(const icu::MessagePattern& pattern)
{
    std::vector<std::string> quotes;
    const icu::UnicodeString& text = pattern.getPatternString();
    std::int32_t done = 0;
    for (std::int32_t i = 0; i < pattern.countParts(); ++i) {
        const std::int32_t at = pattern.getPart(i).getIndex();
        if (pattern.getPartType(i) != UMSGPAT_PART_TYPE_SKIP_SYNTAX || at < done) {
            continue;
        }
        const bool second = at > done && text.charAt(at - 1) == u'\'';
        if (second || !quotesSyntax(text, at)) {
            done = at + 1;
            continue;
        }
        done = quoteEnd(text, at);
        quotes.push_back(utf8(text.tempSubStringBetween(at, done)));
    }
    return quotes;
}

} // namespace

bool isPlural(const Argument& argument)
{
    return argument.type == UMSGPAT_ARG_TYPE_PLURAL ||
           argument.type == UMSGPAT_ARG_TYPE_SELECTORDINAL;
}

std::string placeholder(int number)
{
    return "{" + std::to_string(number) + "}";
}

std::string utf8(const icu::UnicodeString& text)
{
    std::string bytes;
    return text.toUTF8String(bytes);
}

bool nestsTooDeep(const icu::UnicodeString& text)
{
    return tarnix_cmn_4_4::nestsDeeper(tarnix_cmn_4_4::CCmnStringTool::ustr2tstr(text),
                                       tarnix_cmn_4_4::kMaxNesting);
}

Pattern readPattern(const icu::UnicodeString& text)
{
    Pattern result;
    if (nestsTooDeep(text)) {
        result.fault = "nests plurals and selects more than 16 levels deep, so that it is shown "
                       "as it stands: split it into several texts";
        return result;
    }
    UErrorCode status = U_ZERO_ERROR;
    const icu::MessagePattern pattern(text, nullptr, status);
    if (U_FAILURE(status)) {
        result.fault = std::string("is not a valid pattern: ") + u_errorName(status) +
                       ": check its braces, and the type and branches of each placeholder";
        return result;
    }
    result.message = TreeReader(pattern).message(0);
    result.quoted = quotedSyntax(pattern);
    forEachArgument(result.message, [&result](const Argument& argument) {
        result.hasTypes = result.hasTypes || argument.type != UMSGPAT_ARG_TYPE_NONE;
    });
    return result;
}

} // namespace catalogcheck
