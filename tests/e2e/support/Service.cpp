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
    : Process({CommandLine(), Environment(), workplace::kOutput, workplace::kErrors, output,
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

bool Service::IsIdle() const {
  std::error_code gone;
  for (const auto& thread : std::filesystem::directory_iterator(Folder() + "/task", gone)) {
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
