// SPDX-License-Identifier: MIT
#include "support/Terminal.h"

#include <fcntl.h>
#include <linux/capability.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

Terminal::Terminal() : farEnd(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC)) {
  char path[64] = {};
  if (grantpt(farEnd) != 0 || unlockpt(farEnd) != 0 || ptsname_r(farEnd, path, sizeof path) != 0) {
    std::perror("pseudo-terminal");
    std::abort();
  }
  node = path;
  nearEnd = open(path, O_RDWR | O_NOCTTY | O_CLOEXEC);
}

Terminal::~Terminal() {
  (void)close(nearEnd);
  (void)close(farEnd);
}

// root may open what has no rights, but by capabilities alone.
void ForbidReopening(int stream) {
  __user_cap_header_struct header = {_LINUX_CAPABILITY_VERSION_3, 0};
  const __user_cap_data_struct none[_LINUX_CAPABILITY_U32S_3] = {};
  if (fchmod(stream, 0) != 0 || syscall(SYS_capset, &header, none) != 0) {
    std::perror("ForbidReopening");
    std::abort();
  }
}
