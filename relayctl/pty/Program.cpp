// SPDX-License-Identifier: MIT
#include "pty/Program.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <system_error>
#include <utility>
#include <vector>

#include "ExitStatus.h"

namespace {

constexpr std::string_view kPlace = "{}";

// A program that the hang-up has not ended by then is left alone with the terminal, which somebody
// else may have set up since.
constexpr int kPatienceMs = 10'000;

std::string WithNode(std::string command, const std::string& node) {
  for (size_t at = 0; (at = command.find(kPlace, at)) != std::string::npos; at += node.size()) {
    command.replace(at, kPlace.size(), node);
  }
  return command;
}

}  // namespace

void MustNamePlace(const std::string& option, const std::string& command) {
  if (!command.empty() && command.find(kPlace) == std::string::npos) {
    throw relay::Error(relay::ErrorKind::kUsage,
                       option + ": lacks {}, which stands for the port's path");
  }
}

Program::Program(std::string command, const std::string& node) {
  std::array<int, 2> life = {-1, -1};
  if (tcgetattr(STDIN_FILENO, &before) == 0 && tcgetpgrp(STDIN_FILENO) == getpgrp()) {
    [[maybe_unused]] const int made = pipe2(life.data(), O_CLOEXEC);
    MakeWill(life[0]);
  }
  const int error = Spawn(WithNode(std::move(command), node), life[1]);
  for (const int end : life) {
    (void)close(end);
  }
  if (error != 0) {
    throw std::system_error(error, std::generic_category(), "/bin/sh");
  }
}

// Its last word is said behind the program's: one that ends sets the terminal several times, of
// which the kernel refuses those that come after the shell has taken the terminal back.
// It is made before the program is there, so that there is no moment without it. That the program
// has ended shows as the hang-up of `life`, of which the program holds the other end.
void Program::MakeWill(int life) {
  will = std::make_unique<LastWill>(
      [this, life] {
        Restore();
        pollfd end = {life, 0, 0};
        if (poll(&end, 1, kPatienceMs) == 1) {
          Restore();
        }
      },
      std::vector<int>{STDIN_FILENO, life});
}

int Program::Spawn(const std::string& command, int life) {
  std::array<std::string, 3> words = {"/bin/sh", "-c", command};
  std::array<char*, 4> arguments = {words[0].data(), words[1].data(), words[2].data(), nullptr};
  posix_spawnattr_t attributes;
  (void)posix_spawnattr_init(&attributes);
  sigset_t none;
  (void)sigemptyset(&none);
  (void)posix_spawnattr_setsigmask(&attributes, &none);
  (void)posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK);
  posix_spawn_file_actions_t actions;
  (void)posix_spawn_file_actions_init(&actions);
  if (life != -1) {
    (void)posix_spawn_file_actions_adddup2(&actions, life, life);  // it is kept across the exec
  }
  const int error =
      posix_spawn(&process, arguments[0], &actions, &attributes, arguments.data(), environ);
  (void)posix_spawn_file_actions_destroy(&actions);
  (void)posix_spawnattr_destroy(&attributes);
  return error;
}

// In the background it would stop this process, and the terminal is the shell's.
Program::~Program() {
  if (will != nullptr && tcgetpgrp(STDIN_FILENO) == getpgrp()) {
    Restore();
  }
}

void Program::Restore() const { (void)tcsetattr(STDIN_FILENO, TCSADRAIN, &before); }

void Program::Signal(int number) const {
  if (!status) {
    (void)kill(process, number);
  }
}

std::optional<int> Program::Status() { return Take(WNOHANG); }

int Program::WaitForStatus() { return Take(0).value_or(kExitFailed); }

std::optional<int> Program::Take(int options) {
  int result = 0;
  if (!status && TEMP_FAILURE_RETRY(waitpid(process, &result, options)) == process) {
    status = WIFEXITED(result) ? WEXITSTATUS(result) : kExitSignal + WTERMSIG(result);
  }
  return status;
}
