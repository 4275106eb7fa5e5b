// The factory of the example programs: one ICU catalog for each language, ICU messages, and English
// for unavailable languages.
#ifndef TARNIX_EXAMPLES_CATALOGFACTORY_H
#define TARNIX_EXAMPLES_CATALOGFACTORY_H

#include "cmnicucatalog.h"
#include "cmnmessage.h"
#include "cmnmsgcatalogmgr.h"
#include "cmnstringtool.h"

#include <unicode/locid.h>

#include <string>

class CatalogFactory : public tarnix_cmn_4_4::CCmnMessageCatalogFactory
{
public:
    explicit CatalogFactory(const std::string& catalog)
        : m_Catalog(tarnix_cmn_4_4::CCmnStringTool::str2tstr(catalog))
    {
    }

    CatalogPtr createCatalog(const char* language) override
    {
        CatalogPtr catalog;
        catalog.assign(
            std::make_unique<tarnix_cmn_4_4::CCmnIcuMessageCatalog>(m_Catalog, language).release());
        return catalog;
    }

    MessagePtr createMessage(tarnix_cmn_4_4::SCmnMessageInfo* info) override
    {
        MessagePtr message;
        message.assign(std::make_unique<tarnix_cmn_4_4::CCmnIcuMessage>(info).release());
        return message;
    }

    std::string getDefaultLanguage() override { return "root"; }

private:
    const tarnix_cmn_4_4::tstr m_Catalog;
};

// Plural forms and numbers follow ICU's default locale, not the catalog's language: a program that
// shows messages sets both. The root language of the catalogs here is English.
inline void setLanguage(const std::string& language)
{
    UErrorCode status = U_ZERO_ERROR;
    if (language.find_first_of("/\\") != std::string::npos) {
        return; // it would be a path out of the catalog, and every catalog refuses it
    }
    icu::Locale::setDefault(icu::Locale(language == "root" ? "en" : language.c_str()), status);
}

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
