// SPDX-License-Identifier: LicenseRef-Tarnix
// Catalogs on bundles that the test compiles with genrb, and the manager that chooses among them.
#include "cmnmsgcatalogmgr.h"
#include "cmnstringtool.h"
#include "support/scratchinstallation.h"

#include <gtest/gtest.h>
#include <unicode/locid.h>

#include <malloc.h>

using namespace tarnix_cmn_4_4;

namespace
{

// A catalog of a client, which cannot be opened in Dutch.
struct ClientCatalog : CCmnMessageCatalog {
    ClientCatalog(const tstr& name, const char* language) : CCmnMessageCatalog(name, language) {}
    int init() override { return m_Language == "nl" ? 1 : CCmnMessageCatalog::init(); }
    tstr getMessage(const std::string& key, const wchar_t* defaultText) const override
    {
        return key == "who" ? tstr(L"client") : tstr(defaultText);
    }
};

// A factory, and an install directory with two bundles, one of them without a root. The directory
// has a new name for each test, so ICU has not cached its bundles.
struct Catalogs : testing::Test, CCmnMessageCatalogFactory {
    Catalogs()
    {
        UErrorCode status = U_ZERO_ERROR;
        icu::Locale::setDefault(icu::Locale::getUS(), status);
        const std::string longText = "{ \"" + std::string(2000, 'x') + "\" } ";
        scratch.write("root.txt", "root { who { \"root {0}\" } }");
        scratch.write("ja_JP.txt", "ja_JP { who { \"ja_JP {0}\" } disk { \"it''s {0} <disk>\" } }");
        scratch.write("de.txt", "de { who { \"de {0}\" } wide { \"it''s \\u3042\\U0001F600\" } "
                                "long " +
                                    longText + "longer " + longText + "}");
        scratch.write("listed.txt", "root { who { \"root {0}\" } count { \"" + count + "\" } }");
        for (const std::string language : {"es_419", "de_AT", "sr", "zh", "zh_Hant", "fr"})
            scratch.write(language + ".txt", language + " { who { \"" + language + "\" } }");
        scratch.write("es_CO.txt", "es_CO { wide { \"es_CO\" } }");
        scratch.write("zh_TW.txt", "zh_TW { wide { \"zh_TW\" } }");
        scratch.write("ru.txt", "ru { count { \"" + count + "\" } }");
        const std::string command =
            "cd " + scratch.path() +
            " && mkdir -p Messages/libapp Messages/librooted Messages/liblisted && genrb -q fr.txt"
            " && genrb -q -d Messages/liblisted de*.txt es*.txt listed.txt ru.txt sr.txt zh*.txt"
            " && genrb -q -d Messages/libapp de.txt ja_JP.txt"
            " && genrb -q -d Messages/librooted de.txt root.txt";
        EXPECT_EQ(std::system(command.c_str()), 0);
    }
    CatalogPtr createCatalog(const char* language) override
    {
        asked += std::string(language) + ",";
        CatalogPtr catalog;
        if (name == tstr(L"client"))
            catalog.assign(new ClientCatalog(name, language));
        else
            catalog.assign(new CCmnIcuMessageCatalog(name, language));
        return catalog;
    }
    MessagePtr createMessage(SCmnMessageInfo* info) override
    {
        MessagePtr message;
        message.assign(new CCmnIcuMessage(info));
        return message;
    }
    std::string getDefaultLanguage() override { return defaultLanguage; }

    // The text of a key, or of a record.
    template <class Wanted>
    wchar_t* stored(Wanted wanted, const char* language)
    {
        wchar_t* text = nullptr;
        manager.get()->getLocalizedMessage(wanted, language, &text);
        return text;
    }

