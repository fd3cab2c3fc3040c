#include "orvexa/cli/command_line.h"

int main(int argc, char** argv) {
  return orvexa::cli::run_command_line(argc, argv);
}
