#pragma once

#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/syscall.h>

#include <array>
#include <cerrno>
#include <cstddef>

namespace orvexa::test {

/// Has the system refuse a call (SYS_...) with an error number to the calling thread, for the rest of its life.
/// @return whether it does; Linux lets every process have that.
inline bool refuse_system_call(unsigned int call, unsigned int error) {
  std::array<sock_filter, 4> steps{
      {BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)), BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, call, 0, 1),
       BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | error), BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW)}};
  const sock_fprog filter{.len = steps.size(), .filter = steps.data()};
  return prctl(PR_SET_NO_NEW_PRIVS, 1UL, 0UL, 0UL, 0UL) == 0 &&
         prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter) == 0;
}

}  // namespace orvexa::test
