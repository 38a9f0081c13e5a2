// SPDX-License-Identifier: MIT
#include "pty/Program.h"

#include <poll.h>
#include <spawn.h>
#include <sys/syscall.h>
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

// A program that the hang-up does not end has the terminal put right under it behind that.
constexpr int kPatienceMs = 2000;

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
  const bool hasTerminal =
      tcgetattr(STDIN_FILENO, &before) == 0 && tcgetpgrp(STDIN_FILENO) == getpgrp();
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
  if (hasTerminal) {
    MakeWill();
  }
}

// Its last word is said behind the program's: one that ends sets the terminal several times, of
// which the kernel refuses those that come after the shell has taken the terminal back.
void Program::MakeWill() {
  // Debian 12's C library declares pidfd_open for C alone.
  pollfd end = {static_cast<int>(syscall(SYS_pidfd_open, process, 0)), POLLIN, 0};
  std::vector<int> kept = {STDIN_FILENO};
  if (end.fd != -1) {
    kept.push_back(end.fd);
  }
  will = std::make_unique<LastWill>(
      [this, &end] {
        (void)poll(&end, 1, kPatienceMs);
        Restore();
      },
      kept);
  if (end.fd != -1) {
    (void)close(end.fd);
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
