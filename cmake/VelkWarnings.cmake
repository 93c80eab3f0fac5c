# Warnings are errors for the project's own code; third-party headers come in as SYSTEM.
add_library(velk_warnings INTERFACE)
target_compile_options(velk_warnings INTERFACE
  -Wall -Wextra -Wpedantic -Werror
  -Wshadow -Wnon-virtual-dtor -Wold-style-cast -Wcast-align -Woverloaded-virtual
  -Wconversion -Wsign-conversion -Wnull-dereference -Wdouble-promotion -Wformat=2
  -Wimplicit-fallthrough)

# GCC 12 at -O1 and above reports impossible overlapping copies inside std::string concatenation
# (GCC bug 105329), "maybe uninitialized" members of engaged std::optional and std::variant
# values (GCC bug 80635 and its kin) and null dereferences inside std::streambuf: false positives
# inside the standard library, not in our code. Debug builds and clang keep all three warnings.
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
  target_compile_options(velk_warnings INTERFACE -Wno-restrict
    $<$<NOT:$<CONFIG:Debug>>:-Wno-maybe-uninitialized -Wno-null-dereference>)
endif()
