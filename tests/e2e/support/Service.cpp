// SPDX-License-Identifier: MIT
#include "e2e/support/Service.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
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
  for (const std::string& text : OwnEnvironment()) {
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

Service::Service(Session session, int output)
    : ChildProcess({CommandLine(), Environment(), workplace::kOutput, workplace::kErrors, output,
                    session == Session::kOwn}) {}

std::string Service::Output() { return workplace::ReadWhole(workplace::kOutput); }

std::string Service::Errors() { return workplace::ReadWhole(workplace::kErrors); }

bool Service::Prints(const std::string& text, size_t count) {
  return Eventually([&] { return ShowsAtLeast(Output(), text, count); });
}

bool Service::PrintsError(const std::string& text, size_t count) {
  return Eventually([&] { return ShowsAtLeast(Errors(), text, count); });
}

std::vector<std::string> Service::OpenPaths() const {
  std::vector<std::string> paths;
  std::error_code gone;
  for (const auto& entry : std::filesystem::directory_iterator(Folder() + "/fd", gone)) {
    paths.push_back(std::filesystem::read_symlink(entry.path(), gone));
  }
  return paths;
}

// Of each thread what it does and how often it has stopped doing something.
std::map<std::string, std::string> Service::ThreadStates() const {
  std::map<std::string, std::string> threads;
  std::error_code gone;
  for (const auto& thread : std::filesystem::directory_iterator(Folder() + "/task", gone)) {
    std::istringstream status(workplace::ReadWhole(thread.path() / "status"));
    std::string& state = threads[thread.path().filename()];
    for (std::string line; std::getline(status, line);) {
      if (line.starts_with("State:") || line.find("ctxt_switches:") != std::string::npos) {
        state += line + "\n";
      }
    }
  }
  return threads;
}

// The threads are read one after the other, and one that is read first may be woken, or made, by
// one that is read last. Those that are found twice as they were have waited in between.
bool Service::IsIdle() const {
  const std::map<std::string, std::string> threads = ThreadStates();
  return !threads.empty() && threads == ThreadStates() &&
         std::all_of(threads.begin(), threads.end(),
                     [](const auto& thread) { return thread.second.starts_with("State:\tS"); });
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
