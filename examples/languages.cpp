// SPDX-License-Identifier: LicenseRef-Tarnix
// A server that speaks several languages at once: each line of standard input is a request for the
// outcome of a command, in the languages of its reader. Several threads answer; each has a manager
// and a factory of its own, because these belong to one thread.
#include "catalogfactory.h"
#include "cmnsystemfiles.h"

#include <algorithm>
#include <clocale>
#include <cstddef>
#include <cstring>
#include <iostream>
#include <string>
#include <thread>
#include <vector>

using namespace tarnix_cmn_4_4;

namespace
{

constexpr char kUsage[] =
    "usage: languages [--registry FILE]\n"
    "  --registry FILE  take the install directory from FILE\n"
    "Each line of the standard input is a request: LANGUAGE,... COMMAND LINES STATUS\n"
    "  such as: de_AT,fr make 1500 0\n"
    "Each line of the output is its answer, after the language that it is in.\n";

using Manager =
    CCmnSmartPtr<CCmnMessageCatalogManager, CCmnDefaultAllocator<CCmnMessageCatalogManager>>;

// A client may send any number of languages, and each one costs a lookup.
std::vector<std::string> readLanguages(const std::string& list)
{
    constexpr std::size_t mostLanguages = 8;
    std::vector<std::string> languages = CCmnStringTool::tokenize(list, ",");
    languages.resize(std::min(languages.size(), mostLanguages));
    return languages;
}

std::string answer(Manager& manager, const std::string& request)
{
    const std::vector<std::string> words = CCmnStringTool::tokenize(request, " ");
    if (words.size() != 4) {
        return "not a request: " + request;
    }
    const icu::Formattable arguments[] = {
        icu::Formattable(CCmnStringTool::str2ustr(words[1])),
        icu::Formattable(CCmnStringTool::str2int(words[2])),
        icu::Formattable(CCmnStringTool::str2ustr(words[3])),
    };
    CCmnIcuMessage message("TARNIX_COMMAND_EXITED", arguments, 3, tarnix_eseverity{}, __FILE__,
                           __LINE__);
    const SCmnLocalizedText found =
        manager.get()->findLocalizedMessage(message, readLanguages(words[0]));
    // UTF-8 whatever the locale is, as a protocol would have it.
    return found.language + ": " + CCmnStringTool::ustr2str(CCmnStringTool::tstr2ustr(found.text));
}

// Answers every step-th request from the first one on.
void serve(const std::vector<std::string>& requests, std::size_t first, std::size_t step,
           std::vector<std::string>& answers)
{
    CatalogFactory factory("runcmd"); // outlives the manager
    Manager manager(true);
    manager.get()->registerFactory(&factory);
    for (std::size_t i = first; i < requests.size(); i += step) {
        answers[i] = answer(manager, requests[i]);
    }
}

} // namespace

int main(int argc, char** argv)
{
    std::setlocale(LC_CTYPE, "");
    if (argc == 3 && std::strcmp(argv[1], "--registry") == 0) {
        setRegistryFile(argv[2]);
    } else if (argc != 1) {
        std::cerr << kUsage;
        return 2;
    }
    std::vector<std::string> requests;
    for (std::string line; std::getline(std::cin, line);) {
        requests.push_back(line);
    }
    constexpr std::size_t threadCount = 3;
    std::vector<std::string> answers(requests.size());
    std::vector<std::thread> threads;
    for (std::size_t i = 0; i < threadCount; ++i) {
        threads.emplace_back([&, i] { serve(requests, i, threadCount, answers); });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    for (const std::string& text : answers) {
        std::cout << text << '\n';
    }
    return std::cout ? 0 : 1;
}
