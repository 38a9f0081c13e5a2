// SPDX-License-Identifier: MIT
#include "machine/ToolOutput.h"

#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>

namespace {

// It takes a fraction of a second, also on a slow board.
constexpr std::chrono::seconds kPatience{5};

// A real udev database has tens of kilobytes. What prints without end is none.
constexpr size_t kMost = size_t{64} << 20;

constexpr int kNotFound = 127;  // the shell's status

// Reads to the end, or as much as there may be. False when that takes too long.
bool ReadToEnd(int descriptor, std::string& text) {
  const auto end = std::chrono::steady_clock::now() + kPatience;
  std::array<char, 65536> buffer;
  while (text.size() < kMost) {
    const auto left =
        std::chrono::ceil<std::chrono::milliseconds>(end - std::chrono::steady_clock::now());
    pollfd ready{descriptor, POLLIN, 0};
    if (left.count() <= 0 || poll(&ready, 1, static_cast<int>(left.count())) <= 0) {
      return false;
    }
    const ssize_t count = read(descriptor, buffer.data(), buffer.size());
    if (count <= 0) {
      break;
    }
    text.append(buffer.data(), static_cast<size_t>(count));
  }
  return true;
}

std::string ProblemOf(const std::string& command, bool inTime, int status) {
  if (!inTime) {
    return "\"" + command + "\" does not end";
  }
  if (WIFEXITED(status) && WEXITSTATUS(status) == 0) {
    return "";
  }
  return WIFEXITED(status) && WEXITSTATUS(status) == kNotFound
             ? command.substr(0, command.find(' ')) + " is not installed, or not on PATH"
             : "\"" + command + "\" failed";
}

}  // namespace

ToolOutput RunTool(const std::string& command) {
  ToolOutput output;
  // The first line is the tool's process number.
  FILE* const pipe = popen(("echo $$; exec " + command).c_str(), "re");
  if (pipe == nullptr) {
    output.problem = "\"" + command + "\" cannot be started";
    return output;
  }
  const bool inTime = ReadToEnd(fileno(pipe), output.text);
  const size_t lineEnd = std::min(output.text.find('\n'), output.text.size());
  const pid_t tool = std::atoi(output.text.substr(0, lineEnd).c_str());
  output.text.erase(0, lineEnd + 1);
  if (!inTime && tool > 0) {
    (void)kill(tool, SIGKILL);
  }
  output.problem = ProblemOf(command, inTime, pclose(pipe));
  return output;
}
