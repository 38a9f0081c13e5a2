// SPDX-License-Identifier: MIT
#pragma once

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

// Runs `body` in a child process, whose exit status is what it returns; -1 when a signal ended it.
// For what changes the whole process. In the child, EXPECT and ASSERT mean nothing.
template <typename Body>
int InChild(Body body) {
  const pid_t child = fork();
  if (child == 0) {
    (void)alarm(30);
    _exit(body());
  }
  int status = 0;
  EXPECT_EQ(child, waitpid(child, &status, 0));
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}
