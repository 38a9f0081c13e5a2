// SPDX-License-Identifier: MIT
#include "e2e/support/Service.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <system_error>

#include "e2e/support/Workplace.h"
#include "support/Eventually.h"

namespace {

std::vector<std::string> Environment() {
  const std::string inherited = std::getenv("PATH") != nullptr ? std::getenv("PATH") : "/usr/bin";
  std::vector<std::string> environment = {
      std::string("VOST_CONFIG=") + workplace::kConfiguration,
      std::string("KXLOGGER_FILE=") + workplace::kLog,
      std::string("PATH=") + workplace::kPrograms + ":" + inherited,
  };
  for (char** entry = environ; *entry != nullptr; ++entry) {
    const std::string text = *entry;
    if (!text.starts_with("PATH=") && !text.starts_with("JOURNAL_STREAM=")) {
      environment.push_back(text);
    }
  }
  return environment;
}

// Where the tests run under an emulator, it stands in front.
std::vector<std::string> CommandLine() {
  std::vector<std::string> words;
  std::istringstream emulator(std::getenv("SPH_EMULATOR") != nullptr ? std::getenv("SPH_EMULATOR")
                                                                     : "");
  for (std::string word; emulator >> word;) {
    words.push_back(word);
  }
  words.push_back(std::filesystem::read_symlink("/proc/self/exe").parent_path() /
                  "SerialPortHandler");
  return words;
}

std::vector<char*> Pointers(std::vector<std::string>& texts) {
  std::vector<char*> pointers;
  for (std::string& text : texts) {
    pointers.push_back(text.data());
  }
  pointers.push_back(nullptr);
  return pointers;
}

// Whatever the test program was started with: no signal is ignored or held back.
void SetAttributes(posix_spawnattr_t& attributes, Service::Session session) {
  const bool leads = session == Service::Session::kOwn;
  (void)posix_spawnattr_init(&attributes);
  (void)posix_spawnattr_setflags(
      &attributes, static_cast<short>(POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK |
                                      (leads ? POSIX_SPAWN_SETSID : POSIX_SPAWN_SETPGROUP)));
  sigset_t signals;
  (void)sigemptyset(&signals);
  (void)posix_spawnattr_setsigmask(&attributes, &signals);
  for (const int signal : {SIGHUP, SIGINT, SIGTERM, SIGPIPE}) {
    (void)sigaddset(&signals, signal);
  }
  (void)posix_spawnattr_setsigdefault(&attributes, &signals);
}

void SetStreams(posix_spawn_file_actions_t& actions, int output) {
  constexpr int kFlags = O_WRONLY | O_CREAT | O_APPEND;
  (void)posix_spawn_file_actions_init(&actions);
  (void)posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
  (void)posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, workplace::kOutput, kFlags, 0600);
  if (output != -1) {
    (void)posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO);
  }
  (void)posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, workplace::kErrors, kFlags, 0600);
}

bool ShowsAtLeast(const std::string& all, const std::string& text, size_t count) {
  size_t from = 0;
  for (; count > 0; --count) {
    from = all.find(text, from);
    if (from == std::string::npos) {
      return false;
    }
    from += text.size();
  }
  return true;
}

}  // namespace

Service::Service(Session session, int output) {
  posix_spawnattr_t attributes;
  SetAttributes(attributes, session);
  posix_spawn_file_actions_t actions;
  SetStreams(actions, output);
  std::vector<std::string> environment = Environment();
  std::vector<std::string> words = CommandLine();
  const int result = posix_spawnp(&pid, words.front().c_str(), &actions, &attributes,
                                  Pointers(words).data(), Pointers(environment).data());
  (void)posix_spawn_file_actions_destroy(&actions);
  (void)posix_spawnattr_destroy(&attributes);
  if (result != 0) {
    throw std::system_error(result, std::generic_category(), words.front());
  }
}

Service::~Service() {
  (void)kill(-pid, SIGKILL);
  if (ended.empty()) {
    (void)waitpid(pid, nullptr, 0);
  }
}

std::string Service::Output() { return workplace::ReadWhole(workplace::kOutput); }

std::string Service::Errors() { return workplace::ReadWhole(workplace::kErrors); }

bool Service::Prints(const std::string& text, size_t count) {
  return Eventually([&] { return ShowsAtLeast(Output(), text, count); });
}

bool Service::PrintsError(const std::string& text, size_t count) {
  return Eventually([&] { return ShowsAtLeast(Errors(), text, count); });
}

void Service::Signal(int number) const { (void)kill(pid, number); }

std::string Service::State() {
  int status = 0;
  if (ended.empty() && waitpid(pid, &status, WNOHANG) == pid) {
    ended = WIFEXITED(status) ? "exit " + std::to_string(WEXITSTATUS(status))
                              : "signal " + std::to_string(WTERMSIG(status));
  }
  return ended.empty() ? "still running" : ended;
}

std::string Service::WaitForExit() {
  (void)Eventually([this] { return State() != "still running"; });
  return State();
}

std::vector<std::string> Service::OpenPaths() const {
  std::vector<std::string> paths;
  std::error_code gone;
  for (const auto& entry :
       std::filesystem::directory_iterator("/proc/" + std::to_string(pid) + "/fd", gone)) {
    paths.push_back(std::filesystem::read_symlink(entry.path(), gone));
  }
  return paths;
}

bool Service::IsIdle() const {
  std::error_code gone;
  for (const auto& thread :
       std::filesystem::directory_iterator("/proc/" + std::to_string(pid) + "/task", gone)) {
    const std::string stat = workplace::ReadWhole(thread.path() / "stat");
    const size_t nameEnd = stat.rfind(')');
    if (nameEnd == std::string::npos || stat.substr(nameEnd + 1, 2) != " S") {
      return false;
    }
  }
  return !gone;
}

size_t Service::Descriptors() const { return OpenPaths().size(); }

size_t Service::Sockets() const {
  const std::vector<std::string> paths = OpenPaths();
  return static_cast<size_t>(std::count_if(paths.begin(), paths.end(), [](const std::string& open) {
    return open.starts_with("socket:");
  }));
}

bool Service::Holds(const std::string& path) const {
  const std::vector<std::string> paths = OpenPaths();
  return std::any_of(paths.begin(), paths.end(), [&path](const std::string& open) {
    return open == path || open == path + " (deleted)";
  });
}

std::string Service::FromStatus(const std::string& field) const {
  std::ifstream file("/proc/" + std::to_string(pid) + "/status");
  for (std::string line; std::getline(file, line);) {
    if (line.starts_with(field + ":")) {
      return line.substr(field.size() + 1);
    }
  }
  return "0";
}

size_t Service::Threads() const { return std::stoul(FromStatus("Threads")); }

size_t Service::ResidentKilobytes() const { return std::stoul(FromStatus("VmRSS")); }
