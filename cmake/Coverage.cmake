# Counters of lines and branches, for what `./dev coverage` says. Everything is compiled with them, because the linker keeps
# one copy of an inline function, and it may be a test's; but only what is written in these folders counts. Stripped, since
# thousands of programs are started.
if(QELA_COVERAGE)
  target_compile_options(qela_options INTERFACE --coverage -fprofile-update=atomic -fprofile-abs-path
    -fprofile-prefix-map=${PROJECT_SOURCE_DIR}/=${PROJECT_SOURCE_DIR}/
    "-fprofile-filter-files=(FwClient|HostLibraries|QeLaC|Tools)/.*")
  target_link_options(qela_options INTERFACE --coverage -s)
endif()
