// SPDX-License-Identifier: LicenseRef-Tarnix
// Operations on ACE strings that throw std::bad_alloc when allocation fails. The ACE strings
// themselves do not report it: append leaves the string unchanged, and their operator + and
// fast_resize write to address zero.
#ifndef TARNIX_CMNTSTR_H
#define TARNIX_CMNTSTR_H

#include "cmntypes.h"

#include <cstddef>
#include <cwchar>
#include <new>

namespace tarnix_cmn_4_4
{

inline void append(tstr& target, const wchar_t* text, std::size_t length)
{
    const std::size_t expected = target.length() + length;
    target.append(text, length);
    if (target.length() != expected) {
        throw std::bad_alloc();
    }
}

inline void append(tstr& target, const tstr& text)
{
    append(target, text.c_str(), text.length());
}

// Null counts as the empty text.
inline void append(tstr& target, const wchar_t* text)
{
    append(target, text, text != nullptr ? std::wcslen(text) : 0);
}

// `target` may be one of the texts. It is unchanged if allocation fails.
template <class... Texts>
void assign(tstr& target, const Texts&... texts)
{
    tstr joined;
    (append(joined, texts), ...);
    joined.swap(target);
}

// Moves the text into an argument by value, because a copy of a tstr does not report a failed
// allocation.
inline tstr taken(tstr& text)
{
    tstr result;
    result.swap(text);
    return result;
}

} // namespace tarnix_cmn_4_4

#endif
