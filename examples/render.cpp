// Reads serialised messages from standard input and prints each in a language.
#include "catalogfactory.h"
#include "cmnsystemfiles.h"

#include <algorithm>
#include <clocale>
#include <cstring>
#include <iostream>
#include <iterator>
#include <string>

using namespace tarnix_cmn_4_4;

namespace
{

constexpr char kUsage[] =
    "usage: render [--lang L] [--catalog NAME] [--registry FILE]\n"
    "  --lang L         language of the reader, as ICU names it (default: root)\n"
    "  --catalog NAME   the catalog to look in (default: runcmd)\n"
    "  --registry FILE  take the install directory from FILE\n";

struct Options {
    std::string language = "root";
    std::string catalog = "runcmd";
};

bool readOptions(int argc, char** argv, Options& options)
{
    for (int at = 1; at < argc; at += 2) {
        const std::string name = argv[at];
        if (at + 1 == argc) {
            return false;
        }
        if (name == "--lang") {
            options.language = argv[at + 1];
        } else if (name == "--catalog") {
            options.catalog = argv[at + 1];
        } else if (name == "--registry") {
            setRegistryFile(argv[at + 1]);
        } else {
            return false;
        }
    }
    return true;
}

// Returns the next serialised text from `at` on, and moves `at` past its end. A text ends at its
// trailer; if that is missing, at the next header or at the end of the input. Empty if there is
// none.
std::string nextText(const std::string& input, std::size_t& at)
{
    static const std::string header = "<SERIALIZED_MESSAGE";
    static const std::string trailer = "</SERIALIZED_MESSAGE>\n";
    const std::size_t begin = input.find(header, at);
    if (begin == std::string::npos) {
        return {};
    }
    at = std::min(input.find(header, begin + header.size()), input.size());
    std::string text = input.substr(begin, at - begin); // a trailer after it is of another text
    const std::size_t end = text.find(trailer);
    if (end != std::string::npos) {
        text.resize(end + trailer.size());
    }
    return text;
}

} // namespace

int main(int argc, char** argv)
{
    std::setlocale(LC_CTYPE, "");
    Options options;
    if (!readOptions(argc, argv, options)) {
        std::cerr << kUsage;
        return 2;
    }
    setLanguage(options.language);
    CatalogFactory factory(options.catalog);
    CCmnSmartPtr<CCmnMessageCatalogManager, CCmnDefaultAllocator<CCmnMessageCatalogManager>>
        manager(true);
    manager.get()->registerFactory(&factory);

    const std::string input{std::istreambuf_iterator<char>(std::cin), {}};
    std::size_t at = 0;
    for (std::string text = nextText(input, at); !text.empty(); text = nextText(input, at)) {
        SCmnMessageInfo info;
        info.text = text.c_str();
        info.length = static_cast<std::uint32_t>(text.size());
        wchar_t* localized = nullptr;
        manager.get()->getLocalizedMessage(&info, options.language.c_str(), &localized);
        std::cout << shown(tstr(localized)) << '\n';
        manager.get()->deleteLocalizedMessage(&localized);
    }
    return std::cout ? 0 : 1;
}
