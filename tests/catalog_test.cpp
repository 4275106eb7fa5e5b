// Catalogs on bundles that genrb makes here, and the manager that chooses among them.
#include "cmnmsgcatalogmgr.h"
#include "cmnstringtool.h"
#include "scratch.h"

#include <unicode/locid.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

using namespace tarnix_cmn_4_4;
using icu::Formattable;

namespace
{

using Manager =
    CCmnSmartPtr<CCmnMessageCatalogManager, CCmnDefaultAllocator<CCmnMessageCatalogManager>>;
using MessagePtr = CCmnMessageCatalogManager::MessagePtr;

// An install directory with bundles. The names of the directory are new each time, so ICU's cache
// of open bundles has none of them.
class Catalogs : public testing::Test
{
protected:
    Catalogs()
    {
        icu::Locale::setDefault(icu::Locale::getUS(), status);
        scratch.setRegistry(scratch.path(), "");
    }

    // A bundle that has "who" and a table besides its own entries.
    void bundle(const std::string& catalog, const std::string& language,
                const std::string& entries = "") const
    {
        const std::string source = scratch.path(language + ".txt");
        const std::string target = scratch.path("Messages/" + catalog);
        scratch.makeDirectory("Messages/" + catalog);
        scratch.write(language + ".txt", language + " { who { \"" + language +
                                             " {0}\" } table { in { \"x\" } } " + entries + " }");
        ASSERT_EQ(std::system(("genrb -q -d '" + target + "' '" + source + "'").c_str()), 0);
    }

    void cutInHalf(const std::string& name) const
    {
        const std::string whole = scratch.read(name);
        scratch.write(name, whole.substr(0, whole.size() / 2));
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
    bundle("libcut", "root");
    cutInHalf("Messages/libcut/root.res");
    bundle("libhalf", "root");
    bundle("libhalf", "de", "only { \"de\" }");
    cutInHalf("Messages/libhalf/de.res");
    scratch.makeDirectory("Messages/libempty");
    scratch.write("Messages/libempty/root.res", "");

    const int either = -1; // how ICU reports a bundle that is cut is its own affair
    const struct {
        std::wstring name;
        std::string language;
        int result;
        const char* key;
        const wchar_t* text; // null: the key in brackets
    } cases[] = {
        {L"app", "de", 0, "who", L"app: de {0}"},
        {L"app", "de", 0, "wide", L"app: it''s \u3042\U0001F600"},
        {L"app", "de@timezone=Europe/Berlin", 0, "who", L"app: de {0}"},
        {L"app", "root", 0, "who", L"app: root {0}"},
        {L"app", "", 0, "wide", nullptr},
        {L"app", "fr_FR", 0, "who", L"app: root {0}"},
        {L"app", std::string(500, 'x'), 0, "who", L"app: root {0}"},
        {L"app", "de", 0, "none", nullptr},
        {L"app", "de", 0, "", nullptr},
        {L"app", "de", 0, "table", nullptr},
        {L"app", "de_CH", 3, "who", L"app: de {0}"}, // a parent answers
        {L"none", "de", 3, "who", nullptr},
        {L"empty", "de", 3, "who", nullptr},
        {L"cut", "de", either, "who", nullptr},
        {L"half", "de", either, "only", nullptr},
        {L"half", "de", either, "who", L"half: root {0}"},
        {std::wstring(2000, L'n'), "de", 3, "who", nullptr},
        // Names that would lead to a bundle elsewhere.
        {L"app", "../liboutside/de", 3, "who", nullptr},
        {L"app", "sub/de", 3, "who", nullptr},
        {L"app", "..\\liboutside\\de", 3, "who", nullptr},
        {L"app", "de@/../../liboutside/de", 3, "who", nullptr},
        {L"app", "_und_-@/../../liboutside/de=x", 3, "who", nullptr},
    };
    for (const auto& c : cases) {
        const tstr name(c.name.c_str());
        CCmnIcuMessageCatalog catalog(name, c.language.c_str());
        EXPECT_EQ(catalog.getMessage("who", L"default {0}"), tstr(L"default {0}"));
        EXPECT_EQ(catalog.getMessage("k y", nullptr), name + L": <k y>");
        const int result = catalog.init();
        EXPECT_TRUE(c.result == either || result == c.result) << c.language;
        const tstr expected =
            c.text ? c.text : name + L": <" + CCmnStringTool::str2tstr(c.key) + L">";
        EXPECT_EQ(catalog.getMessage(c.key, nullptr), expected) << c.language;
        EXPECT_EQ(catalog.getMessage("none", L"{0}"), tstr(L"{0}")) << c.language;
    }
}

// Tells which catalogs it was asked for.
class Factory : public CCmnMessageCatalogFactory
{
public:
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

