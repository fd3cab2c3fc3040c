#include "orvexa/cli/command_line.h"

namespace orvexa::cli {

int run_command_line(int, char**) {
  return 2;
}

}  // namespace orvexa::cli
