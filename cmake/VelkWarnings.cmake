# Warnings are errors for the project's own code; third-party headers come in as SYSTEM.
add_library(velk_warnings INTERFACE)
target_compile_options(velk_warnings INTERFACE
  -Wall -Wextra -Wpedantic -Werror
  -Wshadow -Wnon-virtual-dtor -Wold-style-cast -Wcast-align -Woverloaded-virtual
  -Wconversion -Wsign-conversion -Wnull-dereference -Wdouble-promotion -Wformat=2
  -Wimplicit-fallthrough)

# GCC 12 reports impossible overlapping copies inside std::string concatenation at -O2 and above
# (GCC bug 105329, fixed in GCC 13): a false positive in the standard library, not in our code.
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
  target_compile_options(velk_warnings INTERFACE -Wno-restrict)
endif()
