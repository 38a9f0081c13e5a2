// SPDX-License-Identifier: MIT
#include "log/Tool.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <system_error>
#include <utility>

#include "relay/Error.h"

namespace {

constexpr size_t kPiece = 65536;

[[noreturn]] void FailToStart(const std::string& program, int reason) {
  throw relay::Error(relay::ErrorKind::kSystem,
                     "cannot start " + program + ": " + std::generic_category().message(reason),
                     reason);
}

int Spawn(std::vector<std::string>& words, int standardOutput, pid_t& process) {
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
  (void)posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETPGROUP);
  (void)posix_spawn_file_actions_adddup2(&actions, standardOutput, STDOUT_FILENO);
  const int error =
      posix_spawnp(&process, arguments[0], &actions, &attributes, arguments.data(), environ);
  (void)posix_spawn_file_actions_destroy(&actions);
  (void)posix_spawnattr_destroy(&attributes);
  return error;
}

}  // namespace

Tool::Tool(std::vector<std::string> programAndArguments) : words(std::move(programAndArguments)) {
  std::array<int, 2> ends{};
  if (pipe2(ends.data(), O_CLOEXEC) != 0) {
    FailToStart(words[0], errno);
  }
  const int error = Spawn(words, ends[1], process);
  (void)close(ends[1]);
  output = ends[0];
  if (error != 0) {
    (void)close(output);
    FailToStart(words[0], error);
  }
}

Tool::~Tool() {
  (void)close(output);
  if (process > 0) {
    (void)kill(process, SIGTERM);
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
  if (status != 0) {
    throw relay::Error(
        relay::ErrorKind::kSystem,
        words[0] + (WIFEXITED(status)
                        ? " ended with status " + std::to_string(WEXITSTATUS(status))
                        : " was ended by signal " + std::to_string(WTERMSIG(status))));
  }
}
