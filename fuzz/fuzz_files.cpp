// SPDX-License-Identifier: LicenseRef-Tarnix
// Fuzzer of two more untrusted files. After an even first byte the input is the file with the trace
// level of the sibling product; after an odd one it is an account, a right, and the file of the
// accounts' rights.
#include "cmnpathtool.h"
#include "fuzzinput.h"
#include "platform.h"
#include "rightsfile.h"
#include "support/scratchdirectory.h"

using namespace tarnix_platform;

static void checkLevel(const ScratchDirectory& directory, const std::string& text)
{
    directory.write("level", text);
    tarnix_cmn_4_4::tstr dir(directory.widePath().c_str()), file(L"level");
    int level = -7;
    const int code = tarnix_cmn_4_4::CCmnSGDConfiguration::getTraceLevel(dir, file, level);
    const bool hasKey = text.find("Default.DiagnosticLevel") != std::string::npos;
    require(code == 0 ? hasKey && text.find('=') != std::string::npos : code == 1 && level == -7,
            "a level is found only where the key is");
}

static bool isName(const std::string& name, unsigned char last)
{
    return !name.empty() && std::all_of(name.begin(), name.end(),
                                        [last](unsigned char c) { return c > ' ' && c <= last; });
}

static void checkRights(const ScratchDirectory& directory, FuzzInput& input)
{
    static const bool hasProc = access("/proc/self/stat", R_OK) == 0;
    if (!hasProc)
        return; // no right can be added
    std::string account = input.until('\n').c_str(), right = input.until('\n').substr(0, 999);
    const std::string file = input.expanded(65536);
    directory.write("rights", file);
    setRightsFile(directory.path("rights").c_str());
    const PSID sid = account.data();
    std::wstring wide(right.begin(), right.end());
    const auto bytes = static_cast<std::uint16_t>(wide.size() * sizeof(wchar_t));
    LSA_UNICODE_STRING text{bytes, bytes, wide.data()};
    LSA_OBJECT_ATTRIBUTES attributes{};
    LSA_HANDLE policy = nullptr;
    require(LsaOpenPolicy(nullptr, &attributes, 0, &policy) == 0, "the policy can be opened");

    const std::string line = account + " " + right;
    std::vector<std::string> lines = directory.readLines("rights");
    // Lines of processes that have ended go with any change, and are not compared.
    const auto requireLines = [&](const char* what) {
        std::vector<std::string> now = directory.readLines("rights");
        if (now.size() == lines.size() && !now.empty() && lines.back() == line &&
            now.back().rfind(" #added ") == line.size())
            now.back().resize(line.size());
        require(now == lines || file.find(" #added ") != std::string::npos, what);
    };
    const bool held = std::count(lines.begin(), lines.end(), line) > 0;
    const bool good = isName(account, 0xFF) && isName(right, '~');
    require(!held || !good || holdsRight(account, right), "a right is held if it has a line");
    require((LsaAddAccountRights(policy, sid, &text, 1) == 0) == good, "adds it if it is valid");
    if (good)
        lines.push_back(line);
    requireLines("only this line is added");
    LSA_UNICODE_STRING* rights = nullptr;
    DWORD count = 0;
    LsaEnumerateAccountRights(policy, sid, &rights, &count);
    for (DWORD i = 0; i < count; ++i) {
        const std::string each(rights[i].Buffer,
                               rights[i].Buffer + rights[i].Length / sizeof(wchar_t));
        require(std::count(lines.begin(), lines.end(), account + " " + each) > 0,
                "a listed right has a line");
    }
    LsaFreeMemory(rights);
    require(count > 0 || !good, "the added right is listed");
    require((LsaRemoveAccountRights(policy, sid, 0, &text, 1) == 0) == good, "removes it");
    if (good)
        lines.pop_back();
    requireLines("only this line is removed");
    LsaClose(policy);
}

void fuzz(FuzzInput input)
{
    static const ScratchDirectory directory;
    if (input.byte() % 2 == 0)
        checkLevel(directory, input.expanded(65536));
    else
        checkRights(directory, input);
}
