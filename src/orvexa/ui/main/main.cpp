#include "orvexa/ui/desktop.h"

int main(int argument_count, char** arguments) {
  return orvexa::ui::run_desktop(argument_count, arguments);
}
