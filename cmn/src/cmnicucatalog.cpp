// SPDX-License-Identifier: LicenseRef-Tarnix
// CCmnMessageCatalog and CCmnIcuMessageCatalog: patterns from ICU resource bundles.
#include "cmnicucatalog.h"

#include "cmnbundlefile.h"
#include "cmnpathtool.h"
#include "cmnstringtool.h"
#include "cmntstr.h"
#include "cmnutf16.h"

#include <unicode/locid.h>
#include <unicode/putil.h>
#include <unicode/uloc.h>

#include <cstring>
#include <cwchar>
#include <filesystem>
#include <iterator>
#include <new>
#include <string_view>
#include <system_error>
#include <utility>

namespace tarnix_cmn_4_4
{
namespace
{

constexpr int kNotOpened = 3;
constexpr wchar_t kSeparator[] = L": "; // between the catalog's name and the text
constexpr std::size_t kSeparatorLength = std::size(kSeparator) - 1;

// ICU uses the base name of the locale unchanged as a file name, so that a separator in it leads
// out of the bundle. The base name is computed as ICU does it: Locale::getBaseName differs for some
// malformed names, and is null for others.
bool leadsOutOfBundle(const icu::Locale& locale)
{
    char base[ULOC_FULLNAME_CAPACITY];
    UErrorCode status = U_ZERO_ERROR;
    uloc_getBaseName(locale.getName(), base, sizeof base, &status);
    const bool isComplete = status == U_ZERO_ERROR; // a missing terminator is a warning
    return !isComplete || std::strpbrk(base, "/\\") != nullptr;
}

// ICU treats a path with at most one separator as the name of a package and looks for it elsewhere.
// Without an install directory, "Messages/libname" is such a path.
icu::UnicodeString bundlePath(const tstr& path)
{
    constexpr char16_t separators[] = {U_FILE_SEP_CHAR, U_FILE_ALT_SEP_CHAR, u'\0'};
    icu::UnicodeString text = CCmnStringTool::tstr2ustr(path);
    const std::u16string_view units(text.getBuffer(), static_cast<std::size_t>(text.length()));
    if (units.find_first_of(separators) == units.find_last_of(separators)) {
        text.insert(0, u"./");
    }
    return text;
}

thread_local bool t_filesOnly = false; // while a BundleFilesOnly exists

// ICU reads the path in UTF-8 too.
bool hasFile(const icu::UnicodeString& bundle, const icu::Locale& locale)
{
    const std::string name = locale.getBaseName();
    std::string path;
    bundle.toUTF8String(path);
    path.append("/").append(name.empty() ? "root" : name).append(".res");
    std::error_code error;
    return std::filesystem::exists(std::filesystem::u8path(path), error);
}

// A text of usual length is joined on the stack, so that it takes one allocation.
tstr withName(const tstr& name, const icu::UnicodeString& text)
{
    tstr result;
    wchar_t joined[kUtf16Piece];
    const std::size_t start = name.length() + kSeparatorLength;
    if (start + static_cast<std::size_t>(text.length()) <= std::size(joined)) {
        std::wmemcpy(joined, name.c_str(), name.length());
        std::wmemcpy(joined + name.length(), kSeparator, kSeparatorLength);
        std::int32_t at = 0;
        const std::int32_t filled =
            decodeUtf16(text.getBuffer(), at, text.length(), joined + start, text.length());
        append(result, joined, start + static_cast<std::size_t>(filled));
    } else {
        append(result, name);
        append(result, kSeparator);
        appendWide(result, text);
    }
    return result;
}

// Empty for a bundle that could not be opened.
std::string languageOf(const icu::ResourceBundle& bundle)
{
    const char* const name = bundle.getName();
    return name != nullptr ? name : "";
}

} // namespace

bool BundleFilesOnly::isInForce()
{
    return t_filesOnly;
}

bool BundleFilesOnly::exchange(bool isInForce)
{
    return std::exchange(t_filesOnly, isInForce);
}

CCmnMessageCatalog::CCmnMessageCatalog(const tstr& name, const char* language)
    : m_Language(language)
{
    assign(m_Name, name);
}

CCmnMessageCatalog::~CCmnMessageCatalog() = default;

tstr CCmnMessageCatalog::keyInBrackets(const std::string& key)
{
    tstr text;
    assign(text, L"<", CCmnStringTool::str2tstr(key), L">");
    return text;
}

CCmnIcuMessageCatalog::CCmnIcuMessageCatalog(const tstr& name, const char* language)
    : CCmnMessageCatalog(name, language)
{
}

CCmnIcuMessageCatalog::~CCmnIcuMessageCatalog() = default;

int CCmnIcuMessageCatalog::init()
{
    tstr directory;
    tstr file;
    CCmnPathTool::getMessageFileInfo(m_Name, directory, file);
    assign(m_Path, directory, file);
    const icu::Locale locale(m_Language.c_str(), nullptr, nullptr);
    // ICU tries its default locale before the root.
    if (leadsOutOfBundle(locale) || leadsOutOfBundle(icu::Locale::getDefault())) {
        return kNotOpened;
    }
    const icu::UnicodeString path = bundlePath(m_Path);
    if (BundleFilesOnly::isInForce() && !hasFile(path, locale)) {
        return kNotOpened;
    }
    UErrorCode status = U_ZERO_ERROR;
    m_Bundle = std::make_unique<icu::ResourceBundle>(path, locale, status);
    if (!m_Bundle) { // ICU's operator new returns null
        throw std::bad_alloc();
    }
    return status == U_ZERO_ERROR || status == U_USING_DEFAULT_WARNING ? 0 : kNotOpened;
}

tstr CCmnIcuMessageCatalog::getMessage(const std::string& key, const wchar_t* defaultText) const
{
    if (m_Bundle) {
        UErrorCode status = U_ZERO_ERROR;
        const icu::UnicodeString text = m_Bundle->getStringEx(key.c_str(), status);
        if (U_SUCCESS(status)) {
            return withName(m_Name, text);
        }
    }
    tstr text;
    if (defaultText != nullptr) {
        assign(text, defaultText);
    } else {
        assign(text, m_Name, kSeparator, keyInBrackets(key));
    }
    return text;
}

std::string CCmnIcuMessageCatalog::getBundleLanguage() const
{
    return m_Bundle ? languageOf(*m_Bundle) : std::string();
}

std::string CCmnIcuMessageCatalog::getTextLanguage(const std::string& key) const
{
    if (!m_Bundle) {
        return {};
    }
    UErrorCode status = U_ZERO_ERROR;
    m_Bundle->getStringEx(key.c_str(), status);
    if (status == U_ZERO_ERROR) { // not from a parent
        return getBundleLanguage();
    }
    return languageOf(m_Bundle->get(key.c_str(), status)); // no bundle if the key is missing
}

} // namespace tarnix_cmn_4_4
