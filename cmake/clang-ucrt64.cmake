# Toolchain: Clang for the same target and runtime as mingw-ucrt64.cmake. It finds the GCC runtime by itself; lld is
# needed because GNU ld does not resolve the thread library in the order that Clang passes it.
include(${CMAKE_CURRENT_LIST_DIR}/mingw-ucrt64.cmake)
set(CMAKE_C_COMPILER clang-19)
set(CMAKE_CXX_COMPILER clang++-19)
set(CMAKE_C_COMPILER_TARGET ${QELA_TRIPLE})
set(CMAKE_CXX_COMPILER_TARGET ${QELA_TRIPLE})
add_link_options(-fuse-ld=lld -lpthread)
