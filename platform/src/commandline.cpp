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

// `at` stands behind the opening quote. Returns the place behind the closing one, or null.
const char* singleQuoted(const char* at, std::string& word)
{
    const char* close = std::strchr(at, '\'');
    if (close == nullptr) {
        return nullptr;
    }
    word.append(at, close);
    return close + 1;
}

// `at` stands behind a backslash. A backslash at the end of the text stands for itself.
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
        if (*at == '\\' && at[1] != '\0' && std::strchr("$`\"\\\n", at[1]) != nullptr) {
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
        bool any = false; // a quoted line end alone is no word
        while (at != nullptr && *at != '\0' && !isBlank(*at)) {
            const char c = *at++;
            switch (c) {
            case '\'':
                any = true;
                at = singleQuoted(at, word);
                break;
            case '"':
                any = true;
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
        if (any || !word.empty()) {
            words.push_back(std::move(word));
        }
    }
}

} // namespace tarnix_platform
