// Stands in for libFuzzer in ordinary builds: tries the seeds of a fuzzer, and then a number of
// random changes of them, the same in each run. What the fuzzers demand is thus tested with every
// change; new ground is for libFuzzer, which sees what an input reaches.
//
//   fuzz_NAME COUNT SEEDS [DICTIONARY]
#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <random>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace
{

std::string readFile(const std::filesystem::path& path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

// What a word of a dictionary stands for: \x0a is a byte, any other \ only quotes.
std::string unquoted(const std::string& word)
{
    std::string text;
    for (std::size_t i = 0; i < word.size(); ++i) {
        if (word[i] == '\\' && i + 1 < word.size() && word[++i] == 'x') {
            text += static_cast<char>(std::stoi(word.substr(i + 1, 2), nullptr, 16));
            i += 2;
        } else {
            text += word[i];
        }
    }
    return text;
}

std::vector<std::string> readWords(const char* path)
{
    std::vector<std::string> words;
    std::ifstream file(path);
    for (std::string line; std::getline(file, line);) {
        const std::size_t start = line.find('"'), end = line.rfind('"');
        if (start < end)
            words.push_back(unquoted(line.substr(start + 1, end - start - 1)));
    }
    return words;
}

class Changer
{
public:
    Changer(std::vector<std::string> seeds, std::vector<std::string> words)
        : m_Seeds(std::move(seeds)), m_Words(std::move(words))
    {
    }

    std::string next()
    {
        std::string text = anyOf(m_Seeds);
        for (std::size_t changes = 1 + below(4); changes > 0; --changes) {
            const std::size_t place = below(text.size() + 1);
            const std::size_t length = below(std::min<std::size_t>(text.size() - place, 8) + 1);
            const std::string byte(1, static_cast<char>(below(256)));
            switch (below(5)) {
            case 0:
                text.replace(place, std::min<std::size_t>(length, 1), byte);
                break;
            case 1:
                text.erase(place, length);
                break;
            case 2:
                text.insert(place, text.substr(place, length));
                break;
            case 3:
                text.insert(place, m_Words.empty() ? byte : anyOf(m_Words));
                break;
            default:
                const std::string& other = anyOf(m_Seeds);
                text.replace(place, std::string::npos, other, below(other.size() + 1));
            }
        }
        return text;
    }

private:
    std::size_t below(std::size_t limit) { return m_Random() % limit; }
    const std::string& anyOf(const std::vector<std::string>& texts)
    {
        return texts[below(texts.size())];
    }

    std::vector<std::string> m_Seeds, m_Words;
    std::mt19937 m_Random;
};

void tryInput(const std::string& text)
{
    LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(text.data()), text.size());
}

} // namespace

int main(int argc, char** argv)
{
    std::vector<std::filesystem::path> paths;
    std::vector<std::string> seeds;
    if (argc > 2)
        paths.assign(std::filesystem::directory_iterator(argv[2]), {});
    std::sort(paths.begin(), paths.end());
    std::transform(paths.begin(), paths.end(), std::back_inserter(seeds), readFile);
    const std::vector<std::string> words =
        argc > 3 ? readWords(argv[3]) : std::vector<std::string>{};
    if (seeds.empty() || (argc > 3 && words.empty())) {
        std::cerr << "usage: " << argv[0] << " COUNT SEEDS [DICTIONARY]\n";
        return 2;
    }
    std::for_each(seeds.begin(), seeds.end(), tryInput);
    Changer changer(seeds, words);
    for (long count = std::stol(argv[1]); count > 0; --count)
        tryInput(changer.next());
}
