# SPDX-License-Identifier: LicenseRef-Tarnix
# Read by cpack: the time that the packages' files get, unless the caller has set one.
if("$ENV{SOURCE_DATE_EPOCH}" STREQUAL "")
  file(STRINGS ${CMAKE_CURRENT_LIST_DIR}/debian/changelog.in signature REGEX "^ -- ")
  string(REGEX REPLACE ".*>  " "" date "${signature}")
  execute_process(COMMAND date --utc "--date=${date}" +%s OUTPUT_VARIABLE seconds
                  OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
  set(ENV{SOURCE_DATE_EPOCH} ${seconds})
endif()
