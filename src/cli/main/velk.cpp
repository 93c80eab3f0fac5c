// velk: the command-line tool. Everything but the process boundary lives in velk_cli_lib.
#include <iostream>
#include <string>
#include <vector>

#include "cli/Tool.h"

int main(int argc, char** argv) {
  std::vector<std::string> arguments(argv + 1, argv + argc);
  return velk::cli::runTool(arguments, std::cout, std::cerr);
}
