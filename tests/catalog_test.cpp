// Catalogs on bundles that genrb makes here, and the manager that chooses among them.
#include "cmnmsgcatalogmgr.h"
#include "cmnstringtool.h"
#include "scratch.h"

#include <unicode/locid.h>

using namespace tarnix_cmn_4_4;
using icu::Formattable;

namespace
{

using Manager =
    CCmnSmartPtr<CCmnMessageCatalogManager, CCmnDefaultAllocator<CCmnMessageCatalogManager>>;
using MessagePtr = CCmnMessageCatalogManager::MessagePtr;

// An install directory with bundles. Its name is new each time, so ICU has no bundle of it yet.
struct Catalogs : testing::Test {
    Catalogs()
    {
        UErrorCode status = U_ZERO_ERROR;
        icu::Locale::setDefault(icu::Locale::getUS(), status);
        scratch.setRegistry(scratch.path(), "");
    }
    // A bundle that has "who" and a table besides its own entries.
    void bundle(const std::string& catalog, const std::string& language,
                const std::string& entries = "") const
    {
        const std::string target = "Messages/" + catalog, source = language + ".txt";
        scratch.makeDirectory(target);
        scratch.write(source, language + " { who { \"" + language +
                                  " {0}\" } table { in { \"x\" } } " + entries + " }");
        const std::string command = "cd '" + scratch.path() + "' && genrb -q -d ";
        ASSERT_EQ(std::system((command + target + " " + source).c_str()), 0);
    }

