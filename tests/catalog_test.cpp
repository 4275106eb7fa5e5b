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

// An install directory with bundles. The names of the directory are new each time, so ICU's cache
// of open bundles has none of them.
struct Catalogs : testing::Test {
    Catalogs()
    {
        icu::Locale::setDefault(icu::Locale::getUS(), status);
        scratch.setRegistry(scratch.path(), "");
    }
    // The first percents of a bundle that has "who" and a table besides its own entries.
    void bundle(const std::string& catalog, const std::string& language,
                const std::string& entries = "", std::size_t percents = 100) const
    {
        const std::string target = "Messages/" + catalog, source = language + ".txt",
                          compiled = target + "/" + language + ".res";
        scratch.makeDirectory(target);
        scratch.write(source, language + " { who { \"" + language +
                                  " {0}\" } table { in { \"x\" } } " + entries + " }");
        const std::string command = "cd '" + scratch.path() + "' && genrb -q -d ";
        ASSERT_EQ(std::system((command + target + " " + source).c_str()), 0);
        const std::string whole = scratch.read(compiled);
        scratch.write(compiled, whole.substr(0, whole.size() * percents / 100));
    }

    UErrorCode status = U_ZERO_ERROR;
    Scratch scratch;
};

TEST_F(Catalogs, InitAndLookUp)
{
    EXPECT_EQ(CCmnIcuMessageCatalog(L"other", "de").init(), 3);
    EXPECT_TRUE(std::filesystem::is_directory(scratch.path("Messages"))); // made by init
    bundle("libapp", "root");
    bundle("libapp", "de", "wide { \"it''s \\u3042\\U0001F600\" }");
    bundle("liboutside", "de");
    bundle("libapp/sub", "de");
    bundle("libcut", "root", "", 50);
    bundle("libhalf", "root");
    bundle("libhalf", "de", "only { \"de\" }", 50);
    bundle("libempty", "root", "", 0);
    const int either = -1; // how ICU reports a bundle that is cut is its own affair
    const std::tuple<std::wstring, std::string, int, const char*, const wchar_t*> cases[] = {
        {L"app", "de", 0, "who", L"app: de {0}"},
        {L"app", "de", 0, "wide", L"app: it''s \u3042\U0001F600"},
        {L"app", "de@timezone=Europe/Berlin", 0, "who", L"app: de {0}"},
        {L"app", "root", 0, "who", L"app: root {0}"},
        {L"app", "", 0, "wide", L"app: <wide>"},
        {L"app", "fr_FR", 0, "who", L"app: root {0}"},
        {L"app", std::string(500, 'x'), 0, "who", L"app: root {0}"},
        {L"app", "de", 0, "none", L"app: <none>"},
        {L"app", "de", 0, "", L"app: <>"},
        {L"app", "de", 0, "table", L"app: <table>"},
        {L"app", "de_CH", 3, "who", L"app: de {0}"}, // a parent answers
        {L"none", "de", 3, "who", L"none: <who>"},
        {L"empty", "de", 3, "who", L"empty: <who>"},
        {L"cut", "de", either, "who", L"cut: <who>"},
        {L"half", "de", either, "only", L"half: <only>"},
        {L"half", "de", either, "who", L"half: root {0}"}};
    for (const auto& [name, language, expected, key, text] : cases) {
        CCmnIcuMessageCatalog catalog(name.c_str(), language.c_str());
        EXPECT_EQ(catalog.getMessage("k y", nullptr), tstr((name + L": <k y>").c_str()));
        const int result = catalog.init();
        EXPECT_TRUE(expected == either || result == expected) << language;
        EXPECT_STREQ(catalog.getMessage(key, nullptr).c_str(), text) << language;
        EXPECT_EQ(catalog.getMessage("none", L"{0}"), tstr(L"{0}")) << language;
    }
    // Names that would lead to a bundle elsewhere.
    for (const char* language : {"../liboutside/de", "sub/de", "..\\liboutside\\de",
                                 "de@/../../liboutside/de", "_und_-@/../../liboutside/de=x"}) {
        CCmnIcuMessageCatalog catalog(L"app", language);
        EXPECT_EQ(catalog.init(), 3) << language;
        EXPECT_EQ(catalog.getMessage("who", nullptr), tstr(L"app: <who>")) << language;
    }
    EXPECT_EQ(CCmnIcuMessageCatalog(std::wstring(2000, L'n').c_str(), "de").init(), 3);
}

TEST_F(Catalogs, WithoutAnInstallDirectory)
{
    bundle("libhere", "root");
    scratch.setRegistry("", "");
    const auto former = std::filesystem::current_path();
    std::filesystem::current_path(scratch.path());
    CCmnIcuMessageCatalog catalog(L"here", "root");
    EXPECT_EQ(catalog.init(), 0);
    EXPECT_STREQ(catalog.getMessage("who", nullptr).c_str(), L"here: root {0}");
    std::filesystem::current_path(former);
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
    std::wstring stored(const char* key, const char* language)
    {
        manager.get()->getLocalizedMessage(key, language, &text);
        return text;
    }

    tstr name = L"app";
    std::string defaultLanguage = "de", asked;
    Manager manager{true};
    wchar_t* text = nullptr;
};

