// SPDX-License-Identifier: LicenseRef-Tarnix
/// @file
/// Text functions: conversions between the kinds of strings, numbers and bytes as text, editing,
/// and XML escaping.
///
/// @code
/// #include "cmnstringtool.h"
/// #include <iostream>
///
/// using tarnix_cmn_4_4::CCmnStringTool;
/// const std::vector<std::string> words = CCmnStringTool::tokenize("port = 8080", "= ");
/// int port = 0;
/// CCmnStringTool::str2int(words.at(1), port);
/// const std::string name = CCmnStringTool::tostrupper(words.at(0));
/// std::cout << name << ' ' << port + 1 << '\n'; // prints PORT 8081
/// const icu::UnicodeString text = CCmnStringTool::str2ustr("from UTF-8 to UTF-16");
/// std::cout << CCmnStringTool::ustr2str(text) << '\n'; // prints from UTF-8 to UTF-16
/// @endcode
#ifndef TARNIX_CMNSTRINGTOOL_H
#define TARNIX_CMNSTRINGTOOL_H

#include "cmnexport.h"
#include "cmntypes.h"

#include <unicode/unistr.h>

#include <charconv>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <string>
#include <string_view>
#include <system_error>
#include <type_traits>
#include <vector>

namespace tarnix_cmn_4_4
{

/// All functions are static, keep no state and may be called from any thread. They do not change
/// their arguments unless their comment says so. Those that depend on the locale use LC_CTYPE as
/// set for the process or the calling thread; setlocale must not run at the same time.
///
/// | String | Type | Contents |
/// |---|---|---|
/// | narrow | std::string | bytes, see below |
/// | wide | std::wstring | a code point in each unit |
/// | tstr | ACE_String_Base | a code point in each unit |
/// | ustr | icu::UnicodeString | UTF-16 |
///
/// A narrow string is UTF-8 for str2ustr and ustr2str, and in the locale's multibyte encoding for
/// all other conversions. The string itself does not show which of the two it is. To write it as
/// one and read it as the other is correct only for ASCII text or in a UTF-8 locale.
///
/// "Cut at the first NUL" means that the input is read as a terminated text: what follows an
/// embedded zero is dropped.
///
/// A conversion that fails returns an empty text and never a part of it. If an allocation fails,
/// std::bad_alloc is thrown.
class TARNIX_CMN_API CCmnStringTool
{
public:
    // ---- Narrow and wide to UTF-16 and back ----------------------------------------------------

    /// UTF-8 to UTF-16, cut at the first NUL. Empty if the text is not valid UTF-8 (an encoded
    /// surrogate is not) or has more units than a UnicodeString can hold.
    static icu::UnicodeString str2ustr(const std::string& text);

    /// UTF-16 to UTF-8, cut at the first NUL. Empty if there is an unpaired surrogate anywhere in
    /// the text, even after a NUL.
    static std::string ustr2str(const icu::UnicodeString& text);

    /// Code points to UTF-16, cut at the first NUL. A surrogate is copied unchanged; a unit that is
    /// not a code point becomes U+FFFD. Empty if the text has more units than a UnicodeString can
    /// hold.
    static icu::UnicodeString tstr2ustr(const tstr& text);

    /// UTF-16 to code points, cut at the first NUL. An unpaired surrogate is copied unchanged.
    static tstr ustr2tstr(const icu::UnicodeString& text);

    // ---- Narrow text in the locale's encoding to wide and back ---------------------------------

    /// @{
    /// Converts as mbstowcs does, cut at the first NUL. Empty if the text is not valid in the
    /// locale's encoding.
    static std::wstring str2wstr(const std::string& text);
    static std::wstring mbs2wcs(const std::string& text);
    /// @}

    /// @{
    /// Converts as wcstombs does, cut at the first NUL. Empty if a character is not representable
    /// in the locale's encoding.
    static std::string wstr2str(const std::wstring& text);
    static std::string wcs2mbs(const std::wstring& text);
    /// @}

    /// @{
    /// For callers that already have the target type: return a copy, embedded zeros included.
    static std::wstring str2wstr(const std::wstring& text);
    static std::string wstr2str(const std::string& text);
    /// @}

