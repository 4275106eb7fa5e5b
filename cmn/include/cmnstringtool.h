/// @file
/// The text toolbox: conversions between the string kinds, numbers and hex as text, text editing
/// and XML escaping.
#ifndef TARNIX_CMNSTRINGTOOL_H
#define TARNIX_CMNSTRINGTOOL_H

#include "cmnexport.h"
#include "cmntypes.h"

#include <unicode/unistr.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <type_traits>
#include <vector>

namespace tarnix_cmn_4_4
{

/// All operations are static, keep nothing between calls, leave their arguments alone unless told
/// otherwise, and may be called from any thread. Those that depend on the locale read LC_CTYPE as
/// the process (or the calling thread) has set it; setlocale must not run at the same time.
///
/// The four kinds of string:
///   narrow  std::string            bytes: UTF-8 for str2ustr and ustr2str, the locale's multibyte
///                                  encoding for every other conversion
///   wide    std::wstring           one code point a unit
///   tstr    ACE_String_Base        one code point a unit
///   ustr    icu::UnicodeString     UTF-16
/// A narrow string does not tell which of its two meanings it has. Text that was made by one and is
/// read by the other is right only where it is ASCII or the locale's encoding is UTF-8.
///
/// "Cut at the first NUL" means that the input is read through its terminated form: what follows an
/// embedded zero is dropped.
///
/// A conversion that fails gives an empty result and never a part of the text. Exhausted memory
/// raises std::bad_alloc.
class TARNIX_CMN_API CCmnStringTool
{
public:
    // ---- Narrow and wide to UTF-16 and back ----------------------------------------------------

    /// UTF-8 to UTF-16, cut at the first NUL. Empty if the text is not valid UTF-8 (an encoded
    /// surrogate is not) or has more units than a UnicodeString can hold.
    static icu::UnicodeString str2ustr(const std::string& text);

    /// UTF-16 to UTF-8, cut at the first NUL. Empty if there is an unpaired surrogate anywhere in
    /// the text, also behind a NUL.
    static std::string ustr2str(const icu::UnicodeString& text);

    /// Code points to UTF-16, cut at the first NUL. A surrogate passes as it is; a unit that is no
    /// code point becomes U+FFFD. Empty if the text has more units than a UnicodeString can hold.
    static icu::UnicodeString tstr2ustr(const tstr& text);

    /// UTF-16 to code points, cut at the first NUL. An unpaired surrogate passes as it is.
    static tstr ustr2tstr(const icu::UnicodeString& text);

    // ---- Narrow text in the locale's encoding to wide and back ---------------------------------

    /// @{
    /// As mbstowcs reads the text, cut at the first NUL. Empty if the text is not valid in the
    /// locale's encoding.
    static std::wstring str2wstr(const std::string& text);
    static std::wstring mbs2wcs(const std::string& text);
    /// @}

    /// @{
    /// As wcstombs writes the text, cut at the first NUL. Empty if the locale cannot express one of
    /// its characters.
    static std::string wstr2str(const std::wstring& text);
    static std::string wcs2mbs(const std::wstring& text);
    /// @}

    /// @{
    /// Plain copies, embedded zeros included.
    static std::wstring str2wstr(const std::wstring& text);
    static std::string wstr2str(const std::string& text);
    /// @}

    /// @{
    /// The same conversions to and from a tstr, cut at the first NUL and failing alike.
    static tstr str2tstr(const std::string& text);
    static std::string tstr2str(const tstr& text);
    /// @}

    /// A plain copy of the terminated text. Null gives the empty string.
    static std::string tstr2str(const char* text);

    /// @{
    /// Nothing changes but the cut at the first NUL.
    static tstr wstr2tstr(const std::wstring& text);
    static std::wstring tstr2wstr(const tstr& text);
    /// @}

    // ---- Raw duplicates ------------------------------------------------------------------------

    /// Takes a size in bytes.
    using Allocator = void* (*)(std::size_t);

    /// @{
    /// The text with its terminator in a new buffer that belongs to the caller. The allocator is
    /// called once; null stands for malloc, whose buffer goes back to free. Null is returned if the
    /// allocator gives null or the size in bytes cannot be told. strdup and wstrdup copy embedded
    /// zeros; tstrdup is cut at the first.
    static char* strdup(const std::string& text, Allocator allocator);
    static wchar_t* wstrdup(const std::wstring& text, Allocator allocator);
    static wchar_t* tstrdup(const tstr& text, Allocator allocator);
    /// @}

    /// An array of list.size() texts as by tstrdup, ended by a null pointer; tstrfreelist frees it.
    /// Null if memory runs out for any part of it.
    static wchar_t** tstrduplist(const std::vector<tstr>& list);

    /// Frees a list of tstrduplist and sets the caller's pointer to null. A null list is left
    /// alone.
    static void tstrfreelist(wchar_t**& list);

    // ---- Numbers to text -----------------------------------------------------------------------

    /// "%g": six significant digits, and the locale's decimal point.
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
    /// The readers are those of the C library, and what they make of a text stands: one that starts
    /// with no number gives 0, what follows a number is ignored, leading white space and a sign are
    /// accepted, and overflow is not noticed. Only the empty text is an error: the forms with a
    /// target return -1 and leave the target alone (0 otherwise), the others return 0.
    static int str2double(const std::string& text, double& number); ///< atof
    static double str2double(const std::string& text);
    static int str2int(const std::string& text, int& number); ///< atoi
    static int str2int(const std::string& text);
    /// @}

