# What cmake/install.cmake does for the programs, for the Python module: package python3-velk.
set(VELK_PYTHON_DIR lib/python3/dist-packages CACHE STRING
    "Where the Python module goes, below the prefix: Debian's place for it")

install(DIRECTORY python/velk DESTINATION ${VELK_PYTHON_DIR} COMPONENT python
        PATTERN __pycache__ EXCLUDE)
set(docdir ${CMAKE_INSTALL_DATAROOTDIR}/doc/python3-velk)
install(FILES examples/dask_compress.py examples/dask_read.py examples/nbdkit_velk.py
        DESTINATION ${docdir}/examples COMPONENT python)
install(FILES LICENSE DESTINATION ${docdir} RENAME copyright COMPONENT python)
install_changelog(python3-velk python)

set(CPACK_DEBIAN_PYTHON_PACKAGE_NAME python3-velk)
set(CPACK_DEBIAN_PYTHON_PACKAGE_SECTION python)
set(CPACK_DEBIAN_PYTHON_PACKAGE_ARCHITECTURE all)
set(CPACK_DEBIAN_PYTHON_PACKAGE_DEPENDS "python3 (>= 3.9), libvelk0 (>= ${PROJECT_VERSION})")
set(CPACK_DEBIAN_PYTHON_PACKAGE_SUGGESTS
    "python3-distributed, python3-fsspec, python3-numcodecs, nbdkit-plugin-python")
set(CPACK_DEBIAN_PYTHON_PACKAGE_CONTROL_EXTRA
    ${CMAKE_CURRENT_LIST_DIR}/python3-velk/postinst ${CMAKE_CURRENT_LIST_DIR}/python3-velk/prerm)
set(CPACK_COMPONENT_PYTHON_DESCRIPTION
"Block-sorting compressor, Python module
Archives of VELK from Python, as the standard modules bz2 and lzma for
 theirs, with several threads and reading that seeks.")
