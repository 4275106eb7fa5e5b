/// @file
/// Message catalogs: the patterns of one component in one language, by message id.
#ifndef TARNIX_CMNICUCATALOG_H
#define TARNIX_CMNICUCATALOG_H

#include "cmnexport.h"
#include "cmnrefcount.h"
#include "cmntypes.h"

#include <unicode/resbund.h>

#include <memory>
#include <string>

namespace tarnix_cmn_4_4
{

/// Held through CCmnSmartPtr, with a reference count of 0 at the start. Takes no lock.
class TARNIX_CMN_API CCmnMessageCatalog : public virtual CCmnRefCount
{
public:
    CCmnMessageCatalog(const CCmnMessageCatalog&) = delete;
    CCmnMessageCatalog& operator=(const CCmnMessageCatalog&) = delete;
    ~CCmnMessageCatalog() override;

    /// Called once, before the first getMessage. 0 is success; a catalog that gives anything else
    /// is not used by the manager.
    virtual int init() { return 0; }

    /// The text for a message id, or what stands for it if there is none. `defaultText` may be
    /// null.
    virtual tstr getMessage(const std::string& key, const wchar_t* defaultText) const = 0;

    /// "<key>", which stands for a text that is not there. The key is read in the locale's
    /// encoding; "<>" if it is not valid in that.
    static tstr keyInBrackets(const std::string& key);

protected:
    /// `language` is an ICU locale name and must not be null.
    CCmnMessageCatalog(const tstr& name, const char* language);

    /// @{
    /// What the catalog was made with, and where its bundle lies.
    std::string m_Language;
    tstr m_Path; ///< of the bundle, empty before init
    tstr m_Name;
    /// @}
};

/// A catalog in an ICU resource bundle: string resources at the top level, each with a message id
/// as its key and a pattern for ICU's MessageFormat as its value. The files root.res, de.res, ...
/// that genrb writes lie in the directory `Messages/lib<name>` of the install directory.
class TARNIX_CMN_API CCmnIcuMessageCatalog : public CCmnMessageCatalog
{
public:
    /// Opens nothing yet. `language` is an ICU locale name and must not be null.
    CCmnIcuMessageCatalog(const tstr& name, const char* language);
    ~CCmnIcuMessageCatalog() override;

    /// Opens the bundle, and makes the directory Messages on the way. 0 if the language has a
    /// bundle of its own, or if neither it nor a parent of it has one and ICU falls back to its
    /// default locale or the root. 3 otherwise:
    /// - There is no bundle at all, or none that ICU can read.
    /// - A parent answers, "de" for "de_CH": such a language is to be asked for by its parent.
    /// - The language's name, without its "@key=value" part, holds a '/' or a '\\'. ICU would take
    ///   it for a path and read any bundle on the disk that it leads to.
    ///
    /// What ICU does: a name that it cannot read, such as one of 20 letters without a separator,
    /// stands for the root. What it found in a directory, or did not find, it remembers until the
    /// process ends. It does not test a bundle's size: one that has been cut may lack keys, or end
    /// the process when ICU reads behind its end.
    int init() override;

    /// The catalog's name, ": " and the pattern if the bundle has the key. Otherwise the unchanged
    /// `defaultText`; if that is null, the name, ": " and the key in angle brackets. So it is also
    /// before init. After an init that gave 3 a bundle that ICU did open still answers.
    tstr getMessage(const std::string& key, const wchar_t* defaultText) const override;

private:
    std::unique_ptr<icu::ResourceBundle> m_Bundle; ///< null before init
};

} // namespace tarnix_cmn_4_4

#endif
