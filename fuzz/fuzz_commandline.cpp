// SPDX-License-Identifier: LicenseRef-Tarnix
// Fuzzer of the command-line parser. The input is two command lines, separated by a zero.
#include "cmnstringtool.h"
#include "commandline.h"
#include "fuzzinput.h"

using Tool = tarnix_cmn_4_4::CCmnStringTool;
using Words = std::vector<std::string>;

static bool split(const std::string& text, Words& words)
{
    return tarnix_platform::splitCommandLine(terminated(text).data(), words);
}

// The word as the library quotes it, and then one word that contains it twice: in double quotes and
// with backslashes. A newline after a backslash is dropped.
static std::string quoted(const std::string& word)
{
    std::string text = Tool::quote(word) + " \"\\\n", escaped;
    for (const char c : word) {
        text += std::string("$`\"\\").find(c) != std::string::npos ? "\\" : "";
        text += c;
        escaped += c == '\n' ? "'\n'" : std::string("\\") + c;
    }
    return text + "\"" + escaped;
}

void fuzz(FuzzInput input)
{
    const std::string first = input.until('\0'), second = input.until('\0');
    Words words, wanted, more, again;
    if (!split(first, words)) {
        require(split(first + "'", words) || split(first + "\n\"", words), "an open quote");
        return;
    }
    require(first.find_first_of("'\"\\") != std::string::npos ||
                words == Tool::tokenize(first, " \t\n"),
            "words without quotes are tokens");
    std::string line;
    for (const std::string& word : words) {
        line += quoted(word) + " ";
        wanted.insert(wanted.end(), {word, word + word});
    }
    require(split(line, again) && again == wanted, "quoted words are parsed back");
    const bool good = split(second, more);
    words.insert(words.end(), more.begin(), more.end());
    // The backslash and the newline are dropped; after a backslash at the end of the first line,
    // that one quotes the other.
    require(split(first + "\\\n " + second, again) == good && (!good || again == words),
            "joined lines have the words of both");
}
