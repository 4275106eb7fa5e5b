// SPDX-License-Identifier: LicenseRef-Tarnix
// Fuzzer of patterns, arguments and languages. The first line of the input is a pattern, each
// further line an argument: a letter for its type (i, l, d, t, s; anything else makes an array) and
// its value. A line with the letter L has the language. An input that starts with a byte 1 is made
// large by FuzzInput::expanded.
#include "cmnlanguages.h"
#include "cmnmessage.h"
#include "cmnpattern.h"
#include "cmnstringtool.h"
#include "fuzzbounds.h"

#include <unicode/messagepattern.h>
#include <unicode/msgfmt.h>

#include <sstream>

using namespace tarnix_cmn_4_4;
using icu::Formattable;

static Formattable makeArgument(char type, const std::string& value)
{
    if (type == 'i')
        return Formattable(CCmnStringTool::str2int(value));
    if (type == 'l')
        return Formattable(std::int64_t{CCmnStringTool::str2int(value)} * INT32_MAX);
    if (type == 'd')
        return Formattable(CCmnStringTool::str2double(value));
    if (type == 't')
        return Formattable(CCmnStringTool::str2double(value), Formattable::kIsDate);
    return type == 's' ? Formattable(CCmnStringTool::str2ustr(value)) : Formattable(nullptr, 0);
}

// Whether the library finds the same levels of braces as ICU.
static void checkNesting(const tstr& text)
{
    UErrorCode status = U_ZERO_ERROR;
    const icu::MessagePattern pattern(CCmnStringTool::tstr2ustr(text), nullptr, status);
    if (U_FAILURE(status))
        return;
    // For each open part: whether it has a brace; texts of a choice do not.
    std::vector<std::size_t> open;
    std::size_t deepest = 0, depth = 0, inStyles = 0; // the library counts braces in styles too
    for (std::int32_t i = 0; i < pattern.countParts(); ++i) {
        const icu::MessagePattern::Part& part = pattern.getPart(i);
        const UMessagePatternPartType type = part.getType();
        if (type == UMSGPAT_PART_TYPE_ARG_START || type == UMSGPAT_PART_TYPE_MSG_START) {
            open.push_back(part.getLength() > 0);
            depth += open.back();
            deepest = std::max(deepest, depth);
        } else if (type == UMSGPAT_PART_TYPE_ARG_LIMIT || type == UMSGPAT_PART_TYPE_MSG_LIMIT) {
            depth -= open.back();
            open.pop_back();
        } else if (type == UMSGPAT_PART_TYPE_ARG_STYLE) {
            inStyles += static_cast<std::size_t>(part.getLength());
        }
    }
    require(deepest == 0 || nestsDeeper(text, deepest - 1), "finds each level of braces");
    require(!nestsDeeper(text, deepest + inStyles), "finds no more levels than there are");
}

static void checkLanguage(const std::string& language)
{
    const std::string known = knownLanguage(language);
    require(knownLanguage(known) == known, "a known language is known");
    int steps = 0;
    for (std::string name = known; !name.empty(); name = parentLanguage(name))
        require(knownLanguage(name) == name && ++steps < 8, "so are its parents, which are few");
    require(known.size() <= 16 && known.find_first_of("./\\") == std::string::npos,
            "it is short, and no path");
}

// ICU's formatter as an object; the message uses a static function for the default locale.
static tstr formatByIcu(const tstr& pattern, const std::vector<Formattable>& arguments,
                        const icu::Locale& locale)
{
    UErrorCode status = U_ZERO_ERROR;
    const icu::MessageFormat format(CCmnStringTool::tstr2ustr(pattern), locale, status);
    icu::UnicodeString output;
    icu::FieldPosition position(icu::FieldPosition::DONT_CARE);
    format.format(arguments.data(), static_cast<std::int32_t>(arguments.size()), output, position,
                  status);
    const bool nothing = U_FAILURE(status) && output.isEmpty();
    return nothing || nestsDeeper(pattern, kMaxNesting) ? pattern
                                                        : CCmnStringTool::ustr2tstr(output);
}

void fuzz(FuzzInput input)
{
    UErrorCode status = U_ZERO_ERROR;
    icu::Locale::setDefault(icu::Locale::getUS(), status);
    FuzzInput large = input;
    std::istringstream lines(large.byte() == 1 ? large.expanded(4000) : input.rest());
    std::string line, language;
    std::getline(lines, line);
    const tstr pattern = CCmnStringTool::ustr2tstr(CCmnStringTool::str2ustr(line));
    std::vector<Formattable> arguments;
    while (std::getline(lines, line)) {
        if (line.c_str()[0] == 'L')
            language = line.substr(1).c_str();
        else
            arguments.push_back(makeArgument(line.c_str()[0], line.substr(!line.empty())));
    }
    checkLanguage(language);
    CCmnIcuMessage message("id", arguments.data(), static_cast<int>(arguments.size()),
                           tarnix_eseverity{}, "", 0);
    const std::string serialized = message.serialize()->text;
    const tstr expected = formatByIcu(pattern, arguments, icu::Locale::getUS());
    tstr text;
    {
        // An argument can be in the text many times. Of ICU's objects a date takes 56 KB, and a
        // number that is spelled out 120 KB for the ten characters that ask for it.
        const double size = double(pattern.length() + serialized.size() + expected.length());
        const FuzzBounds bounds(0.5, 5e-4, 4e6, 13e3, size);
        checkNesting(pattern);
        text = message.formatMessage(pattern);
    }
    require(text == expected, "the text of ICU");
    const bool isUsed = language.find_first_of("/\\") == language.npos && hasConventions(language);
    const icu::Locale locale = isUsed ? icu::Locale(language.c_str()) : icu::Locale::getRoot();
    require(message.formatInLanguage(pattern, language) == formatByIcu(pattern, arguments, locale),
            "the text of ICU in the language");
    require(message.serialize()->text == serialized, "formatting does not change the message");
}
