// SPDX-License-Identifier: LicenseRef-Tarnix
// The factory of the example programs: one ICU catalog for each language, ICU messages, and English
// for unavailable languages. Like its managers, a factory belongs to one thread.
#ifndef TARNIX_EXAMPLES_CATALOGFACTORY_H
#define TARNIX_EXAMPLES_CATALOGFACTORY_H

#include "cmnicucatalog.h"
#include "cmnmessage.h"
#include "cmnmsgcatalogmgr.h"
#include "cmnstringtool.h"

#include <map>
#include <memory>
#include <optional>
#include <string>

// A catalog that opens its bundle once. A failed one is kept by the factory and fails again at
// once.
class OnceOpened : public tarnix_cmn_4_4::CCmnIcuMessageCatalog
{
public:
    using CCmnIcuMessageCatalog::CCmnIcuMessageCatalog;

    int init() override
    {
        if (!m_Code) {
            m_Code = CCmnIcuMessageCatalog::init();
        }
        return *m_Code;
    }

    bool hasFailed() const { return m_Code.value_or(0) != 0; }

private:
    std::optional<int> m_Code;
};

class CatalogFactory : public tarnix_cmn_4_4::CCmnMessageCatalogFactory
{
public:
    explicit CatalogFactory(const std::string& catalog)
        : m_Catalog(tarnix_cmn_4_4::CCmnStringTool::str2tstr(catalog))
    {
    }

    // A failed catalog is returned again: to open it takes longer than all the rest of a lookup.
    CatalogPtr createCatalog(const char* language) override
    {
        const auto kept = m_Kept.find(language);
        if (kept != m_Kept.end() && static_cast<OnceOpened*>(kept->second.get())->hasFailed()) {
            return kept->second;
        }
        constexpr std::size_t mostKept = 100; // languages may come from untrusted input
        if (m_Kept.size() >= mostKept) {
            m_Kept.clear();
        }
        CatalogPtr catalog;
        catalog.assign(std::make_unique<OnceOpened>(m_Catalog, language).release());
        m_Kept.insert_or_assign(language, catalog);
        return catalog;
    }

    MessagePtr createMessage(tarnix_cmn_4_4::SCmnMessageInfo* info) override
    {
        MessagePtr message;
        message.assign(std::make_unique<tarnix_cmn_4_4::CCmnIcuMessage>(info).release());
        return message;
    }

    std::string getDefaultLanguage() override { return "en"; } // the texts of the root

private:
    const tarnix_cmn_4_4::tstr m_Catalog;
    std::map<std::string, CatalogPtr> m_Kept;
};

// The text for the terminal. If it is not representable in the locale's encoding, the conversion is
// empty, and the reader sees a note instead of nothing.
inline std::string shown(const tarnix_cmn_4_4::tstr& text)
{
    const std::string narrow = tarnix_cmn_4_4::CCmnStringTool::tstr2str(text);
    return narrow.empty() && !text.is_empty()
               ? "(not representable in this locale; use a UTF-8 one, such as LC_ALL=C.UTF-8)"
               : narrow;
}

#endif
