# What `cmake --install` puts where; `./dev package` makes the zip of it. Included at the end, when all targets are known.
# The target "shipped" is all that it needs.
set(modules QeLaLib QeLaC LogLib BLFramework KzVariantExport)
set(apis FwClient/Service/QeLaLib/Include/QeLaApi.h FwClient/Service/QeLaLib/Include/QeLaCriteria.h
  FwClient/Service/QeLaLib/Include/QeLaLocation.h FwClient/Service/QeLaLib/Include/LaSerializer.h)

foreach(module ${modules} qela)
  install(FILES $<TARGET_FILE:${module}> TYPE BIN)
  # Beside its module, where debuggers look.
  install(FILES $<TARGET_FILE_DIR:${module}>/$<TARGET_FILE_BASE_NAME:${module}>.pdb TYPE BIN)
endforeach()

# Import libraries for GNU linkers, and definitions, of which every linker makes its own. The C interface is there for all
# linkers, so it has a .lib too.
foreach(module QeLaLib QeLaC)
  install(FILES $<TARGET_LINKER_FILE:${module}> TYPE LIB)
endforeach()
install(FILES FwClient/Service/QeLaLib/QeLaLib.def ${PROJECT_BINARY_DIR}/lib/QeLaC.def TYPE LIB)
find_program(QELA_LLVM_DLLTOOL NAMES llvm-dlltool-19 llvm-dlltool)
if(QELA_LLVM_DLLTOOL)
  add_custom_command(OUTPUT ${PROJECT_BINARY_DIR}/lib/QeLaC.lib DEPENDS QeLaC VERBATIM
    COMMAND ${QELA_LLVM_DLLTOOL} -m i386:x86-64 -D QeLaC.dll -d ${PROJECT_BINARY_DIR}/lib/QeLaC.def -l ${PROJECT_BINARY_DIR}/lib/QeLaC.lib)
  add_custom_target(import_library ALL DEPENDS ${PROJECT_BINARY_DIR}/lib/QeLaC.lib)
  install(FILES ${PROJECT_BINARY_DIR}/lib/QeLaC.lib TYPE LIB)
endif()

add_custom_target(shipped DEPENDS ${modules} qela ScriptedWindows)
if(TARGET import_library)
  add_dependencies(shipped import_library)
endif()

# For hosts' tests.
install(TARGETS ScriptedWindows ARCHIVE)
install(DIRECTORY ScriptedWindows TYPE INCLUDE FILES_MATCHING PATTERN *.h)

install(FILES ${apis} QeLaC/Include/qela.h ${PROJECT_BINARY_DIR}/include/QeLaVersion.h TYPE INCLUDE)

include(CMakePackageConfigHelpers)
configure_file(cmake/QeLaLibConfig.cmake.in ${PROJECT_BINARY_DIR}/cmake/QeLaLibConfig.cmake @ONLY)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/cmake/QeLaLibConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/cmake/QeLaLibConfig.cmake ${PROJECT_BINARY_DIR}/cmake/QeLaLibConfigVersion.cmake
  DESTINATION cmake)

install(FILES Tools/qela/completion/qela.bash Tools/qela/completion/qela.ps1 DESTINATION completion)
install(DIRECTORY Docs/ DESTINATION docs)
install(DIRECTORY Samples/ DESTINATION samples)
install(FILES LICENSE NOTICE DESTINATION licences)
install(FILES README.md CHANGELOG.md DESTINATION docs)
