// SPDX-License-Identifier: MIT
// Real processes around simulated runs. In them the ordinary calls are the simulated kernel's.
#pragma once

#include <functional>
#include <string>
#include <string_view>

namespace simulation {

struct Report {
  std::string text;
  int status = 0;  // as waitpid gives it
};

// Runs `body`, which must not return, in a process of its own. The text is what that one and those
// that it makes write into the descriptor that it is given.
Report ReportOf(const std::function<void(int descriptor)>& body);

void WriteWhole(int descriptor, std::string_view text);

// True in a process that is made here and goes on. False in the caller's own, once that one has
// ended with `status`.
bool GoesOnTwice(int& status);

[[noreturn]] void EndProcess();

}  // namespace simulation
