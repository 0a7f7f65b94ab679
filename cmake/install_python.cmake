# What cmake/install.cmake does for the programs, for the Python module.
set(VELK_PYTHON_DIR "" CACHE STRING
    "Where the Python module goes, below the prefix. Empty: nowhere, as pip knows better")
if(VELK_PYTHON_DIR)
  install(TARGETS velk_python COMPONENT python3-velk LIBRARY DESTINATION ${VELK_PYTHON_DIR}/velk)
  install(DIRECTORY python/velk DESTINATION ${VELK_PYTHON_DIR} COMPONENT python3-velk
          FILES_MATCHING PATTERN *.py PATTERN *.pyi PATTERN py.typed
          PATTERN __pycache__ EXCLUDE)
  install(FILES examples/dask_compress.py examples/dask_read.py examples/nbdkit_velk.py
          DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc/python3-velk/examples
          COMPONENT python3-velk)
endif()
