// SPDX-License-Identifier: LicenseRef-Tarnix
// The shell's quoting rules, without the shell.
#include "commandline.h"

#include <cstring>

namespace tarnix_platform
{

namespace
{

bool isBlank(char c)
{
    return c == ' ' || c == '\t' || c == '\n';
}

// `at` points past the opening quote. Returns the position past the closing one; null if there is
// none.
const char* singleQuoted(const char* at, std::string& word)
{
    const char* close = std::strchr(at, '\'');
    if (close == nullptr) {
        return nullptr;
    }
    word.append(at, close);
    return close + 1;
}

// `at` points past a backslash. A backslash at the end of the text stands for itself.
const char* escaped(const char* at, std::string& word)
{
    if (*at == '\0') {
        word.push_back('\\');
        return at;
    }
    if (*at != '\n') {
        word.push_back(*at);
    }
    return at + 1;
}

const char* doubleQuoted(const char* at, std::string& word)
{
    for (; *at != '"'; ++at) {
        if (*at == '\0') {
            return nullptr;
        }
        // The end of the text is found too: the quote is then unterminated in any case.
        if (*at == '\\' && std::strchr("$`\"\\\n", at[1]) != nullptr) {
            at = escaped(at + 1, word) - 1;
        } else {
            word.push_back(*at);
        }
    }
    return at + 1;
}

} // namespace

bool splitCommandLine(const char* text, std::vector<std::string>& words)
{
    words.clear();
    const char* at = text;
    for (;;) {
        while (isBlank(*at)) {
            ++at;
        }
        if (*at == '\0') {
            return true;
        }
        std::string word;
        bool hasQuotes = false; // "" is a word, an escaped newline is none
        while (at != nullptr && *at != '\0' && !isBlank(*at)) {
            const char c = *at++;
            switch (c) {
            case '\'':
                hasQuotes = true;
                at = singleQuoted(at, word);
                break;
            case '"':
                hasQuotes = true;
                at = doubleQuoted(at, word);
                break;
            case '\\':
                at = escaped(at, word);
                break;
            default:
                word.push_back(c);
            }
        }
        if (at == nullptr) {
            return false;
        }
        if (hasQuotes || !word.empty()) {
            words.push_back(std::move(word));
        }
    }
}

} // namespace tarnix_platform
