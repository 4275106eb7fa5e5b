// SPDX-License-Identifier: LicenseRef-Tarnix
#include "descendingsource.h"

#include <algorithm>
#include <string_view>
#include <vector>

namespace catalogcheck
{
namespace
{

using View = std::string_view;

struct Entry {
    View key;
    View text; // with the key
};

// The tokens of a source, as genrb has them.
class Scanner
{
public:
    explicit Scanner(View text) : m_Text(text) {}

    View since(std::size_t begin) const { return m_Text.substr(begin, m_At - begin); }
    std::size_t at() const { return m_At; }
    bool atEnd() const { return m_At >= m_Text.size(); }

    // The next byte after white space and comments, which stays; NUL at the end.
    char peek()
    {
        for (;;) {
            m_At = std::min(m_Text.find_first_not_of(" \t\r\n", m_At), m_Text.size());
            const View two = m_Text.substr(m_At, 2);
            if (two == "//") {
                m_At = std::min(m_Text.find('\n', m_At), m_Text.size());
            } else if (two == "/*") {
                m_At = std::min(m_Text.find("*/", m_At + 2), m_Text.size() - 2) + 2;
            } else {
                return two.empty() ? '\0' : two.front();
            }
        }
    }

    // Moves past a quoted text or one byte.
    void skip()
    {
        if (atEnd()) {
            return;
        }
        const bool quote = m_Text[m_At] == '"';
        ++m_At;
        while (quote && !atEnd() && m_Text[m_At] != '"') {
            m_At += m_Text[m_At] == '\\' ? 2 : 1;
        }
        m_At = std::min(m_At + (quote ? 1 : 0), m_Text.size());
    }

    // Moves up to the next brace.
    void toBrace()
    {
        for (char next = peek(); next != '{' && next != '}' && next != '\0'; next = peek()) {
            skip();
        }
    }

    // Moves past the braces that open here, and what they contain.
    void skipBraces()
    {
        std::size_t depth = 0;
        do {
            toBrace();
            depth += peek() == '{' ? 1 : 0;
            depth -= peek() == '}' ? 1 : 0;
            skip();
        } while (depth > 0 && !atEnd());
    }

private:
    View m_Text;
    std::size_t m_At = 0;
};

} // namespace

std::string descendingSource(const std::string& text)
{
    Scanner scanner(text);
    scanner.toBrace();
    const View head = scanner.since(0);
    std::vector<Entry> entries;
    if (scanner.peek() != '{') {
        return {};
    }
    scanner.skip();
    while (scanner.peek() != '}') {
        const std::size_t begin = scanner.at();
        scanner.toBrace();
        if (scanner.peek() != '{') {
            return {};
        }
        const View key = scanner.since(begin);
        scanner.skipBraces();
        entries.push_back({key, scanner.since(begin)});
    }
    scanner.skip();
    if (scanner.peek() != '\0') {
        return {};
    }
    std::stable_sort(entries.begin(), entries.end(), [](const Entry& first, const Entry& second) {
        return first.key > second.key;
    });
    std::string result(head);
    result += "{\n";
    for (const Entry& entry : entries) {
        result.append(entry.text).append(1, '\n');
    }
    return result + "}\n";
}

} // namespace catalogcheck
