// SPDX-License-Identifier: MIT
#include "relayctl/RelayctlTest.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <system_error>

namespace {

namespace fs = std::filesystem;

// Where the tests run under an emulator, it stands in front.
void WriteWrapper() {
  const char* const emulator = std::getenv("SPH_EMULATOR");
  const std::string path = std::string(workplace::kPrograms) + "/relayctl";
  const std::string program = fs::read_symlink("/proc/self/exe").parent_path() / "relayctl";
  workplace::WriteWhole(path, std::string("#!/bin/sh\nexec ") +
                                  (emulator != nullptr ? emulator : "") + " " + Quoted(program) +
                                  " \"$@\"\n");
  fs::permissions(path, fs::perms::owner_all);
}

}  // namespace

Background::Background(const std::string& command) {
  static int number = 0;
  file = std::string(workplace::kFolder) + "/background-" + std::to_string(++number);
  posix_spawnattr_t attributes;
  (void)posix_spawnattr_init(&attributes);
  sigset_t signals;
  (void)sigemptyset(&signals);
  (void)posix_spawnattr_setsigmask(&attributes, &signals);
  (void)sigfillset(&signals);
  (void)posix_spawnattr_setsigdefault(&attributes, &signals);
  (void)posix_spawnattr_setflags(
      &attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETPGROUP);
  posix_spawn_file_actions_t actions;
  (void)posix_spawn_file_actions_init(&actions);
  (void)posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
  (void)posix_spawn_file_actions_addopen(&actions, 1, file.c_str(), O_WRONLY | O_CREAT | O_APPEND,
                                         0600);
  (void)posix_spawn_file_actions_adddup2(&actions, 1, 2);
  std::string shell = "/bin/sh";
  std::string option = "-c";
  std::string text = "exec " + command;
  std::array<char*, 4> words = {shell.data(), option.data(), text.data(), nullptr};
  const int result = posix_spawn(&pid, shell.c_str(), &actions, &attributes, words.data(), environ);
  (void)posix_spawn_file_actions_destroy(&actions);
  (void)posix_spawnattr_destroy(&attributes);
  if (result != 0) {
    throw std::system_error(result, std::generic_category(), shell);
  }
}

Background::~Background() {
  (void)kill(-pid, SIGKILL);
  if (ended.empty()) {
    (void)waitpid(pid, nullptr, 0);
  }
}

void Background::Signal(int number) const { (void)kill(pid, number); }

std::string Background::WaitForExit() {
  int status = 0;
  const bool done =
      !ended.empty() || Eventually([&] { return waitpid(pid, &status, WNOHANG) == pid; });
  if (ended.empty() && done) {
    ended = WIFEXITED(status) ? "exit " + std::to_string(WEXITSTATUS(status))
                              : "signal " + std::to_string(WTERMSIG(status));
  }
  return done ? ended : "still running";
}

std::string Background::Output() const { return workplace::ReadWhole(file); }

bool Background::Prints(const std::string& text) const {
  return Eventually([&] { return Output().find(text) != std::string::npos; });
}

uint64_t Background::ProcessorTime() const {
  const std::string stat = workplace::ReadWhole("/proc/" + std::to_string(pid) + "/stat");
  std::istringstream fields(stat.substr(stat.rfind(')') + 1));
  std::string skipped;
  for (int field = 3; field < 14; ++field) {
    fields >> skipped;
  }
  uint64_t user = 0;
  uint64_t system = 0;
  fields >> user >> system;
  return (user + system) * 1000 / static_cast<uint64_t>(sysconf(_SC_CLK_TCK));
}

uint64_t Background::Waits() const {
  std::ifstream status("/proc/" + std::to_string(pid) + "/status");
  for (std::string line; std::getline(status, line);) {
    if (line.starts_with("voluntary_ctxt_switches:")) {
      return std::stoull(line.substr(line.find(':') + 1));
    }
  }
  return 0;
}

RelayctlTest::RelayctlTest() {
  const std::string path = std::getenv("PATH") != nullptr ? std::getenv("PATH") : "/usr/bin:/bin";
  (void)setenv("PATH", (std::string(workplace::kPrograms) + ":" + path).c_str(), 1);
  (void)setenv("VOST_CONFIG", workplace::kConfiguration, 1);
  (void)setenv("LC_ALL", "C.UTF-8", 1);
  WriteWrapper();
}

void RelayctlTest::StartListening(size_t count) {
  StartService();
  ASSERT_TRUE(Service::Prints("[LISTEN]IP:", count)) << "the service does not listen";
}
