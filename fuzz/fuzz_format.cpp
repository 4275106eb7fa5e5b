// Fuzzer of patterns and arguments. The first line of the input is a pattern, each further line an
// argument: a letter for its type (i, l, d, t, s; anything else makes an array) and its value.
#include "cmnmessage.h"
#include "cmnstringtool.h"
#include "fuzzinput.h"

#include <unicode/msgfmt.h>

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

void fuzz(FuzzInput input)
{
    UErrorCode status = U_ZERO_ERROR;
    icu::Locale::setDefault(icu::Locale::getUS(), status);
    const tstr pattern = CCmnStringTool::ustr2tstr(CCmnStringTool::str2ustr(input.until('\n')));
    std::vector<Formattable> arguments;
    while (input.hasMore()) {
        const std::string line = input.until('\n');
        arguments.push_back(makeArgument(line.c_str()[0], line.substr(!line.empty())));
    }
    CCmnIcuMessage message("id", arguments.data(), static_cast<int>(arguments.size()),
                           tarnix_eseverity{}, "", 0);
    const std::string serialized = message.serialize()->text;
    const tstr text = message.formatMessage(pattern);
    require(message.serialize()->text == serialized, "formatting does not change the message");

    // ICU's formatter as an object; the message uses a static function.
    const icu::MessageFormat format(CCmnStringTool::tstr2ustr(pattern), status);
    icu::UnicodeString output;
    icu::FieldPosition position(icu::FieldPosition::DONT_CARE);
    if (U_SUCCESS(status))
        format.format(arguments.data(), static_cast<std::int32_t>(arguments.size()), output,
                      position, status);
    const bool nothing = U_FAILURE(status) && output.isEmpty();
    require(text == (nothing ? pattern : CCmnStringTool::ustr2tstr(output)), "the text of ICU");
}
