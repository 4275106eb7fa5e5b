// SPDX-License-Identifier: LicenseRef-Tarnix
// The catalogs that a manager has found through lists of languages.
#ifndef TARNIX_CMNLISTEDCATALOGS_H
#define TARNIX_CMNLISTEDCATALOGS_H

#include "cmnmsgcatalogmgr.h"

#include <map>
#include <string>
#include <vector>

namespace tarnix_cmn_4_4
{

// Its entries in the manager's map have names of their own, so that the size of the class stays.
// An entry without a catalog says that the language has none.
class ListedCatalogs
{
public:
    using Factory = CCmnMessageCatalogFactory;
    using Catalogs = std::map<std::string, Factory::CatalogPtr>;

    ListedCatalogs(Catalogs& catalogs, Factory& factory) : m_Catalogs(catalogs), m_Factory(factory)
    {
    }

    // Sets `found` to the first text for the key, not formatted. False if there is none.
    bool find(const std::string& key, const std::vector<std::string>& languages,
              SCmnLocalizedText& found);

    // The language whose numbers and plural forms a text of `language` has.
    std::string conventionsOf(const std::string& language) const;

    // Removes the entries.
    void forget();

private:
    bool isFull() const;
    std::string nameOf(const std::string& language) const;
    std::string defaultName() const;
    bool findInFamily(const std::string& key, const std::string& language,
                      SCmnLocalizedText& found);
    bool findListed(const std::string& key, const std::string& language, SCmnLocalizedText& found);

    Catalogs& m_Catalogs;
    Factory& m_Factory;
};

} // namespace tarnix_cmn_4_4

#endif
