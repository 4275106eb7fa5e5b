# Compiles one source of a catalog:
#   cmake -DGENRB=<program> -DSOURCE=<file> -DBUNDLE=<file> -DSCRATCH=<directory> -P <this file>
#
# genrb names the bundle after the table in the source. In a directory of its own a table of another
# language cannot overwrite the bundle of that language.
get_filename_component(file ${SOURCE} NAME)
get_filename_component(bundle_name ${BUNDLE} NAME)
get_filename_component(bundle_folder ${BUNDLE} DIRECTORY)
get_filename_component(language ${BUNDLE} NAME_WLE)

# The sentence as a line of its own: that of an error would be wrapped.
function(fail sentence)
  message(NOTICE "${file}: ${sentence}")
  message(FATAL_ERROR "${SOURCE} was not compiled")
endfunction()

file(REMOVE_RECURSE ${SCRATCH})
file(MAKE_DIRECTORY ${SCRATCH} ${bundle_folder})
execute_process(
  COMMAND ${GENRB} --quiet --encoding UTF-8 --destdir ${SCRATCH} ${SOURCE}
  RESULT_VARIABLE status OUTPUT_VARIABLE output ERROR_VARIABLE output)
if(NOT status EQUAL 0)
  string(STRIP "${output}" output)
  fail("does not compile, ${status}: ${output}")
endif()
file(GLOB written RELATIVE ${SCRATCH} ${SCRATCH}/*)
if(NOT written STREQUAL bundle_name)
  fail("contains the table of another language, and would become '${written}': name the table \
'${language}', as the file")
endif()
file(RENAME ${SCRATCH}/${bundle_name} ${BUNDLE})
