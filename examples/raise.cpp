// SPDX-License-Identifier: LicenseRef-Tarnix
// Creates a message and prints its serialised text, which needs no catalog and has no language.
#include "cmnmessage.h"
#include "cmnstringtool.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <string>
#include <vector>

using namespace tarnix_cmn_4_4;

namespace
{

constexpr char kUsage[] =
    "usage: raise [--severity N] ID TYPE=VALUE...\n"
    "  TYPE is text (UTF-8), int (32 bits), double, or date (milliseconds since 1970)\n"
    "At least one argument: a message without any serialises to the empty text.\n";

template <class Number>
bool readNumber(const std::string& text, Number (*read)(const char*, char**), Number& number)
{
    char* end = nullptr;
    errno = 0;
    number = read(text.c_str(), &end);
    return errno == 0 && !text.empty() && *end == '\0';
}

long readLong(const char* text, char** end)
{
    const long number = std::strtol(text, end, 10);
    if (number != static_cast<std::int32_t>(number)) {
        errno = ERANGE;
    }
    return number;
}

bool addArgument(const std::string& argument, std::vector<icu::Formattable>& arguments)
{
    const std::size_t equals = argument.find('=');
    if (equals == std::string::npos) {
        return false;
    }
    const std::string type = argument.substr(0, equals);
    const std::string value = argument.substr(equals + 1);
    long integer = 0;
    double number = 0;
    if (type == "text") {
        arguments.emplace_back(CCmnStringTool::str2ustr(value));
        if (arguments.back().getString().isEmpty() && !value.empty()) {
            std::cerr << "raise: argument " << arguments.size() << " is not UTF-8\n";
            return false;
        }
    } else if (type == "int" && readNumber(value, readLong, integer)) {
        arguments.emplace_back(static_cast<std::int32_t>(integer));
    } else if (type == "double" && readNumber(value, std::strtod, number)) {
        arguments.emplace_back(number);
    } else if (type == "date" && readNumber(value, std::strtod, number)) {
        arguments.emplace_back(number, icu::Formattable::kIsDate);
    } else {
        return false;
    }
    return true;
}

} // namespace

int main(int argc, char** argv)
{
    int at = 1;
    long severity = 0;
    bool good = true;
    if (argc > 2 && std::strcmp(argv[1], "--severity") == 0) {
        good = readNumber(argv[2], readLong, severity);
        at = 3;
    }
    const char* id = at < argc ? argv[at] : "";
    std::vector<icu::Formattable> arguments;
    for (int i = at + 1; i < argc; ++i) {
        good = addArgument(argv[i], arguments) && good;
    }
    if (!good || *id == '\0' || std::strpbrk(id, " \t\n\r\v\f") != nullptr) {
        std::cerr << kUsage;
        return 2;
    }
    if (arguments.empty()) {
        std::cerr << "raise: a message without arguments serialises to the empty text\n";
        return 2;
    }
    CCmnIcuMessage message(id, arguments.data(), static_cast<int>(arguments.size()),
                           static_cast<tarnix_eseverity>(severity), __FILE__, __LINE__);
    const SCmnMessageInfo* info = message.serialize();
    std::cout.write(info->text, static_cast<std::streamsize>(info->length));
    return std::cout ? 0 : 1;
}
