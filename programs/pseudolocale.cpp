// SPDX-License-Identifier: LicenseRef-Tarnix
#include "pseudolocale.h"

#include "localename.h"
#include "patterntree.h"

#include <cerrno>
#include <cstring>
#include <fstream>
#include <stdexcept>
#include <string_view>

namespace catalogcheck
{
namespace
{

// In the order of the alphabet.
constexpr std::u16string_view kSmall = u"åƀçðéƒĝĥîĵķļɱñöþǫŕšţûṽŵẋýž";
constexpr std::u16string_view kCapital = u"ÅƁÇÐÉƑĜĤÎĴĶĻṀÑÖÞǪŔŠŢÛṼŴẊÝŽ";

// Appends the text, accented, and returns how many letters that were.
std::int32_t appendAccented(const icu::UnicodeString& text, icu::UnicodeString& result)
{
    std::int32_t letters = 0;
    for (std::int32_t i = 0; i < text.length(); ++i) {
        const char16_t unit = text.charAt(i);
        const bool small = unit >= u'a' && unit <= u'z';
        const bool capital = unit >= u'A' && unit <= u'Z';
        letters += small || capital ? 1 : 0;
        result += small     ? kSmall.at(static_cast<std::size_t>(unit - u'a'))
                  : capital ? kCapital.at(static_cast<std::size_t>(unit - u'A'))
                            : unit;
    }
    return letters;
}

// A quote within a resource text.
std::string quoted(const icu::UnicodeString& text)
{
    icu::UnicodeString escaped;
    for (std::int32_t i = 0; i < text.length(); ++i) {
        const char16_t unit = text.charAt(i);
        if (unit == u'"' || unit == u'\\') {
            escaped += u'\\';
        }
        if (unit < u' ') {
            constexpr char16_t digits[] = u"0123456789ABCDEF";
            escaped.append(u"\\u00").append(digits[unit >> 4U]).append(digits[unit & 0xFU]);
        } else {
            escaped += unit;
        }
    }
    return "\"" + utf8(escaped) + "\"";
}

} // namespace

// Only what lies in a message, and not in an argument around it, is text. Its length grows by two
// fifths, as that of short texts does in many languages.
icu::UnicodeString pseudoText(const icu::UnicodeString& text)
{
    UErrorCode status = nestsTooDeep(text) ? U_PATTERN_SYNTAX_ERROR : U_ZERO_ERROR;
    const icu::MessagePattern pattern(text, nullptr, status);
    if (U_FAILURE(status)) {
        return text;
    }
    icu::UnicodeString result(u'[');
    std::int32_t letters = 0;
    std::int32_t done = 0;
    bool inMessage = false;
    for (std::int32_t i = 0; i < pattern.countParts(); ++i) {
        const icu::MessagePattern::Part& part = pattern.getPart(i);
        const UMessagePatternPartType type = part.getType();
        const icu::UnicodeString piece = text.tempSubStringBetween(done, part.getIndex());
        if (inMessage) {
            letters += appendAccented(piece, result);
        } else {
            result += piece;
        }
        done = part.getIndex();
        if (type == UMSGPAT_PART_TYPE_MSG_START || type == UMSGPAT_PART_TYPE_ARG_LIMIT) {
            result += text.tempSubStringBetween(done, part.getLimit());
            done = part.getLimit();
            inMessage = true;
        } else if (type == UMSGPAT_PART_TYPE_MSG_LIMIT || type == UMSGPAT_PART_TYPE_ARG_START) {
            inMessage = false;
        }
    }
    result += text.tempSubString(done);
    result += u' ';
    for (std::int32_t i = 0; i * 5 < letters * 2; ++i) {
        result += u'~';
    }
    return result + u']';
}

namespace
{

constexpr char kGenerated[] = "// Generated from root.txt, for tests of layouts.";

// Translations are not overwritten.
bool isTranslation(const std::filesystem::path& file)
{
    std::ifstream stream(file, std::ios::binary);
    std::string line;
    return std::filesystem::exists(file) && !(std::getline(stream, line) && line == kGenerated);
}

} // namespace

void writePseudoLocale(const std::filesystem::path& file, const Language& root)
{
    const std::string name = file.stem().string();
    const std::string fault = localeNameFault(name);
    if (!fault.empty() || file.extension() != ".txt") {
        throw std::runtime_error("cannot write '" + file.string() +
                                 "': " + (fault.empty() ? "it does not end in .txt" : fault));
    }
    if (name == kRoot || isTranslation(file)) {
        throw std::runtime_error("cannot write '" + file.string() + "': it is not " +
                                 (name == kRoot ? "for generated texts" : "a generated file") +
                                 "; give another name");
    }
    std::ofstream stream(file, std::ios::binary);
    stream << kGenerated << '\n' << name << " {\n";
    for (const auto& [id, text] : root.texts) {
        stream << "    " << quoted(icu::UnicodeString::fromUTF8(id)) << " { "
               << quoted(pseudoText(text)) << " }\n";
    }
    stream << "}\n" << std::flush;
    if (!stream) {
        throw std::runtime_error("cannot write '" + file.string() + "': " + std::strerror(errno));
    }
}

} // namespace catalogcheck
