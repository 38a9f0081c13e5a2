// SPDX-License-Identifier: MIT
#include "relayctl/Shell.h"

#include <sys/wait.h>

#include <array>
#include <cstdio>
#include <cstdlib>

Outcome RunShell(const std::string& command) {
  Outcome outcome;
  FILE* const pipe = popen(("{ " + command + "\n} 2>&1").c_str(), "re");
  if (pipe == nullptr) {
    return outcome;
  }
  std::array<char, 4096> buffer{};
  for (size_t count = 0; (count = std::fread(buffer.data(), 1, buffer.size(), pipe)) > 0;) {
    outcome.output.append(buffer.data(), count);
  }
  const int status = pclose(pipe);
  outcome.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  return outcome;
}

std::string Quoted(const std::string& text) {
  std::string quoted = "'";
  for (const char character : text) {
    quoted += character == '\'' ? std::string("'\\''") : std::string(1, character);
  }
  return quoted + "'";
}
