# Warnings are errors for the project's own code; third-party headers come in as SYSTEM.
add_library(velk_warnings INTERFACE)
target_compile_options(velk_warnings INTERFACE
  -Wall -Wextra -Wpedantic -Werror
  -Wshadow -Wnon-virtual-dtor -Wold-style-cast -Wcast-align -Woverloaded-virtual
  -Wconversion -Wsign-conversion -Wnull-dereference -Wdouble-promotion -Wformat=2
  -Wimplicit-fallthrough)
