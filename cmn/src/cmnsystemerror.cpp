// SPDX-License-Identifier: LicenseRef-Tarnix
// The text of the platform's errors.
#include "cmnsystemerror.h"

#include <memory>

namespace tarnix_cmn_4_4
{

std::wstring systemErrorText(DWORD error)
{
    wchar_t* buffer = nullptr;
    FormatMessageW(FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM |
                       FORMAT_MESSAGE_IGNORE_INSERTS,
                   nullptr, error, MAKELANGID(LANG_NEUTRAL, SUBLANG_DEFAULT),
                   reinterpret_cast<wchar_t*>(&buffer), 0, nullptr);
    const std::unique_ptr<wchar_t, HLOCAL (*)(HLOCAL)> owner(buffer, LocalFree);
    return buffer != nullptr ? buffer : L"";
}

} // namespace tarnix_cmn_4_4
