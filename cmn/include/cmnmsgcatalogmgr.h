// SPDX-License-Identifier: LicenseRef-Tarnix
/// @file
/// The catalog manager: turns message ids and messages into text in a given language.
///
/// @code
/// #include "cmnmsgcatalogmgr.h"
/// #include "cmnstringtool.h"
/// #include <iostream>
/// #include <memory>
///
/// using namespace tarnix_cmn_4_4;
/// struct Factory : CCmnMessageCatalogFactory {
///     CatalogPtr createCatalog(const char* language) override
///     {
///         CatalogPtr catalog; // its bundle is Messages/libvolume
///         catalog.assign(std::make_unique<CCmnIcuMessageCatalog>(L"volume", language).release());
///         return catalog;
///     }
///     MessagePtr createMessage(SCmnMessageInfo* info) override
///     {
///         MessagePtr message;
///         message.assign(std::make_unique<CCmnIcuMessage>(info).release());
///         return message;
///     }
///     std::string getDefaultLanguage() override { return "root"; }
/// };
/// Factory factory; // must outlive the manager
/// CCmnSmartPtr<CCmnMessageCatalogManager, CCmnDefaultAllocator<CCmnMessageCatalogManager>>
///     manager(true);
/// manager.get()->registerFactory(&factory);
/// const tstr text = manager.get()->getMessage("VOLUME_FULL", L"volume is full", "de");
/// std::cout << CCmnStringTool::tstr2str(text) << '\n'; // prints volume is full
/// @endcode
///
/// It prints the default text because there is no catalog of that name.
#ifndef TARNIX_CMNMSGCATALOGMGR_H
#define TARNIX_CMNMSGCATALOGMGR_H

#include "cmnexport.h"
#include "cmnicucatalog.h"
#include "cmnmessage.h"
#include "cmnrefcount.h"
#include "cmnsmartptr.h"
#include "cmntypes.h"

#include <map>
#include <string>
#include <vector>

namespace tarnix_cmn_4_4
{

/// Creates the catalogs and messages of a manager. Each component that has catalogs implements one.
class TARNIX_CMN_API CCmnMessageCatalogFactory
{
public:
    /// @{
    /// Pointers that create no object themselves: a factory fills them with assign.
    using CatalogPtr = CCmnSmartPtr<CCmnMessageCatalog, CCmnNullAllocator<CCmnMessageCatalog>>;
    using MessagePtr = CCmnSmartPtr<CCmnMessage, CCmnNullAllocator<CCmnMessage>>;
    /// @}

    /// @{
    /// This base has no data.
    CCmnMessageCatalogFactory() = default;
    CCmnMessageCatalogFactory(const CCmnMessageCatalogFactory&) = default;
    CCmnMessageCatalogFactory& operator=(const CCmnMessageCatalogFactory&) = default;
    virtual ~CCmnMessageCatalogFactory();
    /// @}

    /// Returns a new catalog whose init has not been called; never an empty pointer.
    virtual CatalogPtr createCatalog(const char* language) = 0;

    /// Returns a new message made from the record; never an empty pointer.
    virtual MessagePtr createMessage(SCmnMessageInfo* info) = 0;

    /// The manager calls this whenever it needs the default language.
    virtual std::string getDefaultLanguage() = 0;
};

/// A text that was found through a list of languages.
struct SCmnLocalizedText {
    tstr text; ///< owned; not formatted if it is the result of findMessage

    /// The language whose catalog has the text: "de" for a text that "de_AT" takes from there,
    /// "root" for the root. Empty if no catalog has it.
    std::string language;
};

/// Finds the catalog for a language: an active one, otherwise a new one from the factory, otherwise
/// that of the default language. Every lookup returns a text, at worst the key in angle brackets. A
/// key that is missing in the language's catalog is not looked up in another catalog; findMessage
/// and findLocalizedMessage do that, with a list of languages.
///
/// A program can have any number of managers, each held by a CCmnSmartPtr. A manager takes no lock,
/// and lookups change it too: only one thread at a time may use it. A copy shares the factory and
/// the catalogs, whose reference counts are not atomic, so that the rule holds for a manager and
/// its copies together. A copy has its own store of texts and its own native language. It copies
/// the reference count too, see CCmnRefCount.
///
/// For a language that cannot be activated, every lookup creates a catalog again. A language that
/// can be activated stays active until the manager is destroyed; with a root bundle, nearly every
/// name can be. So check language names from untrusted input, or they make the manager grow.
class TARNIX_CMN_API CCmnMessageCatalogManager : public virtual CCmnRefCount
{
public:
    /// @{
    /// The pointers of the factory.
    using CatalogPtr = CCmnMessageCatalogFactory::CatalogPtr;
    using MessagePtr = CCmnMessageCatalogFactory::MessagePtr;
    /// @}

    /// @{
    /// Without a factory every lookup returns the default text or the key in angle brackets.
    CCmnMessageCatalogManager() = default;
    CCmnMessageCatalogManager(const CCmnMessageCatalogManager&) = default;
    CCmnMessageCatalogManager& operator=(const CCmnMessageCatalogManager&) = default;
    /// @}

