# Compiler settings of every target of the project, and the sanitizers that a preset may ask for.
set(CMAKE_CXX_STANDARD 17)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

# What is delivered does not tell where it was built.
add_compile_options("$<$<NOT:$<CONFIG:Debug>>:-ffile-prefix-map=${PROJECT_SOURCE_DIR}=.>")

option(TARNIX_WERROR "Treat warnings as errors" OFF)
set(TARNIX_SANITIZE "" CACHE STRING "Sanitizers for the whole build, as -fsanitize= takes them")

add_library(tarnix_warnings INTERFACE)
target_compile_options(tarnix_warnings INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion $<$<BOOL:${TARNIX_WERROR}>:-Werror>
  # g++ 12 sees an overflow that is none in ACE's string header, wherever a literal becomes a tstr.
  "$<$<CXX_COMPILER_ID:GNU>:-Wno-array-bounds;-Wno-restrict;-Wno-stringop-overflow>")

# The library calls its own functions directly: nobody replaces them from outside.
add_compile_options($<$<CXX_COMPILER_ID:GNU>:-fno-semantic-interposition>)

# Hardening of what is delivered. The sanitizers do the same and more, and do not go with it.
if(NOT TARNIX_SANITIZE)
  include(CheckCXXCompilerFlag)
  foreach(flag -fstack-protector-strong -fstack-clash-protection -fcf-protection=full)
    string(MAKE_C_IDENTIFIER "TARNIX_HAS${flag}" known)
    check_cxx_compiler_flag(${flag} ${known})
    if(${known})
      add_compile_options(${flag})
    endif()
  endforeach()
  # The C library takes 3 for 2 where the compiler does not know it. Needs an optimised build.
  add_compile_options("$<$<NOT:$<CONFIG:Debug>>:-U_FORTIFY_SOURCE;-D_FORTIFY_SOURCE=3>")
  add_link_options(-Wl,-z,relro -Wl,-z,now -Wl,-z,noexecstack)
endif()

if(TARNIX_SANITIZE)
  add_compile_options(-fsanitize=${TARNIX_SANITIZE} -fno-omit-frame-pointer
                      -fno-sanitize-recover=all)
  add_link_options(-fsanitize=${TARNIX_SANITIZE})
endif()
