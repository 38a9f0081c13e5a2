// SPDX-License-Identifier: MIT
// without-children PROGRAM [ARGUMENTS...]
//
// Runs PROGRAM, which can start threads and no processes, as on a machine that has reached its
// limit of them: fork fails with EAGAIN. The C library starts a shell through an internal call that
// a preloaded library does not see, so the kernel has to say no.
#include <linux/filter.h>
#include <linux/sched.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdio>

namespace {

constexpr uint32_t Refused(int error) { return SECCOMP_RET_ERRNO | static_cast<uint32_t>(error); }

// clone3 hides its flags from a filter. Where it is missing, the C library takes clone.
bool RefuseChildren() {
  constexpr uint32_t kFlags = offsetof(seccomp_data, args);
  // In the third column, how many instructions to skip when it holds and when it does not.
  std::array<sock_filter, 8> filter = {{
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_clone3, 4, 0),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_clone, 0, 2),
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, kFlags),
      BPF_JUMP(BPF_JMP | BPF_JSET | BPF_K, CLONE_THREAD, 0, 2),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
      BPF_STMT(BPF_RET | BPF_K, Refused(ENOSYS)),
      BPF_STMT(BPF_RET | BPF_K, Refused(EAGAIN)),
  }};
  const sock_fprog program = {static_cast<unsigned short>(filter.size()), filter.data()};
  return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
         prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) == 0;
}

}  // namespace

int main(int count, char** arguments) {
  if (count < 2 || !RefuseChildren()) {
    std::perror("without-children");
    return 1;
  }
  (void)execvp(arguments[1], arguments + 1);
  std::perror(arguments[1]);
  return 1;
}
