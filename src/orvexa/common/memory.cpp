#include "orvexa/common/memory.h"

#include <algorithm>
#include <cstdlib>  // says which C library it is
#include <thread>

#ifdef __GLIBC__
  #include <malloc.h>
#endif

namespace orvexa::common {

void set_up_memory() {
#ifdef __GLIBC__
  constexpr int mebibyte = 1 << 20;
  const auto cores = static_cast<int>(std::max(1U, std::thread::hardware_concurrency()));
  static_cast<void>(::mallopt(M_ARENA_MAX, cores));
  static_cast<void>(::mallopt(M_TRIM_THRESHOLD, 256 * mebibyte));
  static_cast<void>(::mallopt(M_MMAP_THRESHOLD, 32 * mebibyte));  // the most that is allowed
#endif
}

void give_back_free_memory() {
#ifdef __GLIBC__
  static_cast<void>(::malloc_trim(0));
#endif
}

}  // namespace orvexa::common
