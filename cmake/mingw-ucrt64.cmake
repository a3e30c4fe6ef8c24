# Toolchain: MinGW-w64 GCC for x86-64 Windows with the universal C runtime.
#   cmake --preset mingw-release        (inside the root that ./dev makes; ./dev shell opens it)
# Tests run under Wine through Scripts/test-program.sh.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)

set(QELA_TRIPLE x86_64-w64-mingw32ucrt)
set(CMAKE_C_COMPILER ${QELA_TRIPLE}-gcc)
set(CMAKE_CXX_COMPILER ${QELA_TRIPLE}-g++)
set(CMAKE_RC_COMPILER ${QELA_TRIPLE}-windres)

set(CMAKE_FIND_ROOT_PATH /usr/${QELA_TRIPLE})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)

find_program(QELA_CCACHE ccache)
if(QELA_CCACHE)
  set(CMAKE_C_COMPILER_LAUNCHER ${QELA_CCACHE})
  set(CMAKE_CXX_COMPILER_LAUNCHER ${QELA_CCACHE})
endif()

set(CMAKE_CROSSCOMPILING_EMULATOR ${CMAKE_CURRENT_LIST_DIR}/../Scripts/test-program.sh)
