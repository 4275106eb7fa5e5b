// SPDX-License-Identifier: LicenseRef-Tarnix
// A program whose own names are also names of the platform layer. It includes every installed
// header, and compiles only if the layer adds neither names nor macros to the global namespace.
#include <X11/Xmd.h>

struct HANDLE {
    int fd;
};
enum DWORD { doubleWord };
static int ReadFile(HANDLE handle) { return handle.fd; }
static constexpr int INFINITE = 8; // a number of the program's own

#include "installed_headers.h"

#include <cstdio>

namespace
{

// A derived class reaches the layer's types through the library's namespace.
struct Runner : tarnix_cmn_4_4::CCmnExecPipeWindows {
    using Handle = tarnix_cmn_4_4::HANDLE;
    int CreateChildProcess(std::string& command, Handle input, Handle output, Handle error,
                           std::string directory) override
    {
        ++starts;
        return CCmnExecPipeWindows::CreateChildProcess(command, input, output, error, directory);
    }
    int starts = 0;
};

} // namespace

int main()
{
    Runner runner;
    std::vector<std::string> lines;
    runner.Exec("echo " + std::to_string(ReadFile(HANDLE{INFINITE})), lines, "", 60, "", "", "");
    const bool good = runner.starts == 1 && lines == std::vector<std::string>{"8"};
    std::printf("%d start, %zu lines\n", runner.starts, lines.size());
    return good && doubleWord == 0 ? 0 : 1;
}
