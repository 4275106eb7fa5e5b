# SPDX-License-Identifier: LicenseRef-Tarnix
# What `cmake --install` installs, and the packages that CPack builds from it.
include(CMakePackageConfigHelpers)

# The headers have a directory of their own, named after the interface.
set(TARNIX_INSTALL_INCLUDEDIR ${CMAKE_INSTALL_INCLUDEDIR}/tarnixcmn-4.4)
set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/tarnixcmn)
# The system reads PAM rules only from /etc; from any other prefix the user copies them.
if(CMAKE_INSTALL_PREFIX MATCHES "^/usr/?$")
  set(sysconf_dir /etc)
else()
  set(sysconf_dir ${CMAKE_INSTALL_SYSCONFDIR})
  file(RELATIVE_PATH to_libdir /prefix/${CMAKE_INSTALL_BINDIR} /prefix/${CMAKE_INSTALL_LIBDIR})
  set_target_properties(tarnix_catalogcheck PROPERTIES INSTALL_RPATH "$ORIGIN/${to_libdir}")
endif()

# Independent of the umask of whoever installs or packages.
set(CMAKE_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ
    GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)

install(TARGETS tarnixcmn EXPORT tarnixcmnTargets
  LIBRARY COMPONENT runtime NAMELINK_COMPONENT development
  ARCHIVE COMPONENT development
  FILE_SET HEADERS DESTINATION ${TARNIX_INSTALL_INCLUDEDIR} COMPONENT development)
install(EXPORT tarnixcmnTargets NAMESPACE tarnix:: DESTINATION ${package_dir}
        COMPONENT development)
install(TARGETS tarnix_catalogcheck RUNTIME COMPONENT tools)
# A copy of the program that the library has in itself. Not as a target, which the packages strip:
# the library compares the bytes.
install(PROGRAMS $<TARGET_FILE:tarnix_runas> RENAME tarnix-runas
        DESTINATION ${TARNIX_PRIVATE_DIR} COMPONENT runtime)

set(TARNIX_ICU_VERSION 67)
configure_package_config_file(cmake/tarnixcmnConfig.cmake.in tarnixcmnConfig.cmake
  INSTALL_DESTINATION ${package_dir} PATH_VARS CMAKE_INSTALL_BINDIR NO_SET_AND_CHECK_MACRO)
write_basic_package_version_file(tarnixcmnConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/tarnixcmnConfig.cmake
              ${PROJECT_BINARY_DIR}/tarnixcmnConfigVersion.cmake cmake/TarnixCatalog.cmake
              cmake/TarnixCompileCatalog.cmake
        DESTINATION ${package_dir} COMPONENT development)
file(RELATIVE_PATH TARNIX_PREFIX_FROM_PC /prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig /prefix)
# A program that links the static library also has to link its dependencies. They are listed here,
# because `pkg-config --static` would select the static form of everything else too.
if(BUILD_SHARED_LIBS)
  set(TARNIX_PC_LIBRARIES "")
  set(TARNIX_PC_DEFINITIONS "")
else()
  set(TARNIX_PC_LIBRARIES " -lpam -pthread")
  set(TARNIX_PC_DEFINITIONS " -DTARNIX_CMN_STATIC")
endif()
configure_file(cmake/tarnixcmn.pc.in tarnixcmn.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/tarnixcmn.pc
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)

# What all versions of the interface share on a machine.
install(FILES platform/pam.d/tarnix DESTINATION ${sysconf_dir}/pam.d COMPONENT common)
install(FILES platform/registry.conf DESTINATION ${sysconf_dir}/tarnix COMPONENT common)
install(FILES cmake/debian/logrotate.conf DESTINATION ${CMAKE_INSTALL_DOCDIR}-common COMPONENT common)
configure_file(cmake/man/catalogcheck.1 man/catalogcheck.1 @ONLY)
execute_process(COMMAND gzip -9nkf ${PROJECT_BINARY_DIR}/man/catalogcheck.1 COMMAND_ERROR_IS_FATAL ANY)
install(FILES ${PROJECT_BINARY_DIR}/man/catalogcheck.1.gz
        DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT tools)
