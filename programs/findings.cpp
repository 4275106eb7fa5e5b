// SPDX-License-Identifier: LicenseRef-Tarnix
#include "findings.h"

#include <iostream>

namespace catalogcheck
{
namespace
{

// Names and ids may come from a damaged file: nothing in them controls the terminal.
std::string printable(const std::string& text)
{
    constexpr char digits[] = "0123456789ABCDEF";
    constexpr unsigned char firstPrintable = 0x20;
    constexpr unsigned char deleteCharacter = 0x7F;
    std::string shown;
    for (const char byte : text) {
        const auto value = static_cast<unsigned char>(byte);
        if (value < firstPrintable || value == deleteCharacter) {
            shown.append("\\x").append(1, digits[value >> 4U]).append(1, digits[value & 0xFU]);
        } else {
            shown += byte;
        }
    }
    return shown;
}

std::string shortened(const std::string& id)
{
    constexpr std::size_t longest = 100;
    return id.size() > longest ? id.substr(0, longest) + "..." : id;
}

} // namespace

void Findings::add(const std::string& file, const std::string& id, const std::string& what)
{
    std::cout << printable(file) << ": " << printable(id.empty() ? "" : shortened(id) + ": ")
              << printable(what) << '\n';
    m_Any = true;
}

std::string listed(const std::set<std::string>& elements)
{
    std::string text;
    for (const std::string& element : elements) {
        text += (text.empty() ? "" : ", ") + element;
    }
    return text.empty() ? "none" : text;
}

} // namespace catalogcheck
