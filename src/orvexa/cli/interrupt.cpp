#include "orvexa/cli/interrupt.h"

#include <unistd.h>

#include <csignal>

namespace orvexa::cli {

namespace {

// At file scope, made before main: a signal handler may touch a lock-free flag, but not a static that is made on first
// use.
constinit common::CancelEvent interrupted;

extern "C" void on_signal(int) {
  if (interrupted.is_set()) ::_exit(exit_interrupted);
  interrupted.set();
}

}  // namespace

void handle_interrupts() {
  for (const int number : {SIGINT, SIGTERM}) {
    struct sigaction previous {};
    if (::sigaction(number, nullptr, &previous) == 0 && previous.sa_handler == SIG_IGN) continue;
    struct sigaction action {};
    action.sa_handler = on_signal;
    // Reads and writes in progress go on; the work looks at the flag between them.
    action.sa_flags = SA_RESTART;
    ::sigemptyset(&action.sa_mask);
    ::sigaction(number, &action, nullptr);
  }
}

const common::CancelEvent& interrupt_event() {
  return interrupted;
}

int answer_interrupted(Console& console, const std::string& sentence) {
  console.error(sentence);
  if (console.json) console.answer_json({{"error", sentence}, {"interrupted", true}});
  return exit_interrupted;
}

}  // namespace orvexa::cli
