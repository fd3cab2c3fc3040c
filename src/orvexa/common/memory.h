#pragma once

namespace orvexa::common {

/// To be called at the beginning of a program, before it has threads, where the C library can be told:
/// - Memory comes from as many pools as there are cores. Otherwise there is a pool for nearly every thread that there
///   ever was, and small pieces that stay keep each of them from shrinking: a batch that reads every file in a thread
///   of its own would grow with each of them.
/// - Up to 256 MiB that were freed are kept for the next picture. Asking the system anew for the same pages, picture
///   after picture, took a tenth of the processor time of a batch.
void set_up_memory();

/// Gives what is kept back to the system: for the end of a long piece of work.
void give_back_free_memory();

}  // namespace orvexa::common
