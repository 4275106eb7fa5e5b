// SPDX-License-Identifier: LicenseRef-Tarnix
// Locales: the one of a scope, and those that a test makes itself, so that it does not depend on
// those of the machine.
#ifndef TARNIX_SUPPORT_TESTLOCALE_H
#define TARNIX_SUPPORT_TESTLOCALE_H

#include "scratchdirectory.h"

#include <clocale>
#include <cstdlib>
#include <string>

// The locale of this program until the end of the scope, where it is "C" again.
class TestLocale
{
public:
    explicit TestLocale(const std::string& name, int category = LC_ALL)
        : m_IsKnown(std::setlocale(category, name.c_str()) != nullptr)
    {
    }
    ~TestLocale() { std::setlocale(LC_ALL, "C"); }
    TestLocale(TestLocale&&) = delete; // and so is copying

    bool isKnown() const { return m_IsKnown; }

private:
    const bool m_IsKnown;
};

// The only locales that can be set, besides "C", until the end of the scope.
class MadeLocales
{
public:
    MadeLocales() { ::setenv("LOCPATH", m_Scratch.path().c_str(), 1); }
    ~MadeLocales() { ::unsetenv("LOCPATH"); }

    // Makes a locale of this encoding, with the categories of a source, or those of "C". That it
    // could be made shows when it is set: the status of localedef just says whether it has warned.
    void make(const std::string& name, const std::string& encoding, const std::string& source = "")
    {
        m_Scratch.write("source", source);
        const std::string command = "cd " + m_Scratch.path() + " && localedef -c -f " + encoding +
                                    (source.empty() ? " -i POSIX ./" : " -i ./source ./") + name +
                                    " 2>&-";
        [[maybe_unused]] const int status = std::system(command.c_str());
    }

private:
    const ScratchDirectory m_Scratch;
};

#endif