    std::string takeAsked() { return std::exchange(asked, {}); }

    tstr name = L"app";
    std::string defaultLanguage = "de";
    std::string asked;
};

class ManagerTest : public Catalogs
{
protected:
    ManagerTest()
    {
        bundle("libapp", "de", "only { \"de {1}\" }");
        bundle("libapp", "fr");
        bundle("libapp", "ja_JP",
               "only { \"it''s {0}: {1}\" } second { \"same\" } first { \"same\" }");
    }

    std::wstring stored(const char* key, const char* language)
    {
        manager.get()->getLocalizedMessage(key, language, &text);
        return text;
    }

    Factory factory;
    Manager manager{true};
    wchar_t* text = nullptr;
};

TEST_F(ManagerTest, WhichCatalogAnswers)
{
    struct LookUp {
        const char* key;
        const wchar_t* defaultText;
        const char* language;
        const wchar_t* text;
        const char* asked;
    };
    const auto check = [this](const std::vector<LookUp>& lookUps) {
        for (const LookUp& l : lookUps) {
            EXPECT_STREQ(manager.get()->getMessage(l.key, l.defaultText, l.language).c_str(),
                         l.text)
                << l.language;
            EXPECT_EQ(factory.takeAsked(), l.asked) << l.language;
        }
    };
    check({{"who", L"{0}", "de", L"{0}", ""}, {"who", nullptr, "", L"<who>", ""}});
    manager.get()->activateCatalog("de");
    EXPECT_EQ(factory.takeAsked(), "");

    factory.name = L"none";
    manager.get()->registerFactory(&factory);
    EXPECT_EQ(factory.takeAsked(), "de,");
    check({{"who", nullptr, "fr", L"<who>", "fr,"}, // its default language is not tried again
           {"who", L"", "fr", L"", "fr,"},
           {"who", nullptr, "", L"<who>", "de,"}});
    factory.name = L"app";
    check({{"who", nullptr, "fr", L"app: fr {0}", "fr,"},
           {"who", L"{0}", "xx", L"{0}", "xx,"}, // the default language has not become active
           {"who", nullptr, "", L"app: de {0}", "de,"},
           {"who", nullptr, "xx", L"app: de {0}", "xx,"},
           {"none", nullptr, "xx", L"app: <none>", "xx,"},
           {"none", L"{0}", "xx", L"{0}", "xx,"},
           {"only", nullptr, "fr", L"app: <only>", ""},
           {"only", L"{0}", "fr", L"{0}", ""},
           {"only", nullptr, "de", L"app: de {1}", ""},
           {"only", nullptr, "../libapp/ja_JP", L"app: de {1}", "../libapp/ja_JP,"},
           {"only", nullptr, "ja_JP", L"app: it''s {0}: {1}", "ja_JP,"}});
    manager.get()->activateCatalog("xx");
    manager.get()->activateCatalog("fr");
    EXPECT_EQ(factory.takeAsked(), "xx,");
    factory.defaultLanguage = "fr";
    check(
        {{"who", nullptr, "", L"app: fr {0}", ""}, {"who", nullptr, "xx", L"app: fr {0}", "xx,"}});
}

TEST_F(ManagerTest, StoreOfTexts)
{
    EXPECT_EQ(stored("who", "fr"), L"<who>"); // without a factory
    manager.get()->registerFactory(&factory);
    EXPECT_EQ(stored("who", nullptr), L"app: de {0}");
    EXPECT_EQ(stored("who", "native"), L"app: de {0}");
    manager.get()->setNativeLanguage("fr");
    EXPECT_EQ(stored("who", manager.get()->getNativeLanguage()), L"app: fr {0}");
    const wchar_t* const kept = text;
    for (int i = 0; i < 100; ++i)
        stored(("key" + std::to_string(i)).c_str(), "native");
    EXPECT_STREQ(kept, L"app: fr {0}");
    EXPECT_EQ(stored("who", "ja_JP"), L"app: ja_JP {0}"); // `kept` is not valid any more
}

TEST_F(ManagerTest, DeleteGoesByContentInOneStore)
{
    manager.get()->registerFactory(&factory);
    manager.get()->setNativeLanguage("ja_JP");
    wchar_t same[] = L"app: same";
    wchar_t* pointer = same;
    EXPECT_EQ(stored("first", "native"), same);
    const wchar_t* const first = text;
    auto* const copied = new CCmnMessageCatalogManager(*manager.get());
    EXPECT_EQ(copied->release(), 0); // it took over the count of its source
    Manager copy;
    copy.assign(copied);
    EXPECT_EQ(stored("second", "ja_JP"), same);
    wchar_t* const second = text;
    manager.get()->deleteLocalizedMessage(&pointer); // that of "first", before "second"
    EXPECT_EQ(pointer, same);
    EXPECT_STREQ(second, same);
    const std::vector<tstr> blockers(16, tstr(same)); // one takes the place that became free
    EXPECT_EQ(stored("first", "ja_JP"), same);
    EXPECT_NE(text, first);
    EXPECT_EQ(stored("second", "ja_JP"), same);
    EXPECT_EQ(text, second);
    manager.get()->deleteLocalizedMessage(&text);
    manager.get()->deleteLocalizedMessage(&pointer);
    manager.get()->deleteLocalizedMessage(&pointer); // there is none
    manager.release();

    factory.takeAsked();
    copy.get()->getLocalizedMessage("second", "native", &text);
    copy.get()->deleteLocalizedMessage(&pointer); // its own "first"
    EXPECT_STREQ(text, same);
    EXPECT_EQ(factory.takeAsked(), ""); // the catalogs are shared
}

TEST_F(ManagerTest, MessagesAndRecords)
{
    const std::tuple<const char*, const wchar_t*, const wchar_t*> cases[] = {
        {"ja_JP", L"app: it's disk: 97", L"app: it's disk: 97"},
        {"fr", L"app: <only>", L"app: <only>"},
        {"", L"app: de 97", L"app: de 97"},
        {"native", L"app: de 97", L"app: it's disk: 97"},
    };
    const Formattable arguments[] = {icu::UnicodeString(u"disk"), 97};
    MessagePtr message;
    message.assign(new CCmnIcuMessage("only", arguments, 2, tarnix_eseverity{}, "f", 1));
    SCmnMessageInfo record = *message.get()->serialize();
    manager.get()->registerFactory(&factory);
    manager.get()->setNativeLanguage("ja_JP");
    for (const auto& [language, byMessage, byRecord] : cases) {
        EXPECT_STREQ(manager.get()->getLocalizedMessage(message, language).c_str(), byMessage);
        manager.get()->getLocalizedMessage(&record, language, &text);
        EXPECT_STREQ(text, byRecord);
    }
    EXPECT_EQ(factory.takeAsked(), "de,ja_JP,fr,native,");
    EXPECT_EQ(message.get()->getRefCount(), 1);
    const wchar_t* const kept = text;
    EXPECT_EQ(stored("only", nullptr), L"app: de {1}"); // under its id
    EXPECT_STREQ(kept, L"app: it's disk: 97");          // under the record's text
    SCmnMessageInfo empty{"", 0};
    manager.get()->getLocalizedMessage(&empty, nullptr, &text);
    EXPECT_STREQ(text, L"app: <>");
}

} // namespace
