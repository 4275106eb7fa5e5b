# Message catalogs of a client component.
#
#   tarnix_add_catalog(NAME <name> SOURCES root.txt de.txt ...
#                      [DIRECTORY <dir>] [DESTINATION <dir> | NO_INSTALL])
#
# Each source is an ICU resource text named after its language. genrb compiles them into
# <DIRECTORY>/lib<name>/ (default: Messages in the current build directory), where a catalog of that
# name finds them. Unless NO_INSTALL is given, they are installed to <DESTINATION>/lib<name>/
# (default: Messages). The target catalog_<name> is part of "all".

find_program(TARNIX_GENRB genrb DOC "ICU's compiler of resource bundles (package icu-devtools)")

function(tarnix_add_catalog)
  cmake_parse_arguments(ARG "NO_INSTALL" "NAME;DIRECTORY;DESTINATION" "SOURCES" ${ARGN})
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
  if(NOT ARG_DESTINATION)
    set(ARG_DESTINATION Messages)
  endif()
  set(bundles)
  set(folder ${ARG_DIRECTORY}/lib${ARG_NAME})
  foreach(source ${ARG_SOURCES})
    get_filename_component(source ${source} ABSOLUTE)
    get_filename_component(language ${source} NAME_WE)
    get_filename_component(source_folder ${source} DIRECTORY)
    get_filename_component(source_name ${source} NAME)
    set(bundle ${folder}/${language}.res)
    add_custom_command(
      OUTPUT ${bundle}
      COMMAND ${CMAKE_COMMAND} -E make_directory ${folder}
      COMMAND ${TARNIX_GENRB} --quiet --encoding UTF-8 --sourcedir ${source_folder}
              --destdir ${folder} ${source_name}
      DEPENDS ${source}
      COMMENT "Compiling catalog ${ARG_NAME}, ${language}"
      VERBATIM)
    list(APPEND bundles ${bundle})
  endforeach()
  add_custom_target(catalog_${ARG_NAME} ALL DEPENDS ${bundles})
  if(NOT ARG_NO_INSTALL)
    install(FILES ${bundles} DESTINATION ${ARG_DESTINATION}/lib${ARG_NAME})
  endif()
endfunction()
