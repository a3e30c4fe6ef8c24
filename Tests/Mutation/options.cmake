# What `./dev mutate` adds to the build of the copies: included when the project begins, done when all targets are known.
function(add_mutation)
  # A fault may look like a mistake, which it is.
  foreach(target Utilities QeLaObjects QeLaC LogLib BLFramework KzVariantExport)
    target_compile_options(${target} PRIVATE -w -O1 -U_FORTIFY_SOURCE)
  endforeach()
  # The tests of qela's own parts judge nothing of what has faults.
  get_target_property(sources UnitTests SOURCES)
  list(FILTER sources EXCLUDE REGEX "/Qela[A-Z][A-Za-z]*Tests\\.cpp$")
  set_property(TARGET UnitTests PROPERTY SOURCES ${sources})
  foreach(target UnitTests ContractTests KitTests)
    target_sources(${target} PRIVATE ${PROJECT_SOURCE_DIR}/Tests/Mutation/TestMarks.cpp)
  endforeach()
endfunction()
cmake_language(DEFER CALL add_mutation)
