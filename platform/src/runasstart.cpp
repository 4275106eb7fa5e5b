// SPDX-License-Identifier: LicenseRef-Tarnix
// The start of the program that switches user.
//
// The start of the C library asks the processor for its properties. On a virtual machine each such
// question goes to the hypervisor, and together they take ten times as long as all the rest of the
// program. So on x86-64 the program is linked without a C library (TARNIX_BARE_PROGRAM). On other
// processors, and where coverage is measured, it has a static one.
#include "runas.h"

#ifdef TARNIX_BARE_PROGRAM

#include "systemcall.h"

#include <asm/prctl.h>
#include <elf.h>

#include <climits>
#include <cstddef>
#include <cstdint>

namespace tarnix_platform
{

namespace
{

// The compiler's stack protector compares with the word at this offset from the thread's pointer.
struct ThreadBlock {
    std::uintptr_t unused[5];
    std::uintptr_t canary;
};
static_assert(offsetof(ThreadBlock, canary) == 0x28);
ThreadBlock g_thread;

// From the random bytes that the kernel gives to each program. The lowest byte is 0, so that a text
// cannot contain the value.
std::uintptr_t canaryOf(const Elf64_auxv_t* value)
{
    while (value->a_type != AT_RANDOM) {
        ++value;
    }
    return *reinterpret_cast<const std::uintptr_t*>(value->a_un.a_val) << CHAR_BIT;
}

} // namespace

} // namespace tarnix_platform

// Weak, as it takes the place of a function of the C library.
// NOLINTNEXTLINE(bugprone-reserved-identifier)
extern "C" [[noreturn, gnu::weak]] void __stack_chk_fail()
{
    __builtin_trap();
}

// The kernel starts the program with this on the stack: the number of arguments, the arguments, the
// variables and the auxiliary values, each list with its end.
extern "C" [[noreturn]] void tarnix_start(std::uintptr_t* stack);
void tarnix_start(std::uintptr_t* stack)
{
    using namespace tarnix_platform;
    const auto argc = static_cast<int>(stack[0]);
    auto** const argv = reinterpret_cast<char**>(stack + 1);
    char** const environment = argv + argc + 1;
    char** end = environment;
    while (*end != nullptr) {
        ++end;
    }
    g_thread.canary = canaryOf(reinterpret_cast<const Elf64_auxv_t*>(end + 1));
    call(SYS_arch_prctl, ARCH_SET_FS, &g_thread);
    const int status = runAs(argc, argv, environment);
    for (;;) {
        call(SYS_exit_group, status);
    }
}

asm(".pushsection .text\n"
    ".globl _start\n"
    ".type _start, @function\n"
    "_start:\n"
    "    endbr64\n"
    "    xorl %ebp, %ebp\n"
    "    movq %rsp, %rdi\n"
    "    andq $-16, %rsp\n"
    "    call tarnix_start\n"
    ".popsection\n");

#else

#include <unistd.h>

int main(int argc, char** argv)
{
    return tarnix_platform::runAs(argc, argv, environ);
}

#endif