file(GLOB guides ${PROJECT_SOURCE_DIR}/docs/*.md ${PROJECT_SOURCE_DIR}/docs/*.svg)
install(FILES README.md CHANGELOG.md CONTRIBUTING.md SECURITY.md DESTINATION ${CMAKE_INSTALL_DOCDIR}
        COMPONENT development)
# The packages have it in their copyright file.
install(FILES LICENSE DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT licence)
install(FILES ${guides} DESTINATION ${CMAKE_INSTALL_DOCDIR}/docs
        COMPONENT development)
install(DIRECTORY examples DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT development)

set(CPACK_GENERATOR DEB)
# The same packages from the same sources, whoever builds them and whenever.
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION TRUE)
set(CPACK_PROJECT_CONFIG_FILE ${PROJECT_SOURCE_DIR}/cmake/TarnixPackageTime.cmake)
set(CPACK_PRE_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/cmake/TarnixPackageDirectories.cmake)
set(CPACK_POST_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/cmake/TarnixPackageFiles.cmake)
set(CPACK_PACKAGE_VENDOR "Tarnix")
set(CPACK_PACKAGE_CONTACT "Tarnix common library developers <tarnixcmn@tarnix.example>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "common class library of the Tarnix product family")
set(CPACK_SET_DESTDIR ON)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR}/cmn)
# A program needs the release whose symbols it uses, or a later one.
file(CONFIGURE OUTPUT papers/shlibs
     CONTENT "libtarnixcmn_4_4 0 libtarnixcmn-4-4-0 (>= ${PROJECT_VERSION})\n")
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_COMPONENTS_ALL runtime common development tools debug)
# The description follows that of the project, which is the first line of each package. CPack has no
# variable for the field Multi-Arch yet: it comes with the section.
function(tarnix_package component name section multi_arch description)
  string(TOUPPER ${component} upper)
  set(CPACK_DEBIAN_${upper}_PACKAGE_NAME ${name} PARENT_SCOPE)
  set(CPACK_DEBIAN_${upper}_PACKAGE_SECTION "${section}\nMulti-Arch: ${multi_arch}" PARENT_SCOPE)
  set(CPACK_DEBIAN_${upper}_DESCRIPTION "${description}" PARENT_SCOPE)
  set(papers ${PROJECT_BINARY_DIR}/papers/${name})
  configure_file(cmake/debian/copyright ${papers}/copyright COPYONLY)
  configure_file(cmake/debian/changelog.in ${papers}/changelog @ONLY)
  execute_process(COMMAND gzip -9nkf ${papers}/changelog COMMAND_ERROR_IS_FATAL ANY)
  install(FILES ${papers}/copyright ${papers}/changelog.gz
          DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${name} COMPONENT ${component} EXCLUDE_FROM_ALL)
endfunction()
tarnix_package(runtime libtarnixcmn-4-4-0 libs same
  "Runs commands, also as another user, renders messages from catalogs, traces,\n keeps configuration, and handles text, XML and digests.")
tarnix_package(common tarnixcmn-common libs foreign
  "The configuration that all versions of the library share: the rules of PAM for\n commands of other users, and the file with the install directory.")
tarnix_package(development libtarnixcmn-4-4-dev libdevel same
  "The headers, the CMake package, the pkg-config file and the guides.")
tarnix_package(tools tarnixcmn-tools devel foreign
  "The tool catalogcheck, which finds faults in message catalogs.")
tarnix_package(debug libtarnixcmn-4-4-0-dbgsym debug same
  "The debug information of the library and of the tool catalogcheck.")
set(CPACK_DEBIAN_DEBUG_PACKAGE_DEPENDS "libtarnixcmn-4-4-0 (= ${PROJECT_VERSION})")
set(CPACK_DEBIAN_DEBUG_PACKAGE_SHLIBDEPS OFF)
set(CPACK_DEBIAN_COMMON_PACKAGE_ARCHITECTURE all)
install(FILES cmake/debian/lintian-overrides RENAME libtarnixcmn-4-4-0
        DESTINATION ${CMAKE_INSTALL_DATADIR}/lintian/overrides COMPONENT runtime EXCLUDE_FROM_ALL)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_DEPENDS "tarnixcmn-common (>= ${PROJECT_VERSION})")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS
    "libtarnixcmn-4-4-0 (= ${PROJECT_VERSION}), tarnixcmn-tools (>= ${PROJECT_VERSION}), libace-dev, libicu-dev, libxerces-c-dev, libpam0g-dev, pkgconf")
# The CMake package and tarnixcmn.pc have one name in all versions.
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_PROVIDES "tarnixcmn-dev")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_CONFLICTS "tarnixcmn-dev")
set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS "libtarnixcmn-4-4-0 (>= ${PROJECT_VERSION}), icu-devtools")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA
    ${PROJECT_SOURCE_DIR}/cmake/debian/triggers ${PROJECT_BINARY_DIR}/papers/shlibs
    ${PROJECT_BINARY_DIR}/papers/symbols)
set(CPACK_DEBIAN_COMMON_PACKAGE_CONTROL_EXTRA
    ${PROJECT_SOURCE_DIR}/cmake/debian/conffiles ${PROJECT_SOURCE_DIR}/cmake/debian/postrm)
if(BUILD_SHARED_LIBS)
  add_custom_command(OUTPUT papers/symbols VERBATIM
    COMMAND ${PROJECT_SOURCE_DIR}/cmake/debian/symbols.sh $<TARGET_FILE:tarnixcmn>
            ${PROJECT_SOURCE_DIR}/cmn/symbols.txt ${PROJECT_VERSION} ${PROJECT_BINARY_DIR}/papers/symbols
    DEPENDS tarnixcmn cmn/symbols.txt cmake/debian/symbols.sh)
  # Not the packages of debug information that CPack makes: their sums contain the path of the build.
  add_custom_command(OUTPUT papers/debug VERBATIM
    COMMAND ${PROJECT_SOURCE_DIR}/cmake/debian/debugsymbols.sh ${PROJECT_BINARY_DIR}/papers/debug
            $<TARGET_FILE:tarnixcmn> $<TARGET_FILE:tarnix_catalogcheck>
    DEPENDS tarnixcmn tarnix_catalogcheck cmake/debian/debugsymbols.sh)
  install(DIRECTORY ${PROJECT_BINARY_DIR}/papers/debug/.build-id DESTINATION lib/debug
          COMPONENT debug EXCLUDE_FROM_ALL)
  add_custom_target(tarnix_papers ALL DEPENDS papers/symbols papers/debug)
endif()
if(PROJECT_IS_TOP_LEVEL AND CMAKE_INSTALL_PREFIX MATCHES "^/usr/?$") # the packages name files below /etc
  include(CPack)
endif()