    const ScratchInstallation scratch;
    const std::string count = "{0} {0, plural, one{one} few{few} other{other}}";
    tstr name = L"none";
    std::string defaultLanguage = "de", asked;
    CCmnSmartPtr<CCmnMessageCatalogManager, CCmnDefaultAllocator<CCmnMessageCatalogManager>>
        manager{true};
};

TEST_F(Catalogs, TheManagerChoosesACatalog)
{
    manager.get()->activateCatalog("de"); // there is no factory yet
    manager.get()->registerFactory(this);
    const icu::Formattable number(7);
    MessagePtr message;
    message.assign(new CCmnIcuMessage("{0}", &number, 1, tarnix_eseverity{}, "f", 1));
    EXPECT_STREQ(manager.get()->getLocalizedMessage(message, "").c_str(), L"<{0}>");
    EXPECT_EQ(std::exchange(asked, ""), "de,de,"); // by the registration and for the message
    const std::tuple<const wchar_t*, const char*, const wchar_t*, const char*, const char*>
        cases[] = {{L"none", "who", nullptr, "ja_JP", "<who> [ja_JP,]"},
                   {L"none", "who", L"", "", " [de,]"},
                   {L"app", "who", nullptr, "ja_JP", "app: ja_JP {0} [ja_JP,]"},
                   {L"client", "who", nullptr, "it", "client [it,]"},
                   {L"rooted", "who", nullptr, "de@x=a/b", "rooted: de {0} [de@x=a/b,]"},
                   // Names that would escape to another bundle.
                   {L"rooted", "who", nullptr, "../libapp/de", "<who> [../libapp/de,]"},
                   {L"rooted", "who", L"", "_und_-@/../libapp/de=x", " [_und_-@/../libapp/de=x,]"},
                   // The default language becomes active only when it is requested.
                   {L"app", "who", L"{0}", "xx", "{0} [xx,]"},
                   {L"app", "who", nullptr, "", "app: de {0} [de,]"},
                   {L"app", "who", nullptr, "xx", "app: de {0} [xx,]"},
                   {L"app", "long", nullptr, "ja_JP", "app: <long> []"},
                   {L"app", "long", L"", "ja_JP", " []"},
                   {L"rooted", "who", nullptr, "fr_FR", "rooted: root {0} [fr_FR,]"}};
    for (const auto& [catalogs, key, defaultText, language, answer] : cases) {
        name = catalogs;
        const tstr text = manager.get()->getMessage(key, defaultText, language);
        EXPECT_EQ(CCmnStringTool::tstr2str(text) + " [" + std::exchange(asked, "") + "]", answer);
    }
    manager.get()->activateCatalog("root");
    EXPECT_EQ(asked, "root,");
    defaultLanguage = "root";
    EXPECT_EQ(manager.get()->getMessage("who", nullptr, ""), tstr(L"rooted: root {0}"));
}

// ICU's default locale is none of the languages, and would be taken before the root.
TEST_F(Catalogs, AListOfLanguagesFallsBackKeyByKey)
{
    UErrorCode status = U_ZERO_ERROR;
    icu::Locale::setDefault(icu::Locale("ru"), status);
    const struct {
        std::vector<std::string> languages;
        const char* key;
        std::string answer;
        const char *asked = "", *byDefault = "en";
        const wchar_t* defaultText = nullptr;
    } cases[] = {
        {{"de-AT@x=" + std::string(56, 'y')}, "who", "listed: de_AT [de_AT]", "de_AT,"},
        {{"root", "de"}, "who", "listed: root {0} [root]", "root,"},
        {{"de_AT"}, "wide", "listed: it''s \u3042\U0001F600 [de]", "de,"},
        {{"de_AT", "ru"}, "count", "listed: " + count + " [ru]", "ru,"},
        {{"fr", "es_AR"}, "who", "listed: es_419 [es_419]", "fr,es_AR,es_419,"},
        {{"en_GB", "de"}, "who", "listed: root {0} [root]", "en_GB,en_001,en,"},
        {{"en_GB", "de"}, "who", "listed: de {0} [de]", "", "root"},
        {{"es_CO"}, "who", "listed: es_419 [es_419]", "es_CO,"},
        {{"zh_TW"}, "who", "listed: zh_Hant [zh_Hant]", "zh_TW,zh_Hant_TW,zh_Hant,"},
        {{"sr_Latn", "\tde ;q=0.8"}, "who", "listed: de {0} [de]", "sr_Latn,"},
        {{}, "who", "listed: de {0} [de]", "", "DE"},
        {{}, "who", "listed: root {0} [root]", "own_words,own,", "own-words"},
        {{"de@x=/", "de@x=" + std::string(60, 'y')}, "who", "listed: root {0} [root]", "", ""},
        {{"fr"}, "none", "{0} []", "", "en", L"{0}"},
        {{"../libapp/ja_JP", "xx", "de_QQ", "de_Xxxx"}, "who", "listed: root {0} [root]"}};
    name = L"listed";
    defaultLanguage = "en";
    EXPECT_EQ(manager.get()->findMessage("who", L"", {"de"}).text, tstr(L""));
    manager.get()->registerFactory(this);
    asked.clear();
    for (const auto& c : cases) {
        defaultLanguage = c.byDefault;
        const auto found = manager.get()->findMessage(c.key, c.defaultText, c.languages);
        EXPECT_EQ(CCmnStringTool::ustr2str(CCmnStringTool::tstr2ustr(found.text)) + " [" +
                      found.language + "]",
                  c.answer);
        EXPECT_EQ(std::exchange(asked, ""), c.asked) << c.answer;
    }
    name = L"client";
    EXPECT_EQ(manager.get()->findMessage("who", nullptr, {"nl", "it"}).language, "it");
    EXPECT_STREQ(manager.get()->findMessage("none", L"new", {"it"}).text.c_str(), L"new");
    name = L"listed";
    asked.clear();
    // Other calls try again, as if no list had failed.
    for (int i = 0; i < 2; ++i)
        manager.get()->getMessage("who", nullptr, "es_AR");
    EXPECT_EQ(asked, "es_AR,es_AR,");
    // ICU would remember that there was no bundle: it has not been asked.
    std::filesystem::rename(scratch.path("fr.res"), scratch.path("Messages/liblisted/fr.res"));
    manager.get()->registerFactory(this);
    EXPECT_EQ(manager.get()->findMessage("who", nullptr, {"fr"}).language, "fr");
}

TEST_F(Catalogs, AListOfLanguagesFormatsForTheOneThatAnswers)
{
    name = L"listed";
    manager.get()->registerFactory(this);
    const icu::Formattable number(12345672);
    const std::tuple<const char*, const char*, const wchar_t*> cases[] = {
        {"ru", "en", L"listed: 12\u00A0345\u00A0672 few"},
        {"de_AT", "ru", L"listed: 12\u00A0345\u00A0672 few"},
        {"de_AT", "fr", L"listed: 12\u202F345\u202F672 other"},
        {"de_AT", "root", L"listed: 12,345,672 other"},
    };
    for (const auto& [language, byDefault, text] : cases) {
        defaultLanguage = byDefault;
        CCmnIcuMessage message("count", &number, 1, tarnix_eseverity{}, "f", 1);
        EXPECT_STREQ(manager.get()->findLocalizedMessage(message, {language}).text.c_str(), text)
            << language << " " << byDefault;
    }
    CCmnIcuMessage unknown("it''s", &number, 1, tarnix_eseverity{}, "f", 1);
    EXPECT_EQ(manager.get()->findLocalizedMessage(unknown, {"de"}).text, tstr(L"<it''s>"));
}

TEST_F(Catalogs, ACatalogWithoutAManager)
{
    CCmnIcuMessageCatalog catalog(L"app", "de_CH");
    EXPECT_STREQ(catalog.getMessage("k y", nullptr).c_str(), L"app: <k y>");
    EXPECT_EQ(catalog.getTextLanguage("k y"), "");
    EXPECT_EQ(catalog.init(), 3); // it falls back to its parent
    EXPECT_STREQ(catalog.getMessage("wide", nullptr).c_str(), L"app: it''s \u3042\U0001F600");
    EXPECT_EQ(catalog.getMessage("long", nullptr).c_str(), L"app: " + std::wstring(2000, L'x'));
    EXPECT_EQ(CCmnIcuMessageCatalog(std::wstring(1024, L'x').c_str(), "de").init(), 3);
    // ICU reads the path in UTF-8 even in the locale C.
    std::filesystem::create_directory(scratch.path("\u00FC"));
    std::filesystem::rename(scratch.path("Messages"), scratch.path("\u00FC/Messages"));
    scratch.setInstallDirectory(scratch.path("\u00FC/"));
    EXPECT_EQ(CCmnIcuMessageCatalog(L"app", "de").init(), 0);
}

TEST_F(Catalogs, StoredTexts)
{
    name = L"app";
    manager.get()->registerFactory(this);
    EXPECT_STREQ(stored("who", nullptr), L"app: de {0}");
    manager.get()->setNativeLanguage("ja_JP"); // messages do not use it by default
    EXPECT_STREQ(manager.get()->getNativeLanguage(), "ja_JP");
    EXPECT_STREQ(stored("who", "native"), L"app: ja_JP {0}");
    const icu::Formattable arguments[] = {icu::UnicodeString(u"/var"), 97};
    MessagePtr message;
    message.assign(new CCmnIcuMessage("disk", arguments, 2, tarnix_eseverity{}, "f", 1));
    EXPECT_EQ(manager.get()->getLocalizedMessage(message, "native"), tstr(L"app: <disk>"));
    // An id that no catalog has is no place for arguments.
    const std::pair<const char*, const wchar_t*> ids[] = {{"{0}", L"app: <{0}>"},
                                                          {"it''s_'{0}'", L"app: <it's_{0}>"},
                                                          {"it''s_{0", L"app: <it''s_{0>"}};
    for (const auto& [id, shown] : ids) {
        message.assign(new CCmnIcuMessage(id, arguments, 2, tarnix_eseverity{}, "f", 1));
        EXPECT_STREQ(manager.get()->getLocalizedMessage(message, "ja_JP").c_str(), shown);
    }
    message.assign(new CCmnIcuMessage("disk", arguments, 2, tarnix_eseverity{}, "f", 1));
    SCmnMessageInfo record = *message.get()->serialize();
    const wchar_t* const text = stored(&record, "native");
    EXPECT_STREQ(stored("disk", nullptr), L"app: <disk>"); // under its id
    EXPECT_STREQ(text, L"app: it's /var <disk>");          // under the record's text

    stored("long", "de");
    wchar_t* longer = stored("longer", "de");
    const std::size_t used = mallinfo2().uordblks;
    manager.get()->deleteLocalizedMessage(&longer); // the first one with this text
    EXPECT_TRUE(mallinfo2().uordblks + 4 * 2000 <= used || used == 0); // 0 under a sanitizer
    EXPECT_EQ(longer, L"app: " + std::wstring(2000, L'x'));
}

} // namespace
