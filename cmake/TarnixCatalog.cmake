# SPDX-License-Identifier: LicenseRef-Tarnix
# Message catalogs of a client component.
#
#   tarnix_add_catalog(NAME <name> SOURCES root.txt de.txt ...
#                      [DIRECTORY <dir>] [DESTINATION <dir> | NO_INSTALL]
#                      [ROOT_LANGUAGE <language> | NO_CHECK])
#
# Each source is an ICU resource text named after its language, as the table in it. genrb compiles
# them into <DIRECTORY>/lib<name>/ (default: Messages in the current build directory), where a catalog
# of that name finds them. A relative directory is below the current build directory. Unless NO_INSTALL is given, they are installed to <DESTINATION>/lib<name>/
# (default: Messages). The target catalog_<name> is part of "all".
#
# catalogcheck reads all sources, and the build fails with a line for each fault. The texts of root are
# in ROOT_LANGUAGE (default: en). With NO_CHECK there is only the compiler: the build fails if a source
# does not compile or has the table of another language.
#
# In a project that contains this library, catalogcheck is a target of the build. Otherwise it is the
# program of the package, or that of the variable TARNIX_CATALOGCHECK.

find_program(TARNIX_GENRB genrb DOC "ICU's compiler of resource bundles (package icu-devtools)")
if(NOT TARGET tarnix_catalogcheck)
  find_program(TARNIX_CATALOGCHECK catalogcheck HINTS ${TARNIX_TOOLS_DIR}
               DOC "Checker of message catalogs (package tarnixcmn-tools)")
endif()

# Appends to `stamps` the file that is written when catalogcheck finds no fault.
function(tarnix_check_catalog name root_language sources stamps)
  set(program ${TARNIX_CATALOGCHECK})
  if(TARGET tarnix_catalogcheck)
    set(program tarnix_catalogcheck)
  elseif(NOT program)
    message(FATAL_ERROR "tarnix_add_catalog: catalogcheck was not found (package tarnixcmn-tools); "
                        "set TARNIX_CATALOGCHECK to its path, or give NO_CHECK")
  endif()
  set(stamp ${CMAKE_CURRENT_BINARY_DIR}/catalog_${name}.checked)
  add_custom_command(
    OUTPUT ${stamp}
    COMMAND ${program} --genrb ${TARNIX_GENRB} --root-language ${root_language} -- ${sources}
    COMMAND ${CMAKE_COMMAND} -E touch ${stamp}
    DEPENDS ${sources} ${program}
    COMMENT "Checking catalog ${name}"
    VERBATIM)
  set(${stamps} ${stamp} PARENT_SCOPE)
endfunction()

function(tarnix_add_catalog)
  cmake_parse_arguments(ARG "NO_INSTALL;NO_CHECK" "NAME;DIRECTORY;DESTINATION;ROOT_LANGUAGE" "SOURCES"
                        ${ARGN})
  if(NOT ARG_NAME OR NOT ARG_SOURCES OR ARG_UNPARSED_ARGUMENTS)
    message(FATAL_ERROR "tarnix_add_catalog: NAME and SOURCES are required; unknown arguments: "
                        "'${ARG_UNPARSED_ARGUMENTS}'")
  endif()
  if(NOT TARNIX_GENRB)
    message(FATAL_ERROR "tarnix_add_catalog: genrb was not found (package icu-devtools)")
  endif()
  if(NOT ARG_DIRECTORY)
    set(ARG_DIRECTORY ${CMAKE_CURRENT_BINARY_DIR}/Messages)
  endif()
  get_filename_component(ARG_DIRECTORY ${ARG_DIRECTORY} ABSOLUTE BASE_DIR ${CMAKE_CURRENT_BINARY_DIR})
  if(NOT ARG_DESTINATION)
    set(ARG_DESTINATION Messages)
  endif()
  if(NOT ARG_ROOT_LANGUAGE)
    set(ARG_ROOT_LANGUAGE en)
  endif()
  set(sources)
  foreach(source ${ARG_SOURCES})
    get_filename_component(source ${source} ABSOLUTE)
    list(APPEND sources ${source})
  endforeach()
  set(checked)
  if(NOT ARG_NO_CHECK)
    tarnix_check_catalog(${ARG_NAME} ${ARG_ROOT_LANGUAGE} "${sources}" checked)
  endif()
  set(bundles)
  set(script ${CMAKE_CURRENT_FUNCTION_LIST_DIR}/TarnixCompileCatalog.cmake)
  foreach(source ${sources})
    get_filename_component(language ${source} NAME_WLE)
    set(bundle ${ARG_DIRECTORY}/lib${ARG_NAME}/${language}.res)
    if(bundle IN_LIST bundles)
      message(FATAL_ERROR "tarnix_add_catalog: two sources are named after the language ${language}")
    endif()
    add_custom_command(
      OUTPUT ${bundle}
      COMMAND ${CMAKE_COMMAND} -DGENRB=${TARNIX_GENRB} -DSOURCE=${source} -DBUNDLE=${bundle}
              -P ${script}
      DEPENDS ${source} ${script}
      COMMENT "Compiling catalog ${ARG_NAME}, ${language}"
      VERBATIM)
    list(APPEND bundles ${bundle})
  endforeach()
  add_custom_target(catalog_${ARG_NAME} ALL DEPENDS ${bundles} ${checked})
  if(NOT ARG_NO_INSTALL)
    install(FILES ${bundles} DESTINATION ${ARG_DESTINATION}/lib${ARG_NAME})
  endif()
endfunction()
