// SPDX-License-Identifier: LicenseRef-Tarnix
// CCmnStringTool: why a text is not a number. The strict readers themselves are inline.
#include "cmnstringtool.h"

#include <system_error>

namespace tarnix_cmn_4_4
{

CCmnStringTool::ReadResult CCmnStringTool::readFailure(std::string_view text, const char* stop,
                                                       std::errc error)
{
    const auto position = static_cast<std::size_t>(stop - text.data());
    if (text.empty()) {
        return {ReadFailure::empty, 0};
    }
    // What follows a number is worse than its range: the text is no number at all then.
    if (error == std::errc::result_out_of_range && position == text.size()) {
        return {ReadFailure::outOfRange, 0};
    }
    return {ReadFailure::badCharacter, position};
}

CCmnStringTool::ReadResult CCmnStringTool::readRealFailure(std::string_view text, const char* stop,
                                                           std::errc error)
{
    const char* const last = text.data() + text.size();
    const char* first = skipSign<double>(text);
    first += first != last && *first == '.' ? 1 : 0;
    const bool hasDigit = first != last && *first >= '0' && *first <= '9';
    return hasDigit ? readFailure(text, stop, error)
                    : readFailure(text, first, std::errc::invalid_argument);
}

} // namespace tarnix_cmn_4_4
