// Finding a key in the catalogs of a list of languages.
#include "cmnlistedcatalogs.h"

#include "cmnlanguages.h"
#include "cmntstr.h"

#include <algorithm>
#include <cwchar>
#include <iterator>

namespace tarnix_cmn_4_4
{
namespace
{

constexpr char kRoot[] = "root";
constexpr std::ptrdiff_t kMostLanguages = 256; // with a catalog or without, that are remembered

// The name in m_Catalogs of a language that was found through a list. No other language starts with
// a zero, so that activateCatalog still tries again where a list has failed.
std::string listedName(const std::string& language)
{
    std::string name(1, '\0');
    name += language;
    return name;
}

// de_AT for de-AT.
std::string withUnderscores(std::string language)
{
    std::replace(language.begin(), language.end(), '-', '_');
    return language;
}

// Whether the catalog has texts of the language itself. Those of ICU also open if there are only
// texts of ICU's default locale, or of the root; init returns 3 for those of a parent.
bool speaks(CCmnMessageCatalog& catalog, const std::string& language)
{
    constexpr int onlyParent = 3;
    const int code = catalog.init();
    const auto* const icuCatalog = dynamic_cast<const CCmnIcuMessageCatalog*>(&catalog);
    const std::string bundle = icuCatalog != nullptr ? icuCatalog->getBundleLanguage() : "";
    if (bundle.empty()) {
        return code == 0;
    }
    return code == 0 ? bundle == language : code == onlyParent && bundle != kRoot;
}

// Sets text and language if the catalog has a text for the key that is not the root's.
bool findText(const CCmnMessageCatalog& catalog, const std::string& key,
              const std::string& language, SCmnLocalizedText& found)
{
    constexpr wchar_t missing[] = L"\uFFFF"; // no text has it: it is not a character
    const auto* const icuCatalog = dynamic_cast<const CCmnIcuMessageCatalog*>(&catalog);
    std::string source = language;
    if (icuCatalog != nullptr && !icuCatalog->getBundleLanguage().empty()) {
        source = icuCatalog->getTextLanguage(key);
        if (source == kRoot && language != kRoot) {
            return false;
        }
    }
    tstr text = catalog.getMessage(key, missing);
    if (source.empty() || std::wcscmp(text.c_str(), missing) == 0) {
        return false;
    }
    found.text.swap(text);
    found.language.swap(source);
    return true;
}

// Whether the parent is the language or one of its parents.
bool isInFamily(std::string language, const std::string& parent)
{
    while (!language.empty() && language != parent) {
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
    const std::string name = withUnderscores(language);
    return m_Catalogs.count(listedName(name)) != 0 ? name : knownLanguage(language);
}

// That of the factory need not be known.
std::string ListedCatalogs::defaultName() const
{
    const std::string name = withUnderscores(m_Factory.getDefaultLanguage());
    return name.empty() ? kRoot : name;
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
    return isInFamily(language, defaultName()) && findListed(key, kRoot, found);
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
        forget(kMostLanguages);
        entry = m_Catalogs.emplace(name, catalog).first;
    }
    const CCmnMessageCatalog* const catalog = entry->second.get();
    return catalog != nullptr && findText(*catalog, key, language, found);
}

void ListedCatalogs::forget(std::ptrdiff_t count)
{
    const auto first = m_Catalogs.lower_bound(listedName(""));
    const auto end = m_Catalogs.lower_bound(std::string(1, '\1'));
    if (std::distance(first, end) >= count) {
        m_Catalogs.erase(first, end);
    }
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
