// SPDX-License-Identifier: MIT
#pragma once

#include <cerrno>
#include <system_error>

// The result of a system call, or std::system_error.
template <typename Result>
Result Checked(Result result, const char* call) {
  if (result < 0) {
    throw std::system_error(errno, std::generic_category(), call);
  }
  return result;
}
