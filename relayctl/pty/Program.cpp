// SPDX-License-Identifier: MIT
#include "pty/Program.h"

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <system_error>
#include <utility>

#include "ExitStatus.h"

namespace {

constexpr std::string_view kPlace = "{}";

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
  if (tcgetattr(STDIN_FILENO, &before) == 0 && tcgetpgrp(STDIN_FILENO) == getpgrp()) {
    will = std::make_unique<LastWill>([this] { Restore(); }, std::vector<int>{STDIN_FILENO});
  }
  std::string shell = "/bin/sh";
  std::string option = "-c";
  command = WithNode(std::move(command), node);
  std::array<char*, 4> words = {shell.data(), option.data(), command.data(), nullptr};
  posix_spawnattr_t attributes;
  (void)posix_spawnattr_init(&attributes);
  sigset_t none;
  (void)sigemptyset(&none);
  (void)posix_spawnattr_setsigmask(&attributes, &none);
  (void)posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK);
  const int error =
      posix_spawn(&process, shell.c_str(), nullptr, &attributes, words.data(), environ);
  (void)posix_spawnattr_destroy(&attributes);
  if (error != 0) {
    throw std::system_error(error, std::generic_category(), shell);
  }
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
