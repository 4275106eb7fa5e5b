# SPDX-License-Identifier: LicenseRef-Tarnix
# Compiler options of all targets, and the sanitizers that a preset may set.
set(CMAKE_CXX_STANDARD 17)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

# No path of the build directory in shipped files; it would also change the build id.
set(CMAKE_BUILD_RPATH_USE_ORIGIN ON)
add_compile_options("$<$<NOT:$<CONFIG:Debug>>:-ffile-prefix-map=${PROJECT_SOURCE_DIR}=.>")

option(TARNIX_WERROR "Treat warnings as errors" OFF)
set(TARNIX_SANITIZE "" CACHE STRING "Sanitizers for the whole build, as -fsanitize= takes them")

add_library(tarnix_warnings INTERFACE)
target_compile_options(tarnix_warnings INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion $<$<BOOL:${TARNIX_WERROR}>:-Werror>
  # g++ 12 warns of an overflow in ACE's string header that cannot happen, wherever a literal becomes
  # a tstr.
  "$<$<CXX_COMPILER_ID:GNU>:-Wno-array-bounds;-Wno-restrict;-Wno-stringop-overflow>")

# The library calls its own functions directly: other libraries do not replace them.
add_compile_options($<$<CXX_COMPILER_ID:GNU>:-fno-semantic-interposition>)

# Hardening of the shipped files. It does not work together with the sanitizers, which check more.
if(NOT TARNIX_SANITIZE)
  include(CheckCXXCompilerFlag)
  # Not -ftrivial-auto-var-init: it clears the buffers of a lookup, which then takes 40 % more.
  foreach(flag -fstack-protector-strong -fstack-clash-protection -fcf-protection=full)
    string(MAKE_C_IDENTIFIER "TARNIX_HAS${flag}" known)
    check_cxx_compiler_flag(${flag} ${known})
    if(${known})
      add_compile_options(${flag})
    endif()
  endforeach()
  # The C library treats 3 as 2 if the compiler does not support it. Needs an optimised build.
  add_compile_options(
    "$<$<CONFIG:Release,RelWithDebInfo,MinSizeRel>:-U_FORTIFY_SOURCE;-D_FORTIFY_SOURCE=3>")
  # Checks the bounds and preconditions of the C++ library's containers and pointers.
  add_compile_definitions(_GLIBCXX_ASSERTIONS)
  add_link_options(-Wl,-z,relro -Wl,-z,now -Wl,-z,noexecstack)
endif()

if(TARNIX_SANITIZE)
  add_compile_options(-fsanitize=${TARNIX_SANITIZE} -fno-omit-frame-pointer
                      -fno-sanitize-recover=all)
  # The check of types opens a pipe, and reports an error when a test has used up all descriptors.
  add_compile_options(-fno-sanitize=vptr)
  add_link_options(-fsanitize=${TARNIX_SANITIZE})
endif()
