// SPDX-License-Identifier: LicenseRef-Tarnix
// Environment blocks.
#include "environment.h"

#include "errors.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>

namespace tarnix_platform
{

char* newBlock(const std::vector<std::string>& variables)
{
    std::string text;
    for (const std::string& variable : variables) {
        text.append(variable.c_str(), variable.size() + 1);
    }
    text.push_back('\0');
    auto* block = static_cast<char*>(std::malloc(text.size())); // LocalFree frees it
    if (block == nullptr) {
        fail(ENOMEM);
        return nullptr;
    }
    std::copy(text.begin(), text.end(), block);
    return block;
}

std::vector<std::string> variablesOf(const char* block)
{
    std::vector<std::string> variables;
    for (const char* at = block; *at != '\0'; at += variables.back().size() + 1) {
        variables.emplace_back(at);
    }
    return variables;
}

char* GetEnvironmentStringsA()
{
    std::vector<std::string> variables;
    for (char* const* variable = environ; variable != nullptr && *variable != nullptr; ++variable) {
        if (**variable != '\0') { // an empty text would end the block
            variables.emplace_back(*variable);
        }
    }
    return newBlock(variables);
}

BOOL FreeEnvironmentStringsA(char* block)
{
    LocalFree(block);
    return true;
}

} // namespace tarnix_platform
