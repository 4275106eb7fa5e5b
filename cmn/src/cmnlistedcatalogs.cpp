// SPDX-License-Identifier: LicenseRef-Tarnix
// Finding a key in the catalogs of a list of languages.
#include "cmnlistedcatalogs.h"

#include "cmnbundlefile.h"
#include "cmnlanguages.h"
#include "cmntstr.h"

#include <algorithm>
#include <cstdint>
#include <cwchar>
#include <iterator>

namespace tarnix_cmn_4_4
{
namespace
{

constexpr char kRoot[] = "root";

// The name in m_Catalogs of a language that was found through a list. No other language starts with
// a zero, so that activateCatalog still tries again where a list has failed.
std::string listedName(const std::string& language)
{
    return '\0' + language;
}

// de_AT for de-AT.
std::string withUnderscores(std::string language)
{
    std::replace(language.begin(), language.end(), '-', '_');
    return language;
}

// The name without the blanks and the ";q=0.8" of a header of HTTP.
std::string withoutWeight(const std::string& name)
{
    constexpr char blanks[] = " \t";
    const std::size_t start = std::min(name.find_first_not_of(blanks), name.size());
    return name.substr(start, name.find_first_of(" \t;", start) - start);
}

// Whether the catalog has texts of the language itself. Those of ICU may also open for the texts of
// a parent, of ICU's default locale, or of the root.
bool speaks(CCmnMessageCatalog& catalog, const std::string& language)
{
    const BundleFilesOnly filesOnly;
    const int code = catalog.init();
    const auto* const icuCatalog = dynamic_cast<const CCmnIcuMessageCatalog*>(&catalog);
    const std::string bundle = icuCatalog != nullptr ? icuCatalog->getBundleLanguage() : "";
    return code == 0 && (bundle.empty() || bundle == language);
}

// Sets text and language if the catalog has a text of the language itself. ICU's parents of a
// bundle are not those of parentLanguage, which have catalogs of their own: for zh_TW it looks in
// zh, which is in another script.
bool findText(const CCmnMessageCatalog& catalog, const std::string& key,
              const std::string& language, SCmnLocalizedText& found)
{
    constexpr wchar_t missing[] = L"\uFFFF"; // no text has it: it is not a character
    const auto* const icuCatalog = dynamic_cast<const CCmnIcuMessageCatalog*>(&catalog);
    if (icuCatalog != nullptr && !icuCatalog->getBundleLanguage().empty() &&
        icuCatalog->getTextLanguage(key) != language) {
        return false;
    }
    tstr text = catalog.getMessage(key, missing);
    if (std::wcscmp(text.c_str(), missing) == 0) {
        return false;
    }
    found.text.swap(text);
    found.language = language;
    return true;
}

// Whether a reader of the language reads the other one, perhaps with the words of another region.
bool isRead(std::string language, const std::string& other)
{
    const std::string wanted = languageAndScript(other);
    while (!language.empty() && languageAndScript(language) != wanted) {
        language = parentLanguage(language);
    }
    return !language.empty();
}

} // namespace

bool ListedCatalogs::find(const std::string& key, const std::vector<std::string>& languages,
                          SCmnLocalizedText& found)
{
    for (const std::string& language : languages) {
        if (findInFamily(key, nameOf(language), found)) {
            return true;
        }
    }
    return findInFamily(key, defaultName(), found);
}

// Empty for the name of no language. A name that is remembered is known, in nearly all lookups.
std::string ListedCatalogs::nameOf(const std::string& language) const
{
    const std::string name = withUnderscores(withoutWeight(language));
    return m_Catalogs.count(listedName(name)) != 0 ? name : knownLanguage(name);
}

// That of the factory need not be known.
std::string ListedCatalogs::defaultName() const
{
    const std::string language = m_Factory.getDefaultLanguage();
    std::string name = nameOf(language);
    if (name.empty()) {
        name = language.empty() ? kRoot : withUnderscores(language);
    }
    return name;
}

// As findListed, in the language and its parents. The root belongs to the default language.
bool ListedCatalogs::findInFamily(const std::string& key, const std::string& language,
                                  SCmnLocalizedText& found)
{
    for (std::string name = language; !name.empty(); name = parentLanguage(name)) {
        if (findListed(key, name, found)) {
            return true;
        }
    }
    return isRead(language, defaultName()) && findListed(key, kRoot, found);
}

// False if the language has no catalog, or its catalog has no text for the key.
bool ListedCatalogs::findListed(const std::string& key, const std::string& language,
                                SCmnLocalizedText& found)
{
    const std::string name = listedName(language);
    auto entry = m_Catalogs.find(name);
    if (entry == m_Catalogs.end()) {
        Factory::CatalogPtr catalog = m_Factory.createCatalog(language.c_str());
        if (!speaks(*catalog.get(), language)) {
            catalog.release();
        }
        if (isFull()) {
            forget();
        }
        entry = m_Catalogs.emplace(name, catalog).first;
    }
    const CCmnMessageCatalog* const catalog = entry->second.get();
    return catalog != nullptr && findText(*catalog, key, language, found);
}

// Languages are remembered with a catalog and without.
bool ListedCatalogs::isFull() const
{
    return std::distance(m_Catalogs.lower_bound(listedName("")), m_Catalogs.lower_bound("\1")) >
           UINT8_MAX;
}

void ListedCatalogs::forget()
{
    m_Catalogs.erase(m_Catalogs.lower_bound(listedName("")), m_Catalogs.lower_bound("\1"));
}

// The root has no conventions of its own: in ICU's every plural form is `other`.
std::string ListedCatalogs::conventionsOf(const std::string& language) const
{
    if (language != kRoot) {
        return language;
    }
    const std::string byDefault = defaultName();
    return byDefault == kRoot ? "en" : byDefault;
}

} // namespace tarnix_cmn_4_4
