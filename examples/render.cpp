// SPDX-License-Identifier: LicenseRef-Tarnix
// Reads serialised messages from standard input and prints each in the first of the given
// languages that has it.
#include "catalogfactory.h"
#include "cmnsystemfiles.h"

#include <algorithm>
#include <clocale>
#include <cstring>
#include <iostream>
#include <iterator>
#include <string>
#include <vector>

using namespace tarnix_cmn_4_4;

namespace
{

constexpr char kUsage[] =
    "usage: render [--lang L] [--catalog NAME] [--registry FILE]\n"
    "  --lang L,...     languages of the reader, the best one first (default: root)\n"
    "  --catalog NAME   the catalog to look in (default: runcmd)\n"
    "  --registry FILE  take the install directory from FILE\n";

struct Options {
    std::vector<std::string> languages = {"root"};
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
            options.languages = CCmnStringTool::tokenize(argv[at + 1], ",");
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
    CatalogFactory factory(options.catalog);
    CCmnSmartPtr<CCmnMessageCatalogManager, CCmnDefaultAllocator<CCmnMessageCatalogManager>>
        manager(true);
    manager.get()->registerFactory(&factory);

    const std::string input{std::istreambuf_iterator<char>(std::cin), {}};
    std::size_t at = 0;
    for (std::string text = nextText(input, at); !text.empty(); text = nextText(input, at)) {
        const SCmnMessageInfo info{text.c_str(), static_cast<std::uint32_t>(text.size())};
        CCmnIcuMessage message(&info);
        std::cout << shown(manager.get()->findLocalizedMessage(message, options.languages).text)
                  << '\n';
    }
    return std::cout ? 0 : 1;
}
