# SPDX-License-Identifier: LicenseRef-Tarnix
# Compiles one source of a catalog:
#   cmake -DGENRB=<program> -DSOURCE=<file> -DBUNDLE=<file> -P <this file>
#
# genrb names the bundle after the table in the source. In a directory of its own a table of another
# language cannot overwrite the bundle of that language. The directory is beside the bundle, because a
# file is renamed within a file system only.
get_filename_component(file ${SOURCE} NAME)
get_filename_component(bundle_name ${BUNDLE} NAME)
get_filename_component(bundle_folder ${BUNDLE} DIRECTORY)
get_filename_component(language ${BUNDLE} NAME_WLE)

set(scratch ${bundle_folder}/${language}.dir)

# The sentence as a line of its own: that of an error would be wrapped.
function(fail sentence)
  file(REMOVE_RECURSE ${scratch})
  message(NOTICE "${file}: ${sentence}")
  message(FATAL_ERROR "${SOURCE} was not compiled")
endfunction()

file(REMOVE_RECURSE ${scratch})
file(MAKE_DIRECTORY ${scratch} ${bundle_folder})
execute_process(
  COMMAND ${GENRB} --quiet --encoding UTF-8 --destdir ${scratch} ${SOURCE}
  RESULT_VARIABLE status OUTPUT_VARIABLE output ERROR_VARIABLE output)
if(NOT status EQUAL 0)
  string(STRIP "${output}" output)
  fail("does not compile, ${status}: ${output}")
endif()
if(NOT EXISTS ${scratch}/${bundle_name})
  string(REPLACE "[" "[[]" pattern ${scratch})
  file(GLOB written ${pattern}/*)
  cmake_path(GET written FILENAME written)
  fail("contains the table of another language, and would become '${written}': name the table \
'${language}', as the file")
endif()
file(RENAME ${scratch}/${bundle_name} ${BUNDLE})
file(REMOVE_RECURSE ${scratch})
