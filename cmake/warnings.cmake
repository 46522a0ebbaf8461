# Warnings for our own code; every target of this project links rxp2k7_warnings privately.
add_library(rxp2k7_warnings INTERFACE)
target_compile_options(rxp2k7_warnings INTERFACE
  -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Wnon-virtual-dtor -Werror)
if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
  # The generated handler classes hide overloads of other kinds on purpose.
  target_compile_options(rxp2k7_warnings INTERFACE -Wno-sign-conversion)
endif()
if(RXP2K7_SANITIZE AND CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  # Instrumented code makes this warning see ghosts in the standard library's regular expressions.
  target_compile_options(rxp2k7_warnings INTERFACE -Wno-maybe-uninitialized)
endif()
