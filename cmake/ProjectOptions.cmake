# qela_options: what every target of ours is compiled and linked with. Warnings are errors, and stand only here.
add_library(qela_options INTERFACE)
target_compile_features(qela_options INTERFACE cxx_std_20)
target_compile_definitions(qela_options INTERFACE _WIN32_WINNT=0x0A00 NOMINMAX WIN32_LEAN_AND_MEAN)
target_include_directories(qela_options INTERFACE ${PROJECT_SOURCE_DIR})

target_compile_options(qela_options INTERFACE
  -Werror -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion -Wold-style-cast -Wcast-qual -Wcast-align
  -Wformat=2 -Wundef -Wunused -Woverloaded-virtual -Wextra-semi -Wdouble-promotion -Wimplicit-fallthrough
  # printf formats follow Windows, which GCC's checks do not know for wide text.
  -Wno-format-nonliteral
  $<$<CXX_COMPILER_ID:GNU>:-Wduplicated-cond -Wduplicated-branches -Wlogical-op -Wuseless-cast -Wsuggest-override>
  $<$<CXX_COMPILER_ID:Clang>:-Wthread-safety -Wunreachable-code -Wrange-loop-analysis>)

# What ships is optimised with -O2: CMake's own -O3, which stands before it, makes the DLL a tenth larger.
target_compile_options(qela_options INTERFACE $<$<CONFIG:Release>:-O2>)

# Paths in the binary, and so in log lines, start at the checkout: FwClient/...
target_compile_options(qela_options INTERFACE "-ffile-prefix-map=${PROJECT_SOURCE_DIR}/=")

# Hardening. Address layout, data execution and high-entropy flags are the linker's defaults here; they are named so
# that a change of defaults cannot drop them. Control-flow guard is not available with GCC.
target_compile_options(qela_options INTERFACE -fstack-protector-strong)
target_compile_definitions(qela_options INTERFACE $<$<NOT:$<CONFIG:Debug>>:_FORTIFY_SOURCE=3>)
target_link_options(qela_options INTERFACE
  -static
  LINKER:--dynamicbase LINKER:--nxcompat LINKER:--high-entropy-va
  # The same sources give the same bytes.
  LINKER:--no-insert-timestamp
  $<$<CXX_COMPILER_ID:GNU>:LINKER:--disable-auto-image-base>)

# third_party: header-only libraries, seen as system headers.
set(QELA_DEPS_INCLUDE /opt/deps/usr/include CACHE PATH "Folder with the headers of msgpack, spdlog, fmt, CLI11 and nlohmann-json")
add_library(third_party INTERFACE)
target_include_directories(third_party SYSTEM INTERFACE ${QELA_DEPS_INCLUDE})
target_compile_definitions(third_party INTERFACE MSGPACK_NO_BOOST SPDLOG_FMT_EXTERNAL FMT_HEADER_ONLY)

# The version is told once, by project(): in QeLaVersion.h, in every module's resource, in the package's name.
configure_file(${PROJECT_SOURCE_DIR}/cmake/QeLaVersion.h.in ${PROJECT_BINARY_DIR}/include/QeLaVersion.h @ONLY)
target_include_directories(qela_options INTERFACE ${PROJECT_BINARY_DIR}/include)

# throw_without_memory(TARGET [EXCEPT PARTS]): the runtime that is linked into each module throws and catches there, and
# has to where memory has run out, as it does in the library. PARTS is a regular expression.
function(throw_without_memory target)
  cmake_parse_arguments(PARSE_ARGV 1 ARG "" EXCEPT "")
  file(GLOB runtime CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/FwClient/Service/QeLaLib/Runtime*.cpp)
  if(ARG_EXCEPT)
    list(FILTER runtime EXCLUDE REGEX "Runtime${ARG_EXCEPT}\\.cpp$")
  endif()
  target_sources(${target} PRIVATE ${runtime})
  target_link_options(${target} PRIVATE LINKER:--wrap=pthread_mutex_init)
  if(runtime MATCHES "RuntimeCleanUp")
    target_link_options(${target} PRIVATE LINKER:--wrap=abort)
  endif()
endfunction()

# ship(TARGET DESCRIPTION): a module that leaves the house: with a version resource, and with a PDB beside it, made from
# the symbols before they are stripped. The linker writes the time of day into it, and into nothing else: it is taken
# out, since the same sources give the same bytes. Debuggers go by the identifier that stands behind it.
function(ship target description)
  set(type VFT_DLL)
  get_target_property(kind ${target} TYPE)
  if(kind STREQUAL EXECUTABLE)
    set(type VFT_APP)
  endif()
  set(resource ${CMAKE_CURRENT_BINARY_DIR}/${target}.rc)
  configure_file(${PROJECT_SOURCE_DIR}/cmake/version.rc.in ${resource}.in @ONLY)
  file(GENERATE OUTPUT ${resource} INPUT ${resource}.in TARGET ${target})
  target_sources(${target} PRIVATE ${resource})
  target_link_options(${target} PRIVATE $<$<CONFIG:Release>:-s>)
  if(CMAKE_CXX_COMPILER_ID STREQUAL GNU)
    set(pdb $<TARGET_FILE_DIR:${target}>/$<TARGET_FILE_BASE_NAME:${target}>.pdb)
    target_link_options(${target} PRIVATE LINKER:--pdb=${pdb})
    add_custom_command(TARGET ${target} POST_BUILD VERBATIM
      COMMAND perl -0777 -pi -e "s/(\\x94\\x2e\\x31\\x01).{4}(\\x01\\0\\0\\0)/$1\\0\\0\\0\\0$2/s" ${pdb})
  endif()
endfunction()
