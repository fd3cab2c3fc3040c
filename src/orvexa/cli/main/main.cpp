#include "orvexa/cli/command_line.h"
#include "orvexa/common/memory.h"

int main(int argc, char** argv) {
  orvexa::common::set_up_memory();
  return orvexa::cli::run_command_line(argc, argv);
}
