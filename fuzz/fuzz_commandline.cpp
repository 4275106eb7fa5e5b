// Fuzzer of the command-line splitter. The input is two command texts, with a zero between them.
#include "cmnstringtool.h"
#include "commandline.h"
#include "fuzzinput.h"

#include <cstring>

using Tool = tarnix_cmn_4_4::CCmnStringTool;
using Words = std::vector<std::string>;

namespace
{

bool split(const std::string& text, Words& words)
{
    return tarnix_platform::splitCommandLine(terminated(text).data(), words);
}

// The word in single quotes, in double quotes and by backslashes.
std::string quoted(const std::string& word)
{
    std::string text = "'" + Tool::searchreplace(word, "'", "'\\''") + "'\"", escaped;
    for (const char c : word) {
        text += std::strchr("$`\"\\", c) ? std::string("\\") + c : std::string(1, c);
        escaped += c == '\n' ? "'\n'" : std::string("\\") + c;
    }
    return text + "\"" + escaped;
}

void check(const std::string& text, const Words& words)
{
    std::size_t bytes = 0;
    std::string line;
    Words wanted, again;
    for (const std::string& word : words) {
        bytes += word.size();
        line += quoted(word) + " ";
        wanted.push_back(word + word + word);
    }
    require(bytes <= text.size() && words.size() <= text.size() / 2 + 1, "no more than there was");
    require(text.find_first_of("'\"\\") != std::string::npos ||
                words == Tool::tokenize(text, " \t\n"),
            "plain words");
    require(split(line, again) && again == wanted, "quoted words come back");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    FuzzInput input(data, size);
    const std::string first = input.until('\0'), second = input.until('\0');
    Words words, more, both;
    if (!split(first, words)) {
        require(split(first + "'", words) || split(first + "\"", words) ||
                    split(first + "\"\"", words), // behind a backslash
                "only a quote was missing");
        return 0;
    }
    check(first, words);
    if (!first.empty() && first.back() == '\\') // it would quote the blank
        return 0;
    const bool good = split(second, more);
    words.insert(words.end(), more.begin(), more.end());
    require(split(first + " " + second, both) == good && (!good || both == words),
            "the words of texts one behind the other");
    return 0;
}
