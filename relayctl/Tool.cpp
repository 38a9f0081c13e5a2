// SPDX-License-Identifier: MIT
#include "Tool.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <system_error>
#include <utility>

#include "relay/Error.h"

namespace {

constexpr size_t kPiece = 65536;

// An answer takes a fraction of a second, also on a slow board.
constexpr std::chrono::seconds kPatience{5};

// A real udev database has tens of kilobytes. What prints without end is no answer.
constexpr size_t kLongestAnswer = size_t{64} << 20;

// The status of a program that was not found, where that shows no earlier: under an emulator.
constexpr int kNotFound = 127;

[[noreturn]] void FailToStart(const std::string& program, int reason) {
  throw relay::Error(
      relay::ErrorKind::kSystem,
      reason == ENOENT ? program + " is not installed, or not on PATH"
                       : "cannot start " + program + ": " + std::generic_category().message(reason),
      reason);
}

int Spawn(std::vector<std::string>& words, Tool::Use use, int standardOutput, pid_t& process) {
  std::vector<char*> arguments;
  arguments.reserve(words.size() + 1);
  for (std::string& word : words) {
    arguments.push_back(word.data());
  }
  arguments.push_back(nullptr);
  posix_spawnattr_t attributes;
  posix_spawn_file_actions_t actions;
  (void)posix_spawnattr_init(&attributes);
  (void)posix_spawn_file_actions_init(&actions);
  sigset_t none;
  (void)sigemptyset(&none);
  (void)posix_spawnattr_setsigmask(&attributes, &none);
  const int group = use == Tool::Use::kRead ? POSIX_SPAWN_SETPGROUP : 0;
  (void)posix_spawnattr_setflags(&attributes, static_cast<short>(POSIX_SPAWN_SETSIGMASK | group));
  (void)posix_spawn_file_actions_adddup2(&actions, standardOutput, STDOUT_FILENO);
  if (use == Tool::Use::kAsked) {
    (void)posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
  }
  const int error =
      posix_spawnp(&process, arguments[0], &actions, &attributes, arguments.data(), environ);
  (void)posix_spawn_file_actions_destroy(&actions);
  (void)posix_spawnattr_destroy(&attributes);
  return error;
}

// False when it does not end.
bool ReadToEnd(Tool& tool, std::string& text) {
  const auto end = std::chrono::steady_clock::now() + kPatience;
  while (text.size() < kLongestAnswer) {
    const auto left =
        std::chrono::ceil<std::chrono::milliseconds>(end - std::chrono::steady_clock::now());
    pollfd ready{tool.Descriptor(), POLLIN, 0};
    if (left.count() <= 0 || poll(&ready, 1, static_cast<int>(left.count())) <= 0) {
      return false;
    }
    const std::string piece = tool.Read();
    if (piece.empty()) {
      return true;
    }
    text += piece;
  }
  return false;
}

std::string LineOf(const std::vector<std::string>& words) {
  std::string line;
  for (const std::string& word : words) {
    line += (line.empty() ? "" : " ") + word;
  }
  return line;
}

}  // namespace

Tool::Tool(std::vector<std::string> programAndArguments, Use use)
    : words(std::move(programAndArguments)) {
  std::array<int, 2> ends{};
  if (pipe2(ends.data(), O_CLOEXEC) != 0) {
    FailToStart(words[0], errno);
  }
  const int error = Spawn(words, use, ends[1], process);
  (void)close(ends[1]);
  output = ends[0];
  if (error != 0) {
    (void)close(output);
    FailToStart(words[0], error);
  }
}

// By force: nothing that is only read has anything to put in order, and one that hangs may not end
// otherwise.
Tool::~Tool() {
  (void)close(output);
  if (process > 0) {
    (void)kill(process, SIGKILL);
    (void)TEMP_FAILURE_RETRY(waitpid(process, nullptr, 0));
  }
}

std::string Tool::Read() {
  std::string piece(kPiece, '\0');
  const ssize_t count = TEMP_FAILURE_RETRY(read(output, piece.data(), piece.size()));
  piece.resize(count > 0 ? static_cast<size_t>(count) : 0);
  if (piece.empty()) {
    MustHaveSucceeded();
  }
  return piece;
}

void Tool::MustHaveSucceeded() {
  int status = 0;
  if (process > 0) {
    (void)TEMP_FAILURE_RETRY(waitpid(std::exchange(process, -1), &status, 0));
  }
  if (WIFEXITED(status) && WEXITSTATUS(status) == kNotFound) {
    FailToStart(words[0], ENOENT);
  }
  if (status != 0) {
    throw relay::Error(
        relay::ErrorKind::kSystem,
        words[0] + (WIFEXITED(status)
                        ? " ended with status " + std::to_string(WEXITSTATUS(status))
                        : " was ended by signal " + std::to_string(WTERMSIG(status))));
  }
}

ToolOutput RunTool(std::vector<std::string> programAndArguments) {
  ToolOutput output;
  const std::string line = LineOf(programAndArguments);
  try {
    Tool tool(std::move(programAndArguments), Tool::Use::kAsked);
    if (!ReadToEnd(tool, output.text)) {
      output.problem = "\"" + line + "\" does not end";
    }
  } catch (const relay::Error& error) {
    output.problem = error.what();
  }
  return output;
}