    /// @{
    /// The same conversions to and from a tstr: cut at the first NUL, empty after a failure.
    static tstr str2tstr(const std::string& text);
    static std::string tstr2str(const tstr& text);
    /// @}

    /// Returns a copy of the terminated text. Null gives the empty string.
    static std::string tstr2str(const char* text);

    /// @{
    /// Return the same units, cut at the first NUL.
    static tstr wstr2tstr(const std::wstring& text);
    static std::wstring tstr2wstr(const tstr& text);
    /// @}

    // ---- Raw duplicates ------------------------------------------------------------------------

    /// Allocates a buffer of a size in bytes.
    using Allocator = void* (*)(std::size_t);

    /// @{
    /// Copies the text with its terminator to a new buffer, which belongs to the caller. The
    /// allocator is called once. A null allocator means malloc; such a buffer is released with
    /// free. Returns null if the allocator returns null or the size in bytes overflows. strdup and
    /// wstrdup copy embedded zeros; tstrdup cuts at the first NUL.
    static char* strdup(const std::string& text, Allocator allocator);
    static wchar_t* wstrdup(const std::wstring& text, Allocator allocator);
    static wchar_t* tstrdup(const tstr& text, Allocator allocator);
    /// @}

    /// Returns an array of list.size() texts as from tstrdup, followed by a null pointer. Release
    /// it with tstrfreelist. Returns null if any allocation fails.
    static wchar_t** tstrduplist(const std::vector<tstr>& list);

    /// Releases a list from tstrduplist and sets `list` to null. Does nothing for a null list.
    static void tstrfreelist(wchar_t**& list);

    // ---- Numbers to text -----------------------------------------------------------------------

    /// In the format "%g": six significant digits, with the locale's decimal point.
    static std::string double2str(double number);

    /// @{
    /// Decimal.
    static std::string int2str(int number);
    static std::string int2str(std::int64_t number);
    static std::string uint2str(unsigned int number);
    static std::string uint2str(std::uint64_t number);
    static std::wstring int2wstr(int number);
    static std::wstring int2wstr(std::int64_t number);
    static std::wstring uint2wstr(unsigned int number);
    static std::wstring uint2wstr(std::uint64_t number);
    /// @}

    /// "true" or "false".
    static std::string bool2str(bool value);

    // ---- Text to numbers -----------------------------------------------------------------------

    /// @{
    /// Read the number with the function of the C library that is named here, and follow its rules:
    /// a text that does not start with a number gives 0, text after the number is ignored, leading
    /// white space and a sign are accepted, and overflow is not detected. Only the empty text is an
    /// error. The forms with an output return 0 for success; for the empty text they return -1 and
    /// do not change the output. The other forms return the number, and 0 for the empty text.
    static int str2double(const std::string& text, double& number); ///< atof
    static double str2double(const std::string& text);
    static int str2int(const std::string& text, int& number); ///< atoi
    static int str2int(const std::string& text);
    /// @}

    /// @{
    /// Read with atoi, which is signed: "-1" gives 4294967295. The result for a number outside the
    /// range of int depends on the C library.
    static int str2uint(const std::string& text, unsigned int& number);
    static unsigned int str2uint(const std::string& text);
    /// @}

    static int str2uint64(const std::string& text, std::uint64_t& number); ///< strtoull, base 10

    // ---- Text to numbers, strictly -------------------------------------------------------------

private:
    /// For int, long, long long and their unsigned types.
    template <class Integer>
    using IfInteger = std::enable_if_t<std::is_integral_v<Integer> &&
                                       std::is_same_v<decltype(+Integer{}), Integer>>;

public:
    /// Why a strict reader has not read a number.
    enum class ReadFailure {
        none,         ///< it has
        empty,        ///< the text is empty
        badCharacter, ///< the text is no number because of what is, or ends, at the position
        outOfRange,   ///< it is one, but the type of the target has no such value
    };

    /// What a strict reader returns.
    struct ReadResult {
        ReadFailure failure = ReadFailure::none; ///< why not
        /// Of badCharacter: the offset of the first character that does not belong to a number, or
        /// the size of the text if a digit is missing at its end. Otherwise 0.
        std::size_t position = 0;

