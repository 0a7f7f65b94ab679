# velk::velk is the shared library, velk::velk_static the static one.
include(CMakeFindDependencyMacro)
find_dependency(Threads)
include(${CMAKE_CURRENT_LIST_DIR}/velk-targets.cmake)
