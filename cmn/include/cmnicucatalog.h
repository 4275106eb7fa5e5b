// SPDX-License-Identifier: LicenseRef-Tarnix
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

/// The base of catalogs. A catalog is held by a CCmnSmartPtr and starts with a reference count of
/// 0. It takes no lock: only one thread at a time may use it.
class TARNIX_CMN_API CCmnMessageCatalog : public virtual CCmnRefCount
{
public:
    CCmnMessageCatalog(const CCmnMessageCatalog&) = delete;
    CCmnMessageCatalog& operator=(const CCmnMessageCatalog&) = delete;
    ~CCmnMessageCatalog() override;

    /// Called once, before the first getMessage. Returns 0 for success. The manager does not use a
    /// catalog that returns anything else.
    virtual int init() { return 0; }

    /// Returns the text for a message id, or a replacement if there is none. `defaultText` may be
    /// null.
    virtual tstr getMessage(const std::string& key, const wchar_t* defaultText) const = 0;

    /// Returns "<key>", the replacement for a missing text. The key is read in the locale's
    /// encoding; the result is "<>" if it is not valid in that encoding.
    static tstr keyInBrackets(const std::string& key);

protected:
    /// `language` is an ICU locale name and must not be null.
    CCmnMessageCatalog(const tstr& name, const char* language);

    /// @{
    /// The arguments of the constructor, and where the bundle is.
    std::string m_Language;
    tstr m_Path; ///< path of the bundle, empty before init
    tstr m_Name;
    /// @}
};

/// A catalog in an ICU resource bundle. The bundle has string resources at the top level; each has
/// a message id as its key and a pattern for ICU's MessageFormat as its value. Its files, root.res,
/// de.res and so on as genrb writes them, are in `Messages/lib<name>` of the install directory.
class TARNIX_CMN_API CCmnIcuMessageCatalog : public CCmnMessageCatalog
{
public:
    /// Opens no file. `language` is an ICU locale name and must not be null.
    CCmnIcuMessageCatalog(const tstr& name, const char* language);
    ~CCmnIcuMessageCatalog() override;

    /// Opens the bundle; creates the directory Messages if it is missing. Returns 0 in two cases:
    /// - The language has a bundle of its own.
    /// - Neither the language nor a parent of it has one, and ICU falls back to its default locale
    ///   or to the root.
    ///
    /// Returns 3 otherwise:
    /// - There is no bundle at all, or none that ICU can read, or the path of the bundle is longer
    ///   than 1023 bytes in UTF-8. ICU takes it as UTF-8 in every locale.
    /// - Only a parent has a bundle, such as "de" for "de_CH": request the parent instead. This
    ///   object still uses the bundle of the parent.
    /// - The name of the language, without its "@key=value" part, contains a '/' or a '\\'. ICU
    ///   would use it as a path and could read any bundle on the disk.
    ///
    /// How ICU behaves: a name that it cannot parse, such as 20 letters without a separator, means
    /// the root. Until the process ends, ICU remembers which bundles a directory has and does not
    /// have. ICU does not check the size of a bundle: a truncated one may lack keys, or crash the
    /// process when ICU reads past its end. ICU 72 never returns from opening a bundle
    /// for "nb" or "nn" that does not name "no" as its `%%Parent`.
    int init() override;

    /// If the bundle has the key: returns the name of the catalog, ": " and the pattern. Otherwise
    /// returns `defaultText` unchanged or, if that is null, the name, ": " and the key in angle
    /// brackets. Before init no key is found.
    tstr getMessage(const std::string& key, const wchar_t* defaultText) const override;

    /// The language whose bundle init opened: "de" for a catalog of "de_CH" if only that parent has
    /// a bundle, "root" for the root. Empty before init, and if there is no bundle.
    std::string getBundleLanguage() const;

    /// The language whose bundle has the key. That can be a parent of getBundleLanguage, at last
    /// "root", because ICU looks there for what a bundle lacks. Empty if the key is missing.
    std::string getTextLanguage(const std::string& key) const;

private:
    std::unique_ptr<icu::ResourceBundle> m_Bundle; ///< null before init
};

} // namespace tarnix_cmn_4_4

#endif
