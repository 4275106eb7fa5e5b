// SPDX-License-Identifier: LicenseRef-Tarnix
// The bytes of the program that switches user. A unit of its own: the build compiles it again
// whenever it has linked that program again.
asm(".pushsection .rodata\n"
    ".balign 16\n"
    ".hidden tarnix_runas_begin\n"
    ".hidden tarnix_runas_end\n"
    ".globl tarnix_runas_begin, tarnix_runas_end\n"
    "tarnix_runas_begin:\n"
    ".incbin \"" TARNIX_RUNAS_PROGRAM "\"\n"
    "tarnix_runas_end:\n"
    ".popsection\n");
