// SPDX-License-Identifier: LicenseRef-Tarnix
// A pattern of ICU's MessageFormat as a tree of its arguments.
#ifndef TARNIX_PROGRAMS_PATTERNTREE_H
#define TARNIX_PROGRAMS_PATTERNTREE_H

#include <unicode/messagepattern.h>
#include <unicode/unistr.h>

#include <set>
#include <string>
#include <vector>

namespace catalogcheck
{

// What a placeholder needs as its argument. Any argument can be shown as a text.
enum class Need { text, number, date, word };

struct Argument;
struct Message {
    bool hasNumber = false; // it has the # of the plural around it
    std::vector<Argument> arguments;
};

struct Branch {
    std::string keyword; // "one", "=0", of a select any word
    bool exact = false;  // the keyword is a number
    double value = 0;    // that number, less the offset of the plural
    Message message;
};

struct Argument {
    int number = -1; // -1: it has a name, which no argument of a message has
    std::string name;
    UMessagePatternArgType type = UMSGPAT_ARG_TYPE_NONE;
    Need need = Need::text;
    std::vector<Branch> branches; // of a plural, a select or a choice
};

struct Pattern {
    std::string fault; // why ICU refuses it, and then there is no tree; or empty
    Message message;
    std::vector<std::string> quoted; // texts from a brace or # that an apostrophe quotes
    bool hasTypes = false;           // an argument is more than {0}
};

Pattern readPattern(const icu::UnicodeString& text);

// Whether ICU's parser may use the text: it is recursive.
bool nestsTooDeep(const icu::UnicodeString& text);

// Calls the function for each argument, also of the branches.
template <typename Function>
void forEachArgument(const Message& message, const Function& function)
{
    for (const Argument& argument : message.arguments) {
        function(argument);
        for (const Branch& branch : argument.branches) {
            forEachArgument(branch.message, function);
        }
    }
}

bool isPlural(const Argument& argument);

// "{0}"
std::string placeholder(int number);

std::string utf8(const icu::UnicodeString& text);

} // namespace catalogcheck

#endif