        /// Whether it has read the number.
        explicit operator bool() const { return failure == ReadFailure::none; }
    };

    /// @{
    /// Read a text that must be a number as a whole, in every locale: white space, a plus and
    /// thousands separators are bad characters. After a failure `number` is unchanged.
    ///
    /// readNumber reads decimal digits, leading zeros included, after a '-' if the type is signed.
    /// A double can have a point with digits before or after it, and an exponent: "-.5", "1.",
    /// "1e-3"; "inf" and "nan" are no numbers. It is rounded to the nearest value; a number that is
    /// too large, or that would become 0 without being 0, is out of range.
    ///
    /// readHex reads hexadecimal digits of either case, after a "0x" or "0X" if there is one, and
    /// after a '-' if the type is signed: "ffffffff" is out of range for an int.
    template <class Integer, class = IfInteger<Integer>>
    static ReadResult readNumber(std::string_view text, Integer& number);
    template <class Real, std::enable_if_t<std::is_same_v<Real, double>, int> = 0>
    static ReadResult readNumber(std::string_view text, Real& number);
    template <class Integer, class = IfInteger<Integer>>
    static ReadResult readHex(std::string_view text, Integer& number);
    /// @}

    // ---- UTF-8, strictly and with replacement --------------------------------------------------

    /// The offset of the first byte that does not belong to a UTF-8 character (RFC 3629);
    /// std::string::npos if the text is UTF-8. The bytes before the offset are UTF-8. A zero byte
    /// is a character. A character that breaks off, or that is cut at the end of the text, is
    /// reported at its first byte.
    static std::size_t findInvalidUtf8(std::string_view text);

    /// UTF-8 to wide text, embedded zeros included. Each part that is not UTF-8 becomes one U+FFFD,
    /// where a part is as long as it could be the start of a character, and otherwise one byte: the
    /// practice that the Unicode standard recommends ("maximal subparts").
    static std::wstring decodeUtf8(std::string_view text);

    /// Wide text to UTF-8, embedded zeros included. Each unit that is no character, such as a
    /// surrogate, becomes U+FFFD.
    static std::string encodeUtf8(std::wstring_view text);

    // ---- Bytes and text ------------------------------------------------------------------------

    /// @{
    /// Two lower-case hex digits for each of `length` bytes, without prefix or separator. A length
    /// of 0 or less gives the empty text.
    static std::string binary2str(const unsigned char* data, int length);
    static std::wstring binary2wstr(const unsigned char* data, int length);
    /// @}

    /// Reads pairs of hex digits into `out`; an odd last digit is ignored. `*size` is the size of
    /// `out` in bytes; on success it is set to the number of bytes written, and 0 is returned. If
    /// `out` is too small for all pairs, or a pointer that is needed is null, returns -1 and writes
    /// nothing. Each pair is read with strtol in base 16 and not checked: "zz" gives 0, "1z" gives
    /// 1, "-1" gives 0xFF.
    static int str2binary(unsigned char* out, int* size, const std::string& text);

    /// str2binary of the text in the locale's encoding. The last argument has no effect.
    static int wstr2binary(unsigned char* out, int* size, std::wstring text, bool);

    /// The number as at least four lower-case hex digits, then the bytes as from binary2str. A
    /// number above 0xFFFF has more digits, and the text does not show where it ends.
    static std::wstring binary2uid(unsigned int number, const unsigned char* data, int length);

    /// @{
    /// The same for the bytes of a text, but a byte of 0x80 or more is written with eight digits,
    /// as a negative number: 0xE4 gives "ffffffe4". So the digits are those of binary2uid only for
    /// ASCII. wstr2uid first converts the text to the locale's encoding.
    static std::string str2uid(unsigned int number, const std::string& text);
    static std::string wstr2uid(unsigned int number, const std::wstring& text);
    /// @}

    // ---- Editing -------------------------------------------------------------------------------

