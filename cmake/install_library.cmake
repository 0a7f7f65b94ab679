# What cmake/install.cmake does for the programs, for the C library: the package libvelk0
# for programs that use it, libvelk-dev to build them.
include(CMakePackageConfigHelpers)

install(TARGETS velk_shared velk_static EXPORT velk-targets
        RUNTIME COMPONENT runtime
        LIBRARY COMPONENT runtime NAMELINK_COMPONENT development
        ARCHIVE COMPONENT development
        INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(FILES include/velk.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development)

set(packages ${CMAKE_INSTALL_LIBDIR}/cmake/velk)
write_basic_package_version_file(velk-config-version.cmake COMPATIBILITY SameMajorVersion)
install(EXPORT velk-targets NAMESPACE velk:: DESTINATION ${packages} COMPONENT development)
install(FILES cmake/velk-config.cmake ${PROJECT_BINARY_DIR}/velk-config-version.cmake
        DESTINATION ${packages} COMPONENT development)

# Found from where it lies, so that what is unpacked anywhere works there.
set(pkgconfig ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
file(RELATIVE_PATH VELK_PC_TO_PREFIX /${pkgconfig} /)
configure_file(cmake/velk.pc.in velk.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/velk.pc DESTINATION ${pkgconfig} COMPONENT development)

set(docdir ${CMAKE_INSTALL_DATAROOTDIR}/doc)
set(guide ${docdir}/libvelk-dev)
if(WIN32)
  set(guide ${CMAKE_INSTALL_DOCDIR})
endif()
install(FILES docs/library.md DESTINATION ${guide} COMPONENT development)
install(DIRECTORY examples DESTINATION ${guide} COMPONENT development PATTERN *.py EXCLUDE)
if(WIN32)
  return()
endif()
install_page(velk.3 development)
install(FILES LICENSE DESTINATION ${docdir}/libvelk-dev RENAME copyright COMPONENT development)
install(FILES LICENSE DESTINATION ${docdir}/libvelk0 RENAME copyright COMPONENT runtime)
install_changelog(libvelk-dev development)
install_changelog(libvelk0 runtime)

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME libvelk0)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_COMPONENT_RUNTIME_DESCRIPTION
"Block-sorting compressor, shared library
The C library of VELK: compresses and restores in memory and through
 streams, with any number of threads, and reads any part of an archive.")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libvelk-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "libvelk0 (= ${PROJECT_VERSION})")
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION
"Block-sorting compressor, to build with its library
The header, the static library, the manual and examples of the C library
 of VELK.")