TEST_F(ManagerTest, WhichCatalogAnswers)
{
    manager.get()->activateCatalog("de");
    EXPECT_EQ(answers("who", nullptr, {"de", ""}), "<who> [] <who> [] ");
    EXPECT_EQ(answers("who", L"{0}", {"de"}), "{0} [] ");
    name = L"none";
    manager.get()->registerFactory(this);
    EXPECT_EQ(asked, "de,");
    asked = ""; // its default language is not tried again
    EXPECT_EQ(answers("who", nullptr, {"fr", ""}), "<who> [fr,] <who> [de,] ");
    EXPECT_EQ(answers("who", L"", {"fr"}), " [fr,] ");
    name = L"app";
    // The default language has not become active before "".
    EXPECT_EQ(answers("who", nullptr, {"fr"}), "app: fr {0} [fr,] ");
    EXPECT_EQ(answers("who", L"{0}", {"xx"}), "{0} [xx,] ");
    EXPECT_EQ(answers("who", nullptr, {"", "xx"}), "app: de {0} [de,] app: de {0} [xx,] ");
    EXPECT_EQ(answers("none", nullptr, {"xx"}), "app: <none> [xx,] ");
    EXPECT_EQ(answers("none", L"{0}", {"xx"}), "{0} [xx,] ");
    EXPECT_EQ(answers("only", nullptr, {"fr", "de", "../libapp/ja_JP", "ja_JP"}),
              "app: <only> [] app: de {1} [] app: de {1} [../libapp/ja_JP,] "
              "app: it''s {0}: {1} [ja_JP,] ");
    EXPECT_EQ(answers("only", L"{0}", {"fr"}), "{0} [] ");
    manager.get()->activateCatalog("xx");
    manager.get()->activateCatalog("fr");
    defaultLanguage = "fr";
    EXPECT_EQ(answers("who", nullptr, {"", "xx"}), "app: fr {0} [xx,] app: fr {0} [xx,] ");
}

TEST_F(ManagerTest, StoreOfTexts)
{
    EXPECT_EQ(stored("who", "fr"), L"<who>"); // without a factory
    manager.get()->registerFactory(this);
    EXPECT_EQ(stored("who", nullptr), L"app: de {0}");
    EXPECT_EQ(stored("who", "native"), L"app: de {0}");
    manager.get()->setNativeLanguage("fr");
    EXPECT_EQ(stored("who", manager.get()->getNativeLanguage()), L"app: fr {0}");
    const wchar_t* const kept = text;
    for (int i = 0; i < 100; ++i)
        stored(("key" + std::to_string(i)).c_str(), "native");
    EXPECT_STREQ(kept, L"app: fr {0}");
    EXPECT_EQ(stored("who", "ja_JP"), L"app: ja_JP {0}"); // `kept` is not valid any more

    wchar_t same[] = L"app: same";
    wchar_t* pointer = same;
    stored("first", "ja_JP");
    const wchar_t* const first = text;
    auto* const copied = new CCmnMessageCatalogManager(*manager.get());
    EXPECT_EQ(copied->release(), 0); // it took over the count of its source
    Manager copy;
    copy.assign(copied);
    stored("second", "ja_JP");
    wchar_t* const second = text;
    manager.get()->deleteLocalizedMessage(&pointer); // that of "first", before "second"
    EXPECT_EQ(pointer, same);
    EXPECT_STREQ(second, same);
    const std::vector<tstr> blockers(16, tstr(same)); // one takes the place that became free
    stored("first", "ja_JP");
    EXPECT_NE(text, first);
    stored("second", "ja_JP");
    EXPECT_EQ(text, second);
    for (int i = 0; i < 3; ++i) // the last time there is none
        manager.get()->deleteLocalizedMessage(&pointer);
    manager.release();

    asked = "";
    copy.get()->getLocalizedMessage("second", "ja_JP", &text);
    copy.get()->deleteLocalizedMessage(&pointer); // its own "first"
    EXPECT_STREQ(text, same);
    EXPECT_EQ(asked, ""); // the catalogs are shared
}

TEST_F(ManagerTest, MessagesAndRecords)
{
    const std::tuple<const char*, const wchar_t*, const wchar_t*> cases[] = {
        {"ja_JP", L"app: it's disk: 97", L"app: it's disk: 97"},
        {"fr", L"app: <only>", L"app: <only>"},
        {"", L"app: de 97", L"app: de 97"},
        {"native", L"app: de 97", L"app: it's disk: 97"}};
    const Formattable arguments[] = {icu::UnicodeString(u"disk"), 97};
    MessagePtr message;
    message.assign(new CCmnIcuMessage("only", arguments, 2, tarnix_eseverity{}, "f", 1));
    SCmnMessageInfo record = *message.get()->serialize();
    manager.get()->registerFactory(this);
    manager.get()->setNativeLanguage("ja_JP");
    for (const auto& [language, byMessage, byRecord] : cases) {
        EXPECT_STREQ(manager.get()->getLocalizedMessage(message, language).c_str(), byMessage);
        manager.get()->getLocalizedMessage(&record, language, &text);
        EXPECT_STREQ(text, byRecord);
    }
    EXPECT_EQ(asked, "de,ja_JP,fr,native,");
    const wchar_t* const kept = text;
    EXPECT_EQ(stored("only", nullptr), L"app: de {1}"); // under its id
    EXPECT_STREQ(kept, L"app: it's disk: 97");          // under the record's text
}

} // namespace