    /// @{
    /// The text without the characters of the set at both ends (trim), at its start (ltrim) or at
    /// its end (rtrim). The set is a terminated list of single characters. An empty text or a null
    /// set gives a copy of the text. Otherwise the results of trim and ltrim are cut at the first
    /// NUL after the removed characters; rtrim keeps embedded zeros.
    static std::string trim(const std::string& text, const char* set);
    static std::string ltrim(const std::string& text, const char* set);
    static std::string rtrim(const std::string& text, const char* set);
    /// @}

    /// Replaces every match, from left to right and without overlap. The replacement is not
    /// searched again. The result is cut at its first NUL. An empty `search` returns the text
    /// unchanged.
    static std::string searchreplace(const std::string& text, const std::string& search,
                                     const std::string& replacement);

    /// Splits the text as strtok_r does. `delimiters` is a set of single characters. Several
    /// delimiters in a row count as one, so no part is empty. Both are cut at the first NUL.
    static std::vector<std::string> tokenize(const std::string& text,
                                             const std::string& delimiters);

    /// The text as one word of a command line, for CCmnExecPipeBase::Exec or a POSIX shell: when
    /// the command line is split into words, this word is exactly the text. A zero byte cannot be
    /// passed, because the command line ends there. A text of only letters, digits and _-+/.,:%@ is
    /// returned unchanged; as the first word of a shell's command, such a text can be a word of the
    /// shell itself (if, while). Any other text, and the empty one, is put in single quotes.
    static std::string quote(const std::string& text);

    /// True for four groups of digits with dots between them. Range and length are not checked, and
    /// extra dots are accepted: "999.1.2.3" and "1..2.3.4." are addresses here.
    static bool isIpAddress(const std::string& text);

    /// True if the text contains only digits or is empty.
    static bool isDigit(const std::string& text);

    /// @{
    /// Comparison that ignores case, true for equal texts, and conversion to upper and lower case.
    /// The locale defines the letters and their case. The narrow forms work byte by byte.
    static bool CompareNoCase(const std::string& left, const std::string& right);
    static bool CompareNoCase(const std::wstring& left, const std::wstring& right);
    static std::string tostrupper(const std::string& text);
    static std::wstring tostrupper(const std::wstring& text);
    static std::string tostrlower(const std::string& text);
    static std::wstring tostrlower(const std::wstring& text);
    /// @}

    /// Searches the pattern in the lines, from line `index` on. With `trim` true, line feeds,
    /// carriage returns, blanks and tabs at the end of a line are ignored. Returns the offset of
    /// the pattern in the first line that contains it, and sets `index` to that line. If there is
    /// none, and for a null pattern, returns std::string::npos and sets `index` to the number of
    /// lines, or leaves it if it was larger.
    static std::size_t find(const std::vector<std::string>& lines, const char* pattern,
                            std::size_t& index, bool trim);

    // ---- XML -----------------------------------------------------------------------------------

    /// "<name>" if `opening` is true, otherwise "</name>"; followed by a line feed if `newline` is
    /// true. The name is not escaped.
    static std::string xmlBracket(std::string name, bool opening, bool newline);

    /// A line of a tab, the opening tag, the escaped value and the closing tag.
    static std::string xmlBracketValue(std::string name, std::string value);

    /// @{
    /// Convert & < > " and ' to &amp; &lt; &gt; &quot; and &#39;, and these five back. No other
    /// reference is decoded, and the result of decoding is not decoded again. Both cut at the first
    /// NUL. A text without a NUL that is converted to references and back is unchanged.
    static std::string convertToXmlSpecialCharacters(const std::string& text);
    static std::string convertFromXmlSpecialCharacters(const std::string& text);
    /// @}

    // ---- The other long ------------------------------------------------------------------------

private:
    /// Of long and long long, the one that std::int64_t is not.
    using OtherLong = std::conditional_t<std::is_same_v<std::int64_t, long>, long long, long>;
    using OtherULong = std::make_unsigned_t<OtherLong>;

public:
    /// @{
    /// Without these a call with a long or a long long would be ambiguous, depending on the system.
    static std::string int2str(OtherLong number) { return int2str(std::int64_t{number}); }
    static std::string uint2str(OtherULong number) { return uint2str(std::uint64_t{number}); }
    static std::wstring int2wstr(OtherLong number) { return int2wstr(std::int64_t{number}); }
    static std::wstring uint2wstr(OtherULong number) { return uint2wstr(std::uint64_t{number}); }
    /// @}

private:
    /// `stop` is where a reader has stopped before the end, or because of `error`.
    static ReadResult readFailure(std::string_view text, const char* stop, std::errc error);

