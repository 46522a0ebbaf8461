# rxp2k7_precompile(<target> <header>...): parses the headers once for all sources of the target. Sources include what
# they use all the same: scripts/check-tidy reads them without.
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  add_compile_options(-fpch-preprocess) # lets ccache see the headers parsed in advance
else()
  add_compile_options("SHELL:-Xclang -fno-pch-timestamp") # lets ccache know them by their content
endif()
function(rxp2k7_precompile target)
  target_precompile_headers(${target} PRIVATE ${ARGN})
endfunction()
