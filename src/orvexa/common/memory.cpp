#include "orvexa/common/memory.h"

#include <algorithm>
#include <cstdlib>  // says which C library it is
#include <thread>

#ifdef __GLIBC__
  #include <malloc.h>
#endif

namespace orvexa::common {

void use_few_memory_pools() {
#ifdef __GLIBC__
  const auto cores = static_cast<int>(std::max(1U, std::thread::hardware_concurrency()));
  static_cast<void>(::mallopt(M_ARENA_MAX, cores));
#endif
}

}  // namespace orvexa::common