    /// Sets the factory, and activates its default language if possible. The factory must not be
    /// null and must outlive the manager and its copies. Catalogs of an earlier factory stay
    /// active.
    void registerFactory(CCmnMessageCatalogFactory* factory);

    /// Creates and activates a catalog for the language, if it has none yet and init succeeds.
    void activateCatalog(std::string language);

    /// Returns the pattern for a key, not formatted, after the name of the catalog. An empty
    /// language means the default language. If the catalog does not have the key, or there is no
    /// catalog, the result is `defaultText`. If that is null, the result is the key in angle
    /// brackets, after the name of the catalog if there is one.
    tstr getMessage(const std::string& key, const wchar_t* defaultText, std::string language);

    /// @name Texts in the manager's store
    /// A null `language` means the default language. "native" means the native language or, if that
    /// is empty, the default language. No other pointer may be null.
    ///
    /// `*text` belongs to the manager; release it with deleteLocalizedMessage. It is valid until
    /// its entry in the store is deleted, or until a call with the same key or the same serialised
    /// text writes the entry again. The language is not part of the entry's key: a call for another
    /// language writes the same entry.
    /// @{

    /// Sets `*text` to the pattern for a key, not formatted.
    void getLocalizedMessage(const char* key, const char* language, wchar_t** text);

    /// Sets `*text` to the formatted message of a record. Without a registered factory the process
    /// crashes.
    void getLocalizedMessage(SCmnMessageInfo* info, const char* language, wchar_t** text);
    /// @}

    /// Returns the formatted message as a text of the caller's own. Here "native" has no special
    /// meaning; an empty language means the default language. Neither argument may be null.
    ///
    /// A message whose id no catalog has is shown as its id in angle brackets, without its
    /// arguments: an id such as "{0}" is returned as it is. Other ids are formatted as patterns, so
    /// that apostrophes follow the rules of MessageFormat.
    tstr getLocalizedMessage(MessagePtr& message, const char* language);

    /// @name Lists of languages
    /// The languages are tried in their order, then the default language. Each is followed by its
    /// parents in ICU's data: "de_AT" by "de", "es_MX" by "es_419" and "es". A parent in another
    /// script is none: "zh_TW" is followed by "zh_Hant_TW" and "zh_Hant", but not by "zh". A key
    /// that is missing in one catalog is looked up in the next one.
    ///
    /// The root has the texts of the default language. It is tried after the parents of a language
    /// if that or one of them has the language and script of the default language, whatever their
    /// regions are: after "en_GB" if the default language is "en_US".
    ///
    /// Languages are ICU locale names, also in the form "de-AT". Of a name only language, script
    /// and region count; blanks around it, and a weight such as ";q=0.8" after it, are ignored. A
    /// name with a part that ICU does not know is left out, so that names may come from untrusted
    /// input: limit their number. The manager remembers for 256 names which catalog they have, or
    /// that they have none, and then begins again; registerFactory makes it forget them.
    ///
    /// A catalog of ICU has a language if there is a file for it, such as de_AT.res, that ICU can
    /// open, and a key if that file has it: the class's getMessage is not called for others, also
    /// if it is overridden. Names without a file are not passed on to ICU, which would remember
    /// them until the process ends. Another class is believed: it has a language if init returns 0,
    /// and a key unless getMessage returns the default text.
    /// @{

    /// As getMessage with a list of languages: the pattern for a key, after the name of the
    /// catalog, and its language. If no catalog has the key, the result is `defaultText` or, if
    /// that is null, the key in angle brackets.
    SCmnLocalizedText findMessage(const std::string& key, const wchar_t* defaultText,
                                  const std::vector<std::string>& languages);

    /// The message, formatted with the numbers and plural forms of the language that has its
    /// pattern, whatever ICU's default locale is. Those of the root are the default language's, or
    /// English if the root is the default language. A message whose id no catalog has is shown as
    /// its id in angle brackets.
    SCmnLocalizedText findLocalizedMessage(CCmnMessage& message,
                                           const std::vector<std::string>& languages);
    /// @}

    /// Deletes the first entry of the store, in the order of the keys, whose text equals `*text`.
    /// That can be another entry than the one that the pointer came from. Does nothing if there is
    /// no such entry. `*text` does not change.
    void deleteLocalizedMessage(wchar_t** text);

    /// Empty until setNativeLanguage is called. The text is valid until the next such call.
    const char* getNativeLanguage() const { return m_NativeLanguage.c_str(); }

    /// The language must not be null.
    void setNativeLanguage(const char* language) { m_NativeLanguage = language; }

protected:
    ~CCmnMessageCatalogManager() override;

private:
    CCmnMessageCatalog* findCatalog(const std::string& language) const;
    CCmnMessageCatalog* findOrActivate(const std::string& language);
    std::string resolveLanguage(const char* language) const;
    wchar_t* keep(const char* key, const tstr& text);

    std::map<std::string, CatalogPtr> m_Catalogs; ///< by the requested name
    CCmnMessageCatalogFactory* m_Factory = nullptr;
    std::map<std::string, tstr> m_LocalizedMessages; ///< by message id or serialised text
    std::string m_NativeLanguage;
};

} // namespace tarnix_cmn_4_4

#endif
