// SPDX-License-Identifier: MIT
#include "e2e/support/ChildProcess.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <fstream>
#include <system_error>

#include "support/Eventually.h"

namespace {

std::vector<char*> Pointers(std::vector<std::string>& texts) {
  std::vector<char*> pointers;
  for (std::string& text : texts) {
    pointers.push_back(text.data());
  }
  pointers.push_back(nullptr);
  return pointers;
}

void SetAttributes(posix_spawnattr_t& attributes, bool leadsASession) {
  (void)posix_spawnattr_init(&attributes);
  (void)posix_spawnattr_setflags(
      &attributes,
      static_cast<short>(POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK |
                         (leadsASession ? POSIX_SPAWN_SETSID : POSIX_SPAWN_SETPGROUP)));
  sigset_t signals;
  (void)sigemptyset(&signals);
  (void)posix_spawnattr_setsigmask(&attributes, &signals);
  (void)sigfillset(&signals);
  (void)posix_spawnattr_setsigdefault(&attributes, &signals);
}

void SetStreams(posix_spawn_file_actions_t& actions, const ChildProcess::Start& start) {
  constexpr int kFlags = O_WRONLY | O_CREAT | O_APPEND;
  const auto open = [&actions](int stream, const std::string& path, int flags) {
    (void)posix_spawn_file_actions_addopen(&actions, stream, path.c_str(), flags, 0600);
  };
  (void)posix_spawn_file_actions_init(&actions);
  open(STDIN_FILENO, "/dev/null", O_RDONLY);
  open(STDOUT_FILENO, start.output, kFlags);
  if (start.stream != -1) {
    (void)posix_spawn_file_actions_adddup2(&actions, start.stream, STDOUT_FILENO);
  }
  open(STDERR_FILENO, start.errors, kFlags);
}

}  // namespace

ChildProcess::ChildProcess(Start start) {
  posix_spawnattr_t attributes;
  SetAttributes(attributes, start.leadsASession);
  posix_spawn_file_actions_t actions;
  SetStreams(actions, start);
  const int result = posix_spawnp(&pid, start.words.front().c_str(), &actions, &attributes,
                                  Pointers(start.words).data(), Pointers(start.environment).data());
  (void)posix_spawn_file_actions_destroy(&actions);
  (void)posix_spawnattr_destroy(&attributes);
  if (result != 0) {
    throw std::system_error(result, std::generic_category(), start.words.front());
  }
}

ChildProcess::~ChildProcess() {
  (void)kill(-pid, SIGKILL);
  if (ended.empty()) {
    (void)waitpid(pid, nullptr, 0);
  }
}

void ChildProcess::Signal(int number) const { (void)kill(pid, number); }

std::string ChildProcess::State() {
  int status = 0;
  if (ended.empty() && waitpid(pid, &status, WNOHANG) == pid) {
    ended = WIFEXITED(status) ? "exit " + std::to_string(WEXITSTATUS(status))
                              : "signal " + std::to_string(WTERMSIG(status));
  }
  return ended.empty() ? "still running" : ended;
}

std::string ChildProcess::WaitForExit() {
  (void)Eventually([this] { return State() != "still running"; });
  return State();
}

size_t ChildProcess::FromStatus(const std::string& field) const {
  std::ifstream file(Folder() + "/status");
  for (std::string line; std::getline(file, line);) {
    if (line.starts_with(field + ":")) {
      return std::stoul(line.substr(field.size() + 1));
    }
  }
  return 0;
}

std::vector<std::string> OwnEnvironment() {
  std::vector<std::string> environment;
  for (char** entry = environ; *entry != nullptr; ++entry) {
    environment.emplace_back(*entry);
  }
  return environment;
}
