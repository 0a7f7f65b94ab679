# cmake --install puts the programs, their man pages, completions, what makes archives known to
# others, and the C library in place. The components are Debian's packages (scripts/package).
include(GNUInstallDirs)
set(CMAKE_INSTALL_DOCDIR ${CMAKE_INSTALL_DATAROOTDIR}/doc/velk)
set(CMAKE_INSTALL_DEFAULT_COMPONENT_NAME velk)

if(WIN32)
  # A .zip is unpacked into one folder.
  set(CMAKE_INSTALL_BINDIR .)
  set(CMAKE_INSTALL_DOCDIR .)
  set(license LICENSE.txt)
else()
  set(license copyright)
endif()

install(TARGETS VELK velkinfo RUNTIME)
install(FILES README.md CHANGELOG.md docs/format.md DESTINATION ${CMAKE_INSTALL_DOCDIR})
install(FILES LICENSE DESTINATION ${CMAKE_INSTALL_DOCDIR} RENAME ${license})

# Compresses a file of the build folder, without a name and a date in it, and installs it.
find_program(GZIP gzip)
function(install_compressed file)
  if(GZIP)
    execute_process(COMMAND ${GZIP} -9nf ${file} COMMAND_ERROR_IS_FATAL ANY)
    string(APPEND file .gz)
  endif()
  install(FILES ${file} ${ARGN})
endfunction()

function(install_page page component)
  configure_file(docs/man/${page} ${PROJECT_BINARY_DIR}/man/${page} @ONLY)
  string(REGEX REPLACE ".*\\." "" section ${page})
  install_compressed(${PROJECT_BINARY_DIR}/man/${page}
                     DESTINATION ${CMAKE_INSTALL_MANDIR}/man${section} COMPONENT ${component})
endfunction()

if(UNIX)
  foreach(page VELK.1 velkinfo.1 velk.5)
    install_page(${page} velk)
  endforeach()
  set(completions ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)
  install(FILES completion/velk DESTINATION ${completions} RENAME VELK)
  install(FILES completion/velkinfo DESTINATION ${completions})
  install(DIRECTORY completion/fish/ DESTINATION ${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d)
  # zsh looks into the first below /usr/local, Debian's into the second below /usr.
  foreach(folder site-functions vendor-completions)
    install(FILES completion/zsh/_velk DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/${folder})
  endforeach()
  # For file(1) and for desktops.
  install(FILES packaging/magic DESTINATION ${CMAKE_INSTALL_DATADIR}/file/magic RENAME velk)
  install(FILES packaging/velk.xml DESTINATION ${CMAKE_INSTALL_DATADIR}/mime/packages)
endif()
if(TARGET velkz)
  include(cmake/install_velkz.cmake)
endif()

# The name in lower case, for those who type it; not where file systems don't tell
# the two apart.
if(UNIX AND NOT APPLE)
  set(links ${PROJECT_BINARY_DIR}/links)
  file(MAKE_DIRECTORY ${links})
  file(CREATE_LINK VELK ${links}/velk SYMBOLIC)
  file(WRITE ${links}/velk.1 ".so man1/VELK.1\n")
  install(FILES ${links}/velk DESTINATION ${CMAKE_INSTALL_BINDIR})
  install(FILES ${links}/velk DESTINATION ${completions})
  install_compressed(${links}/velk.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
endif()

if(TARGET velk_shared)
  include(cmake/install_library.cmake)
  if(UNIX)
    include(cmake/install_python.cmake)
  endif()
endif()
