# What cmake/install.cmake does for the programs, for the C library: the package libvelk0
# for programs that use it, libvelk-dev to build them.
include(CMakePackageConfigHelpers)

install(TARGETS velk_shared velk_static EXPORT velk-targets
        RUNTIME COMPONENT libvelk0
        LIBRARY COMPONENT libvelk0 NAMELINK_COMPONENT libvelk-dev
        ARCHIVE COMPONENT libvelk-dev
        INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(FILES include/velk.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT libvelk-dev)

set(packages ${CMAKE_INSTALL_LIBDIR}/cmake/velk)
write_basic_package_version_file(velk-config-version.cmake COMPATIBILITY SameMajorVersion)
install(EXPORT velk-targets NAMESPACE velk:: DESTINATION ${packages} COMPONENT libvelk-dev)
install(FILES cmake/velk-config.cmake ${PROJECT_BINARY_DIR}/velk-config-version.cmake
        DESTINATION ${packages} COMPONENT libvelk-dev)

# Found from where it lies, so that what is unpacked anywhere works there.
set(pkgconfig ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
file(RELATIVE_PATH VELK_PC_TO_PREFIX /${pkgconfig} /)
configure_file(cmake/velk.pc.in velk.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/velk.pc DESTINATION ${pkgconfig} COMPONENT libvelk-dev)

set(guide ${CMAKE_INSTALL_DATAROOTDIR}/doc/libvelk-dev)
if(WIN32)
  set(guide ${CMAKE_INSTALL_DOCDIR})
endif()
install(FILES docs/library.md DESTINATION ${guide} COMPONENT libvelk-dev)
install(DIRECTORY examples DESTINATION ${guide} COMPONENT libvelk-dev PATTERN *.py EXCLUDE)
if(UNIX)
  install_page(velk.3 libvelk-dev)
endif()
