/// @file
/// The catalog manager: message ids and messages as text in a wanted language.
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

namespace tarnix_cmn_4_4
{

/// Makes what a manager works with; each component that has catalogs implements one.
class TARNIX_CMN_API CCmnMessageCatalogFactory
{
public:
    /// @{
    /// Pointers that make nothing by themselves: a factory fills them by assign.
    using CatalogPtr = CCmnSmartPtr<CCmnMessageCatalog, CCmnNullAllocator<CCmnMessageCatalog>>;
    using MessagePtr = CCmnSmartPtr<CCmnMessage, CCmnNullAllocator<CCmnMessage>>;
    /// @}

    /// @{
    /// Nothing but the place for the derived class.
    CCmnMessageCatalogFactory() = default;
    CCmnMessageCatalogFactory(const CCmnMessageCatalogFactory&) = default;
    CCmnMessageCatalogFactory& operator=(const CCmnMessageCatalogFactory&) = default;
    virtual ~CCmnMessageCatalogFactory();
    /// @}

    /// A new catalog whose init has not been called, never empty.
    virtual CatalogPtr createCatalog(const char* language) = 0;

    /// A message made from the record, never empty.
    virtual MessagePtr createMessage(SCmnMessageInfo* info) = 0;

    /// The manager asks anew at each use.
    virtual std::string getDefaultLanguage() = 0;
};

/// Finds the catalog for a language: one that is active, else a new one from the factory, else the
/// default language's. Every look-up gives a text, in the last resort the key in angle brackets.
/// A key that the language's catalog lacks is not looked for in another catalog.
///
/// A client makes as many managers as it wants, each through a CCmnSmartPtr. Takes no lock, and
/// look-ups change the manager as well: one thread at a time. A copy shares the factory and the
/// catalogs, whose reference counts are plain integers; it has its own store and native language,
/// and takes over the reference count as CCmnRefCount tells.
///
/// A language that cannot be activated costs the making of a catalog at every look-up. One that
/// can, and with a root bundle that is nearly every name, stays active until the manager goes:
/// names from outside that are not checked make the manager grow.
class TARNIX_CMN_API CCmnMessageCatalogManager : public virtual CCmnRefCount
{
public:
    /// @{
    /// The factory's.
    using CatalogPtr = CCmnMessageCatalogFactory::CatalogPtr;
    using MessagePtr = CCmnMessageCatalogFactory::MessagePtr;
    /// @}

    /// @{
    /// Without a factory every look-up gives the default text or the key in angle brackets.
    CCmnMessageCatalogManager() = default;
    CCmnMessageCatalogManager(const CCmnMessageCatalogManager&) = default;
    CCmnMessageCatalogManager& operator=(const CCmnMessageCatalogManager&) = default;
    /// @}

    /// Activates the factory's default language if that can be. The factory must not be null and
    /// must outlive the manager and its copies. Catalogs of an earlier factory stay active.
    void registerFactory(CCmnMessageCatalogFactory* factory);

    /// Makes a catalog for the language active if there is none yet and its init succeeds.
    void activateCatalog(std::string language);

    /// The pattern for a key, not formatted, with the catalog's name in front. An empty language
    /// stands for the default language. For a key that the catalog lacks, or without any catalog,
    /// the result is `defaultText`; if that is null, the key in angle brackets, with the name in
    /// front if there is a catalog.
    tstr getMessage(const std::string& key, const wchar_t* defaultText, std::string language);

    // For the overloads with an output `language` may be null, which stands for the default
    // language, or "native", which stands for the native language or, if that is empty, for the
    // default language. `*text` belongs to the manager and goes back through
    // deleteLocalizedMessage. It is valid until its entry in the manager's store is dropped or
    // written again: by the next call with the same key, or the same serialised text, in whatever
    // language. No pointer may be null.

    /// The pattern for a key, not formatted.
    void getLocalizedMessage(const char* key, const char* language, wchar_t** text);

    /// The message of a record, formatted. Without a registered factory it ends the process.
    void getLocalizedMessage(SCmnMessageInfo* info, const char* language, wchar_t** text);

    /// The message, formatted, as the caller's own text. Here "native" is a language like any
    /// other; an empty text stands for the default language. Neither may be null.
    tstr getLocalizedMessage(MessagePtr& message, const char* language);

    /// Drops the first entry of the store, in the order of the keys, whose text is equal to
    /// `*text`, whichever entry that pointer came from; nothing if there is none. `*text` does not
    /// change.
    void deleteLocalizedMessage(wchar_t** text);

    /// Valid until the next setNativeLanguage. Empty at the start.
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

    std::map<std::string, CatalogPtr> m_Catalogs; ///< by the name that was asked for
    CCmnMessageCatalogFactory* m_Factory = nullptr;
    std::map<std::string, tstr> m_LocalizedMessages; ///< by message id or serialised text
    std::string m_NativeLanguage;
};

} // namespace tarnix_cmn_4_4

#endif
