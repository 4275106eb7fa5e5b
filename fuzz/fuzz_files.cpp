// Fuzzer of two more files from outside. With an even first byte the input is the file with the
// trace level of the sibling product; with an odd one it is an account, a right, and the file of
// the accounts' rights.
#include "cmnpathtool.h"
#include "fuzzinput.h"
#include "logon.h"
#include "platform.h"
#include "rights.h"

#include <cstddef>
#include <cstring>
#include <iterator>

using Lines = std::vector<std::string>;

namespace
{

// The level by the functions of the C library.
int readLevel(std::string text, int& level)
{
    while (!text.empty()) {
        const std::string line = text.substr(0, std::min<std::size_t>(text.find('\n'), 253) + 1);
        text.erase(0, line.size());
        if (!std::strstr(line.c_str(), "Default.DiagnosticLevel"))
            continue;
        const char* const equals = std::strchr(line.c_str(), '=');
        return equals && std::sscanf(equals + 1, "%d", &level) == 1 ? 0 : 1;
    }
    return 1;
}

void checkLevel(const FuzzDirectory& directory, const std::string& text)
{
    directory.write("level", text);
    tarnix_cmn_4_4::tstr dir(directory.wide().c_str()), file(L"level");
    int level = -7, peer = -7;
    const int code = readLevel(text, peer);
    require(tarnix_cmn_4_4::CCmnSGDConfiguration::getTraceLevel(dir, file, level) == code &&
                level == peer,
            "the level");
}

Lines readLines(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    Lines lines;
    for (std::string line; std::getline(file, line);)
        lines.push_back(line);
    return lines;
}

// What the store lists of an account.
Lines listed(LSA_HANDLE policy, PSID sid)
{
    LSA_UNICODE_STRING* rights = nullptr;
    DWORD count = 0;
    Lines names;
    if (LsaEnumerateAccountRights(policy, sid, &rights, &count) != 0)
        return names;
    for (DWORD i = 0; i < count; ++i) {
        const std::wstring wide(rights[i].Buffer, rights[i].Length / sizeof(wchar_t));
        names.emplace_back();
        for (const wchar_t unit : wide)
            names.back() += static_cast<char>(unit);
        require(rights[i].Buffer[wide.size()] == L'\0', "a right's end");
    }
    LsaFreeMemory(rights);
    return names;
}

bool isName(const std::string& name, bool (*good)(char))
{
    return !name.empty() && std::all_of(name.begin(), name.end(), good);
}

void checkRights(const FuzzDirectory& directory, FuzzInput& input)
{
    const std::string path = directory.path("rights");
    const std::string account = input.until('\n').c_str(), right = input.until('\n').substr(0, 999);
    directory.write("rights", input.expanded(65536));
    TxSetRightsFile(path.c_str());
    std::vector<char> sid(sizeof(tarnix_platform::Sid) + account.size());
    account.copy(sid.data() + offsetof(tarnix_platform::Sid, name), account.size());
    std::wstring wide(right.begin(), right.end());
    const auto bytes = static_cast<std::uint16_t>(wide.size() * sizeof(wchar_t));
    LSA_UNICODE_STRING text{bytes, bytes, wide.data()};
    LSA_OBJECT_ATTRIBUTES attributes{};
    LSA_HANDLE policy = nullptr;
    require(LsaOpenPolicy(nullptr, &attributes, 0, &policy) == 0, "a policy");

    const std::string start = account + " ", line = start + right;
    Lines lines = readLines(path), own;
    for (const std::string& each : lines) {
        // More does not go into the length of a listed text.
        if (each.size() > start.size() &&
            each.size() - start.size() < UINT16_MAX / sizeof(wchar_t) &&
            each.compare(0, start.size(), start) == 0)
            own.push_back(each.substr(start.size()));
    }
    const bool held = std::find(lines.begin(), lines.end(), line) != lines.end();
    const bool named = isName(account, [](char c) { return c < '\0' || c > ' '; });
    const bool good = named && isName(right, [](char c) { return c > ' ' && c <= '~'; });
    require(tarnix_platform::holdsRight(account, right) == held, "whether a right is held");
    require(!named || listed(policy, sid.data()) == own, "the rights of an account");
    require((LsaAddAccountRights(policy, sid.data(), &text, 1) == 0) == good, "adding");
    if (good && !held)
        lines.push_back(line);
    require(readLines(path) == lines, "no line but the one is added");
    require((LsaRemoveAccountRights(policy, sid.data(), 0, &text, 1) == 0) == good, "removing");
    if (good)
        lines.erase(std::remove(lines.begin(), lines.end(), line), lines.end());
    require(readLines(path) == lines, "no line but the one is removed");
    LsaClose(policy);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static const FuzzDirectory directory;
    FuzzInput input(data, size);
    if (input.byte() % 2 == 0)
        checkLevel(directory, input.expanded(65536));
    else
        checkRights(directory, input);
    return 0;
}