    Scratch scratch;
};

TEST_F(Catalogs, InitAndLookUp)
{
    EXPECT_EQ(CCmnIcuMessageCatalog(L"other", "de").init(), 3);
    EXPECT_TRUE(std::filesystem::is_directory(scratch.path("Messages"))); // made by init
    bundle("libapp", "root");
    const std::wstring named = L"app: " + std::wstring(2000, L'x');
    bundle("libapp", "de",
           "long { \"" + std::string(2000, 'x') + "\" } wide { \"it''s \\u3042\\U0001F600\" }");
    bundle("liboutside", "de");
    bundle("libapp/sub", "de");
    const std::tuple<std::wstring, std::string, int, const char*, const wchar_t*> cases[] = {
        {L"app", "de", 0, "who", L"app: de {0}"},
        {L"app", "de", 0, "wide", L"app: it''s \u3042\U0001F600"},
        {L"app", "de", 0, "long", named.c_str()},
        {L"app", "de@timezone=Europe/Berlin", 0, "who", L"app: de {0}"},
        {L"app", "root", 0, "who", L"app: root {0}"},
        {L"app", "", 0, "wide", L"app: <wide>"},
        {L"app", "fr_FR", 0, "who", L"app: root {0}"},
        {L"app", "de", 0, "table", L"app: <table>"},
        {L"app", "de_CH", 3, "who", L"app: de {0}"}, // a parent answers
        {L"none", "de", 3, "who", L"none: <who>"},
        // Names that would lead to a bundle elsewhere.
        {L"app", "../liboutside/de", 3, "who", L"app: <who>"},
        {L"app", "sub/de", 3, "who", L"app: <who>"},
        {L"app", "..\\liboutside\\de", 3, "who", L"app: <who>"},
        {L"app", "de@/../../liboutside/de", 3, "who", L"app: <who>"},
        {L"app", "_und_-@/../../liboutside/de=x", 3, "who", L"app: <who>"}};
    for (const auto& [name, language, result, key, text] : cases) {
        CCmnIcuMessageCatalog catalog(name.c_str(), language.c_str());
        EXPECT_EQ(catalog.getMessage("k y", nullptr), tstr((name + L": <k y>").c_str()));
        EXPECT_EQ(catalog.init(), result) << language;
        EXPECT_STREQ(catalog.getMessage(key, nullptr).c_str(), text) << language;
        EXPECT_STREQ(catalog.getMessage("none", L"{0}").c_str(), L"{0}") << language;
    }
    EXPECT_EQ(CCmnIcuMessageCatalog(std::wstring(2000, L'n').c_str(), "de").init(), 3);
}

struct ManagerTest : Catalogs, CCmnMessageCatalogFactory {
    ManagerTest()
    {
        bundle("libapp", "de", "only { \"de {1}\" }");
        bundle("libapp", "fr");
        bundle("libapp", "ja_JP",
               "only { \"it''s {0}: {1}\" } second { \"same\" } first { \"same\" }");
    }
    CatalogPtr createCatalog(const char* language) override
    {
        asked += std::string(language) + ",";
        CatalogPtr catalog;
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

    // For each language, the text and which catalogs were asked for.
    std::string answers(const char* key, const wchar_t* defaultText,
                        std::initializer_list<const char*> languages)
    {
        std::string all;
        for (const char* language : languages) {
            all += CCmnStringTool::tstr2str(manager.get()->getMessage(key, defaultText, language));
            all += " [" + std::exchange(asked, "") + "] ";
        }
        return all;
    }
    // Of a key, or of a record.
    template <class Wanted>
    wchar_t* stored(Wanted wanted, const char* language)
    {
        wchar_t* text = nullptr;
        manager.get()->getLocalizedMessage(wanted, language, &text);
        return text;
    }

    tstr name = L"app";
    std::string defaultLanguage = "de", asked;
    Manager manager{true};
};

TEST_F(ManagerTest, WhichCatalogAnswers)
{
    manager.get()->activateCatalog("de");
    EXPECT_EQ(answers("who", nullptr, {"de", ""}), "<who> [] <who> [] "); // without a factory
    EXPECT_EQ(answers("who", L"{0}", {"de"}), "{0} [] ");
    name = L"none";
    manager.get()->registerFactory(this);
    EXPECT_EQ(std::exchange(asked, ""), "de,"); // its default language is not tried again
    EXPECT_EQ(answers("who", nullptr, {"fr", ""}), "<who> [fr,] <who> [de,] ");
    EXPECT_EQ(answers("who", L"", {"fr"}), " [fr,] ");
    name = L"app";
    // The default language has not become active before "".
    EXPECT_EQ(answers("who", nullptr, {"fr"}), "app: fr {0} [fr,] ");
    EXPECT_EQ(answers("who", L"{0}", {"xx"}), "{0} [xx,] ");
    EXPECT_EQ(answers("who", nullptr, {"", "xx"}), "app: de {0} [de,] app: de {0} [xx,] ");
    EXPECT_EQ(answers("none", nullptr, {"xx"}), "app: <none> [xx,] ");
    EXPECT_EQ(answers("only", nullptr, {"fr", "de", "../libapp/ja_JP"}),
              "app: <only> [] app: de {1} [] app: de {1} [../libapp/ja_JP,] ");
    EXPECT_EQ(answers("only", L"{0}", {"fr"}), "{0} [] ");
    manager.get()->activateCatalog("ja_JP");
    asked = "";
    defaultLanguage = "fr";
    EXPECT_EQ(answers("who", nullptr, {"", "ja_JP"}), "app: fr {0} [] app: ja_JP {0} [] ");
}

TEST_F(ManagerTest, StoreOfTexts)
{
    EXPECT_STREQ(stored("who", "fr"), L"<who>"); // without a factory
    manager.get()->registerFactory(this);
    EXPECT_STREQ(stored("who", nullptr), L"app: de {0}");
    EXPECT_STREQ(stored("who", "native"), L"app: de {0}");
    manager.get()->setNativeLanguage("fr");
    const wchar_t* const kept = stored("who", "native");
    for (int i = 0; i < 100; ++i)
        stored(("key" + std::to_string(i)).c_str(), "native");
    EXPECT_STREQ(kept, L"app: fr {0}");
    EXPECT_STREQ(stored("who", "ja_JP"), L"app: ja_JP {0}"); // `kept` is not valid any more

    const Formattable arguments[] = {icu::UnicodeString(u"disk"), 97};
    MessagePtr message;
    message.assign(new CCmnIcuMessage("only", arguments, 2, tarnix_eseverity{}, "f", 1));
    SCmnMessageInfo record = *message.get()->serialize();
    manager.get()->setNativeLanguage("ja_JP"); // which is one for records, not for messages
    EXPECT_EQ(manager.get()->getLocalizedMessage(message, "native"), tstr(L"app: de 97"));
    const wchar_t* const text = stored(&record, "native");
    EXPECT_STREQ(stored("only", nullptr), L"app: de {1}"); // under its id
    EXPECT_STREQ(text, L"app: it's disk: 97");             // under the record's text

    const wchar_t* const first = stored("first", "ja_JP");
    wchar_t* second = stored("second", "ja_JP");
    manager.get()->deleteLocalizedMessage(&second); // the first with this text
    EXPECT_STREQ(second, L"app: same");
    const std::vector<tstr> blockers(16, tstr(second)); // one takes the place that became free
    EXPECT_NE(stored("first", "ja_JP"), first);
    auto* const copy = new CCmnMessageCatalogManager(*manager.get());
    copy->release(); // it took over the count of its source
    manager.assign(copy);
    asked = "";
    EXPECT_STREQ(stored("second", "ja_JP"), L"app: same");
    EXPECT_EQ(asked, ""); // the catalogs are shared
}

} // namespace