    /// @{
    /// Read through the signed atoi: "-1" gives 4294967295. What a text outside the range of int
    /// gives is the C library's affair.
    static int str2uint(const std::string& text, unsigned int& number);
    static unsigned int str2uint(const std::string& text);
    /// @}

    static int str2uint64(const std::string& text, std::uint64_t& number); ///< strtoull, base 10

    // ---- Bytes and text ------------------------------------------------------------------------

    /// @{
    /// Two lower-case hex digits for each of `length` bytes, with no prefix and no separator. A
    /// length that is not positive gives the empty text.
    static std::string binary2str(const unsigned char* data, int length);
    static std::wstring binary2wstr(const unsigned char* data, int length);
    /// @}

    /// Reads pairs of hex digits into `out`; an odd last digit is ignored. `*size` holds the room
    /// in bytes on entry and the bytes stored on success (0). If the room is too small for all
    /// pairs, or a pointer that is needed is null, the result is -1 and nothing is written. A pair
    /// is read by strtol in base 16 and is not validated: "zz" gives 0, "1z" gives 1, "-1" gives
    /// 0xFF.
    static int str2binary(unsigned char* out, int* size, const std::string& text);

    /// str2binary of the text in the locale's encoding. The flag has no effect.
    static int wstr2binary(unsigned char* out, int* size, std::wstring text, bool);

    /// The number with at least four lower-case hex digits, then the bytes as by binary2str. Above
    /// 0xFFFF the number takes more digits, and the text does not tell where it ends.
    static std::wstring binary2uid(unsigned int number, const unsigned char* data, int length);

    /// @{
    /// The same of a text's bytes, except that a byte from 0x80 up is written with eight digits, as
    /// the negative number that it is: 0xE4 gives "ffffffe4". Only for ASCII do the digits agree
    /// with binary2uid. wstr2uid takes the text in the locale's encoding.
    static std::string str2uid(unsigned int number, const std::string& text);
    static std::string wstr2uid(unsigned int number, const std::wstring& text);
    /// @}

    // ---- Editing -------------------------------------------------------------------------------

    /// @{
    /// The text without those characters at its ends (trim), start (ltrim) or end (rtrim) that are
    /// in the set, a terminated list of single characters. An empty text or a null set gives a copy
    /// of the text. Otherwise trim and ltrim are cut at the first NUL behind what they take away;
    /// rtrim keeps embedded zeros.
    static std::string trim(const std::string& text, const char* set);
    static std::string ltrim(const std::string& text, const char* set);
    static std::string rtrim(const std::string& text, const char* set);
    /// @}

    /// Replaces every match, left to right and without overlap; the replacement is not scanned
    /// again. The result is cut at its first NUL. An empty search gives the text unchanged.
    static std::string searchreplace(const std::string& text, const std::string& search,
                                     const std::string& replacement);

    /// The parts of the text between runs of the delimiters, a set of single characters, as
    /// strtok_r finds them: no part is ever empty. Text and delimiters are cut at their first NUL.
    static std::vector<std::string> tokenize(const std::string& text,
                                             const std::string& delimiters);

    /// The text as one word of a command line, for CCmnExecPipeBase::Exec or a POSIX shell: split
    /// there, it gives the text again, whatever it holds. Only a zero byte cannot be passed, since
    /// the command ends there. A text of letters, digits and _-+=/.,:%@ comes back as it is; any
    /// other, and the empty text, in single quotes.
    static std::string quote(const std::string& text);

    /// Four runs of digits between dots. Neither range nor length is tested, and superfluous dots
    /// do not matter: "999.1.2.3" and "1..2.3.4." are addresses here.
    static bool isIpAddress(const std::string& text);

    /// True if there is nothing but digits; so it is for the empty text.
    static bool isDigit(const std::string& text);

    /// @{
    /// True if the texts are equal but for the case of letters. What is a letter, and its other
    /// case, is the locale's affair; the narrow forms go byte by byte.
    static bool CompareNoCase(const std::string& left, const std::string& right);
    static bool CompareNoCase(const std::wstring& left, const std::wstring& right);
    static std::string tostrupper(const std::string& text);
    static std::wstring tostrupper(const std::wstring& text);
    static std::string tostrlower(const std::string& text);
    static std::wstring tostrlower(const std::wstring& text);
    /// @}

    /// Looks for the pattern in the lines from number `index` on; with `trim` true without the line
    /// ends, blanks and tabs at the end of each line. Returns the offset in the first line that has
    /// it, whose number `index` then holds. Otherwise, and for a null pattern, returns
    /// std::string::npos, and `index` is the number of lines, or its old value if that was larger.
    static std::size_t find(const std::vector<std::string>& lines, const char* pattern,
                            std::size_t& index, bool trim);

    // ---- XML -----------------------------------------------------------------------------------

    /// "<name>", or "</name>" unless `opening`, with a line feed behind it if `newline`. The name
    /// is not escaped.
    static std::string xmlBracket(std::string name, bool opening, bool newline);

    /// A line: a tab, the opening tag, the escaped value, the closing tag.
    static std::string xmlBracketValue(std::string name, std::string value);

    /// @{
    /// Escapes & < > " and ' as &amp; &lt; &gt; &quot; and &#39;, and reads just these back: no
    /// other reference is decoded, and what comes out of a reference is not decoded again. Both are
    /// cut at the first NUL; text without one comes back as it was.
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
};

} // namespace tarnix_cmn_4_4

#endif
