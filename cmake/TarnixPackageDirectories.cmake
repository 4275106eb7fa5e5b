# SPDX-License-Identifier: LicenseRef-Tarnix
# Run by cpack on what it has installed, before it makes the packages: cpack creates directories as the umask of whoever
# runs it says.
execute_process(COMMAND find ${CPACK_TEMPORARY_DIRECTORY} -type d -exec chmod 755 "{}" +
                COMMAND_ERROR_IS_FATAL ANY)
