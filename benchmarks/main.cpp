#include <benchmark/benchmark.h>

#include "orvexa/common/memory.h"

/// Memory is kept and given back as in the program itself.
int main(int count, char** arguments) {
  orvexa::common::set_up_memory();
  benchmark::Initialize(&count, arguments);
  if (benchmark::ReportUnrecognizedArguments(count, arguments)) return 1;
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