    /// The largest number without its sign.
    template <class Integer>
    static constexpr std::uint64_t magnitudeLimit(bool isNegative)
    {
        return static_cast<std::uint64_t>(std::numeric_limits<Integer>::max()) +
               (isNegative ? 1 : 0);
    }

    /// readNumber for a text of any length.
    template <class Integer>
    static ReadResult readLong(std::string_view text, Integer& number);

    static ReadResult readRealFailure(std::string_view text, const char* stop, std::errc error);

    /// Past the sign, if the type can have one and there is one.
    template <class Integer>
    static const char* skipSign(std::string_view text)
    {
        const bool hasSign = std::is_signed_v<Integer> && !text.empty() && text.front() == '-';
        return text.data() + (hasSign ? 1 : 0);
    }
};

// Inline, to be as fast as the standard's reader.
template <class Integer, class>
inline CCmnStringTool::ReadResult CCmnStringTool::readNumber(std::string_view text, Integer& number)
{
    const char* at = skipSign<Integer>(text);
    const bool isNegative = at != text.data();
    const char* const last = text.data() + text.size();
    // So few digits need no test for an overflow, which the standard's reader makes at each digit.
    if (at == last || last - at > std::numeric_limits<std::uint64_t>::digits10) {
        return readLong(text, number);
    }
    std::uint64_t read = 0;
    for (; at != last; ++at) {
        const auto digit = static_cast<unsigned char>(*at - '0');
        if (digit > 9) {
            return readFailure(text, at, std::errc::invalid_argument);
        }
        read = 10 * read + digit;
    }
    if (read > magnitudeLimit<Integer>(isNegative)) {
        return readFailure(text, last, std::errc::result_out_of_range);
    }
    number = static_cast<Integer>(isNegative ? 0 - read : read);
    return {};
}

template <class Integer>
CCmnStringTool::ReadResult CCmnStringTool::readLong(std::string_view text, Integer& number)
{
    const char* const last = text.data() + text.size();
    Integer read{};
    const auto [stop, error] = std::from_chars(text.data(), last, read);
    if (error == std::errc() && stop == last) {
        number = read;
        return {};
    }
    // If there is no digit, the standard's reader stops before the sign.
    const bool hasNone = error == std::errc::invalid_argument;
    return readFailure(text, hasNone ? skipSign<Integer>(text) : stop, error);
}

template <class Integer, class>
CCmnStringTool::ReadResult CCmnStringTool::readHex(std::string_view text, Integer& number)
{
    using Magnitude = std::make_unsigned_t<Integer>;
    const char* const last = text.data() + text.size();
    const char* first = skipSign<Integer>(text);
    const bool isNegative = first != text.data();
    const bool hasPrefix = last - first >= 2 && first[0] == '0' && (first[1] | 0x20) == 'x';
    first += hasPrefix ? 2 : 0;
    Magnitude read{};
    auto [stop, error] = std::from_chars(first, last, read, 16);
    if (error == std::errc() && read > magnitudeLimit<Integer>(isNegative)) {
        error = std::errc::result_out_of_range;
    }
    if (error == std::errc() && stop == last) {
        number = static_cast<Integer>(isNegative ? Magnitude{0} - read : read);
        return {};
    }
    return readFailure(text, stop, error);
}

template <class Real, std::enable_if_t<std::is_same_v<Real, double>, int>>
CCmnStringTool::ReadResult CCmnStringTool::readNumber(std::string_view text, Real& number)
{
    const char* const last = text.data() + text.size();
    Real read{};
    const auto [stop, error] = std::from_chars(text.data(), last, read);
    // The standard's reader also reads "inf" and "nan".
    if (error == std::errc() && stop == last && std::isfinite(read)) {
        number = read;
        return {};
    }
    return readRealFailure(text, stop, error);
}

} // namespace tarnix_cmn_4_4

#endif
