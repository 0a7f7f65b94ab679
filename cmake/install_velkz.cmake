# velkz, under its three names.
install(TARGETS velkz RUNTIME)
if(WIN32)
  install(PROGRAMS ${PROJECT_BINARY_DIR}/unvelkz.exe ${PROJECT_BINARY_DIR}/velkcat.exe
          DESTINATION ${CMAKE_INSTALL_BINDIR})
  return()
endif()
install_page(velkz.1 velk)
install(FILES completion/velkz DESTINATION ${completions})

set(links ${PROJECT_BINARY_DIR}/velkz_links)
file(MAKE_DIRECTORY ${links})
foreach(name unvelkz velkcat)
  file(CREATE_LINK velkz ${links}/${name} SYMBOLIC)
  file(WRITE ${links}/${name}.1 ".so man1/velkz.1\n")
  install(FILES ${links}/${name} DESTINATION ${CMAKE_INSTALL_BINDIR})
  install(FILES ${links}/${name} DESTINATION ${completions})
  install_compressed(${links}/${name}.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
endforeach()
