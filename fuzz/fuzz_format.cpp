// Fuzzer of patterns and arguments. The first line of the input is a pattern, each further line an
// argument: a letter for its type (i, l, d, t, s; anything else makes an array) and its value.
#include "cmnmessage.h"
#include "cmnstringtool.h"

#include <climits>
#include <cstddef>
#include <cstdint>
#include <cwchar>
#include <sstream>
#include <string>
#include <unicode/locid.h>
#include <unicode/msgfmt.h>
#include <vector>

using namespace tarnix_cmn_4_4;
using icu::Formattable;
using icu::UnicodeString;

namespace
{

Formattable makeArgument(const std::string& line)
{
    const std::string value = line.empty() ? line : line.substr(1);
    switch (line.empty() ? '\0' : line[0]) {
    case 'i':
        return Formattable(CCmnStringTool::str2int(value));
    case 'l':
        return Formattable(std::int64_t{CCmnStringTool::str2int(value)} * INT_MAX);
    case 'd':
        return Formattable(CCmnStringTool::str2double(value));
    case 't':
        return Formattable(CCmnStringTool::str2double(value), Formattable::kIsDate);
    case 's':
        return Formattable(CCmnStringTool::str2ustr(value));
    default:
        return Formattable(nullptr, 0);
    }
}

// Whether the serialised text carries the argument as it is.
bool isCarried(const Formattable& argument)
{
    return argument.getType() == Formattable::kLong ||
           (argument.getType() == Formattable::kString && argument.getString().indexOf(u'<') < 0);
}

void require(bool condition)
{
    if (!condition)
        __builtin_trap();
}

// The text by a formatter that is kept, where the message uses one for each text.
tstr formatPlainly(const tstr& pattern, const std::vector<Formattable>& arguments)
{
    UErrorCode status = U_ZERO_ERROR;
    const icu::MessageFormat format(CCmnStringTool::tstr2ustr(pattern), status);
    UnicodeString output;
    icu::FieldPosition position(icu::FieldPosition::DONT_CARE);
    if (U_SUCCESS(status))
        format.format(arguments.data(), static_cast<std::int32_t>(arguments.size()), output,
                      position, status);
    return U_FAILURE(status) && output.isEmpty() ? pattern : CCmnStringTool::ustr2tstr(output);
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    UErrorCode status = U_ZERO_ERROR;
    icu::Locale::setDefault(icu::Locale::getUS(), status);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    std::istringstream input(std::string(reinterpret_cast<const char*>(data), size));
    std::string line;
    std::getline(input, line);
    const tstr pattern = CCmnStringTool::ustr2tstr(CCmnStringTool::str2ustr(line));
    std::vector<Formattable> arguments;
    bool carried = true;
    while (std::getline(input, line)) {
        arguments.push_back(makeArgument(line));
        carried = carried && isCarried(arguments.back());
    }

    CCmnIcuMessage message("id", arguments.data(), static_cast<int>(arguments.size()),
                           tarnix_eseverity{}, "", 0);
    const std::string serialized = message.serialize()->text;
    const tstr text = message.formatMessage(pattern);
    require(text == formatPlainly(pattern, arguments));
    require(message.serialize()->text == serialized);
    if (std::wcspbrk(pattern.c_str(), L"{}'") == nullptr)
        require(text == pattern);
    if (carried) {
        CCmnIcuMessage back(message.serialize());
        require(back.formatMessage(pattern) == text);
    }
    return 0;
}
