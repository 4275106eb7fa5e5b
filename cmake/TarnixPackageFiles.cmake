# SPDX-License-Identifier: LicenseRef-Tarnix
# Run by cpack on the packages that it has made. The mode of a package's members, and of the package itself, follows
# the umask of whoever has built it; apt could not even read it.
foreach(package ${CPACK_PACKAGE_FILES})
  set(members ${package}.members)
  file(MAKE_DIRECTORY ${members})
  execute_process(COMMAND ar x ${package} WORKING_DIRECTORY ${members} COMMAND_ERROR_IS_FATAL ANY)
  execute_process(COMMAND ar t ${package} OUTPUT_VARIABLE names COMMAND_ERROR_IS_FATAL ANY)
  string(REGEX MATCHALL "[^\n]+" names "${names}")
  file(REMOVE ${package})
  execute_process(COMMAND ar rcD ${package} ${names} WORKING_DIRECTORY ${members}
                  COMMAND_ERROR_IS_FATAL ANY)
  file(CHMOD ${package} PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)
  file(REMOVE_RECURSE ${members})
endforeach()
