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
  set_target_properties(catalogcheck PROPERTIES INSTALL_RPATH "$ORIGIN/${to_libdir}")
endif()

install(TARGETS tarnixcmn EXPORT tarnixcmnTargets
  LIBRARY COMPONENT runtime NAMELINK_COMPONENT development
  ARCHIVE COMPONENT development
  FILE_SET HEADERS DESTINATION ${TARNIX_INSTALL_INCLUDEDIR} COMPONENT development)
install(EXPORT tarnixcmnTargets NAMESPACE tarnix:: DESTINATION ${package_dir}
        COMPONENT development)
install(TARGETS catalogcheck RUNTIME COMPONENT tools)
# A copy of the program that the library has in itself. Not as a target, which the packages strip:
# the library compares the bytes.
install(PROGRAMS $<TARGET_FILE:tarnix_runas> RENAME tarnix-runas
        DESTINATION ${CMAKE_INSTALL_LIBEXECDIR}/tarnixcmn-4.4 COMPONENT runtime)

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
else()
  set(TARNIX_PC_LIBRARIES " -lpam -pthread")
endif()
configure_file(cmake/tarnixcmn.pc.in tarnixcmn.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/tarnixcmn.pc
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)

install(FILES platform/pam.d/tarnix DESTINATION ${sysconf_dir}/pam.d COMPONENT runtime)
install(FILES platform/registry.conf DESTINATION ${sysconf_dir}/tarnix COMPONENT runtime)
# For whoever runs programs, and therefore in the package of the library.
install(FILES cmake/debian/logrotate.conf DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT runtime)
file(GLOB guides ${PROJECT_SOURCE_DIR}/docs/*.md ${PROJECT_SOURCE_DIR}/docs/*.svg)
install(FILES README.md CHANGELOG.md CONTRIBUTING.md SECURITY.md DESTINATION ${CMAKE_INSTALL_DOCDIR}
        COMPONENT development)
# The packages have it in their copyright file.
install(FILES LICENSE DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT licence)
install(FILES ${guides} DESTINATION ${CMAKE_INSTALL_DOCDIR}/docs
        COMPONENT development)
install(DIRECTORY examples DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT development)

set(CPACK_GENERATOR DEB)
# Independent of the umask of whoever builds the packages.
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ
    GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION TRUE)
set(CPACK_PACKAGE_VENDOR "Tarnix")
set(CPACK_PACKAGE_CONTACT "Tarnix common library developers <tarnixcmn@tarnix.example>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "common class library of the Tarnix product family")
set(CPACK_SET_DESTDIR ON)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR}/cmn)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_COMPONENTS_ALL runtime development tools)
# The description follows that of the project, which is the first line of each package.
function(tarnix_package component name section description)
  string(TOUPPER ${component} upper)
  set(CPACK_DEBIAN_${upper}_PACKAGE_NAME ${name} PARENT_SCOPE)
  set(CPACK_DEBIAN_${upper}_PACKAGE_SECTION ${section} PARENT_SCOPE)
  set(CPACK_DEBIAN_${upper}_DESCRIPTION "${description}" PARENT_SCOPE)
  set(papers ${PROJECT_BINARY_DIR}/papers/${name})
  configure_file(cmake/debian/copyright ${papers}/copyright COPYONLY)
  configure_file(cmake/debian/changelog.in ${papers}/changelog @ONLY)
  execute_process(COMMAND gzip -9nkf ${papers}/changelog COMMAND_ERROR_IS_FATAL ANY)
  install(FILES ${papers}/copyright ${papers}/changelog.gz
          DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${name} COMPONENT ${component} EXCLUDE_FROM_ALL)
endfunction()
tarnix_package(runtime libtarnixcmn-4-4-0 libs
  "Runs commands, also as another user, renders messages from catalogs, traces,\n keeps configuration, and handles text, XML and digests.")
tarnix_package(development libtarnixcmn-4-4-dev libdevel
  "The headers, the CMake package, the pkg-config file and the guides.")
tarnix_package(tools tarnixcmn-tools devel
  "The tool catalogcheck, which finds faults in message catalogs.")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS
    "libtarnixcmn-4-4-0 (= ${PROJECT_VERSION}), tarnixcmn-tools (= ${PROJECT_VERSION}), libace-dev, libicu-dev, libxerces-c-dev, libpam0g-dev")
set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS "libtarnixcmn-4-4-0 (= ${PROJECT_VERSION}), icu-devtools")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA
    ${PROJECT_SOURCE_DIR}/cmake/debian/conffiles ${PROJECT_SOURCE_DIR}/cmake/debian/triggers)
if(CMAKE_INSTALL_PREFIX MATCHES "^/usr/?$") # the packages name files below /etc
  include(CPack)
endif()
