// SPDX-License-Identifier: LicenseRef-Tarnix
// CCmnMessageCatalogManager: selects the catalog, and keeps the texts that it returns.
#include "cmnmsgcatalogmgr.h"

#include "cmnlistedcatalogs.h"
#include "cmnpattern.h"
#include "cmntstr.h"

#include <algorithm>
#include <cstring>
#include <string_view>

namespace tarnix_cmn_4_4
{
namespace
{

tstr copyOf(const wchar_t* text)
{
    tstr copy;
    append(copy, text);
    return copy;
}

// For a text that no catalog has. A copy of a result would not report a failed allocation.
tstr replacement(const std::string& key, const wchar_t* defaultText)
{
    return defaultText != nullptr ? copyOf(defaultText) : CCmnMessageCatalog::keyInBrackets(key);
}

// Whether the text is an id that no catalog has, and would be a pattern with arguments. The sender
// of a message chooses its id, but not how its arguments are formatted.
bool isUnknownPattern(const tstr& text, const std::string& id)
{
    if (id.find('{') == std::string::npos) {
        return false;
    }
    const tstr key = CCmnMessageCatalog::keyInBrackets(id);
    const std::wstring_view end(key.c_str(), key.length());
    const std::wstring_view all(text.c_str(), text.length());
    const bool endsWithKey =
        std::mismatch(end.rbegin(), end.rend(), all.rbegin(), all.rend()).first == end.rend();
    return endsWithKey && nestsDeeper(text, 0);
}

} // namespace

CCmnMessageCatalogFactory::~CCmnMessageCatalogFactory() = default;

CCmnMessageCatalogManager::~CCmnMessageCatalogManager() = default;

void CCmnMessageCatalogManager::registerFactory(CCmnMessageCatalogFactory* factory)
{
    m_Factory = factory;
    ListedCatalogs(m_Catalogs, *m_Factory).forget();
    findOrActivate(m_Factory->getDefaultLanguage());
}

void CCmnMessageCatalogManager::activateCatalog(std::string language)
{
    if (m_Factory != nullptr) {
        findOrActivate(language);
    }
}

tstr CCmnMessageCatalogManager::getMessage(const std::string& key, const wchar_t* defaultText,
                                           std::string language)
{
    if (m_Factory != nullptr) {
        if (language.empty()) {
            language = m_Factory->getDefaultLanguage();
        }
        const CCmnMessageCatalog* catalog = findOrActivate(language);
        if (catalog == nullptr) {
            catalog = findCatalog(m_Factory->getDefaultLanguage());
        }
        if (catalog != nullptr) {
            return catalog->getMessage(key, defaultText);
        }
    }
    return replacement(key, defaultText);
}

void CCmnMessageCatalogManager::getLocalizedMessage(const char* key, const char* language,
                                                    wchar_t** text)
{
    *text = keep(key, getMessage(key, nullptr, resolveLanguage(language)));
}

void CCmnMessageCatalogManager::getLocalizedMessage(SCmnMessageInfo* info, const char* language,
                                                    wchar_t** text)
{
    const std::string resolved = resolveLanguage(language);
    MessagePtr message = m_Factory->createMessage(info);
    *text = keep(info->text, getLocalizedMessage(message, resolved.c_str()));
}

tstr CCmnMessageCatalogManager::getLocalizedMessage(MessagePtr& message, const char* language)
{
    CCmnMessage* const object = message.get();
    const std::string id = object->getMessageId();
    tstr text = getMessage(id, nullptr, language);
    if (isUnknownPattern(text, id)) {
        return text;
    }
    return object->formatMessage(taken(text));
}

SCmnLocalizedText CCmnMessageCatalogManager::findMessage(const std::string& key,
                                                         const wchar_t* defaultText,
                                                         const std::vector<std::string>& languages)
{
    SCmnLocalizedText found;
    if (m_Factory == nullptr ||
        !ListedCatalogs(m_Catalogs, *m_Factory).find(key, languages, found)) {
        tstr text = replacement(key, defaultText);
        found.text.swap(text);
    }
    return found;
}

SCmnLocalizedText
CCmnMessageCatalogManager::findLocalizedMessage(CCmnMessage& message,
                                                const std::vector<std::string>& languages)
{
    const std::string id = message.getMessageId();
    SCmnLocalizedText found = findMessage(id, nullptr, languages);
    if (!found.language.empty() && !isUnknownPattern(found.text, id)) {
        tstr text = message.formatInLanguage(
            taken(found.text),
            ListedCatalogs(m_Catalogs, *m_Factory).conventionsOf(found.language));
        found.text.swap(text);
    }
    return found;
}

void CCmnMessageCatalogManager::deleteLocalizedMessage(wchar_t** text)
{
    const tstr wanted(*text);
    const auto entry =
        std::find_if(m_LocalizedMessages.begin(), m_LocalizedMessages.end(),
                     [&wanted](const auto& candidate) { return candidate.second == wanted; });
    if (entry != m_LocalizedMessages.end()) {
        m_LocalizedMessages.erase(entry);
    }
}

// Null if the language has no active catalog.
CCmnMessageCatalog* CCmnMessageCatalogManager::findCatalog(const std::string& language) const
{
    const auto entry = m_Catalogs.find(language);
    return entry != m_Catalogs.end() ? entry->second.get() : nullptr;
}

// Null if the language cannot be activated. Needs a factory.
CCmnMessageCatalog* CCmnMessageCatalogManager::findOrActivate(const std::string& language)
{
    if (CCmnMessageCatalog* const active = findCatalog(language)) {
        return active;
    }
    const CatalogPtr catalog = m_Factory->createCatalog(language.c_str());
    if (catalog.get()->init() != 0) {
        return nullptr;
    }
    return m_Catalogs.emplace(language, catalog).first->second.get();
}

// Returns an empty text for the default language.
std::string CCmnMessageCatalogManager::resolveLanguage(const char* language) const
{
    if (language == nullptr) {
        return {};
    }
    return std::strcmp(language, "native") == 0 ? m_NativeLanguage : language;
}

// Stores the text and returns the stored characters. The interface needs a pointer to non-const,
// but nobody writes through it.
wchar_t* CCmnMessageCatalogManager::keep(const char* key, const tstr& text)
{
    tstr& entry = m_LocalizedMessages[key];
    assign(entry, text);
    return const_cast<wchar_t*>(entry.c_str());
}

} // namespace tarnix_cmn_4_4
