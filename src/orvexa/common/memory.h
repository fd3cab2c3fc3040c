#pragma once

namespace orvexa::common {

/// To be called at the beginning of a program, before it has threads: memory comes from as many pools as there are
/// cores. Otherwise the C library opens a pool for nearly every thread that it has ever seen, and small pieces that
/// stay keep each of them from shrinking: a batch that reads every file in a thread of its own would grow with each of
/// them.
void use_few_memory_pools();

}  // namespace orvexa::common
