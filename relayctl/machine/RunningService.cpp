// SPDX-License-Identifier: MIT
#include "machine/RunningService.h"

#include <sys/stat.h>

#include <algorithm>
#include <cstdlib>

#include "machine/ConfigurationFile.h"

namespace {

constexpr const char* kVariable = "VOST_CONFIG";

// Sets the variable for as long as it lives; nothing: unsets it.
class VariableScope {
 public:
  explicit VariableScope(const std::optional<std::string>& value) {
    if (const char* const text = std::getenv(kVariable)) {
      before = text;
    }
    Set(value);
  }
  ~VariableScope() { Set(before); }
  VariableScope(const VariableScope&) = delete;
  VariableScope& operator=(const VariableScope&) = delete;

 private:
  static void Set(const std::optional<std::string>& value) {
    (void)(value ? setenv(kVariable, value->c_str(), 1) : unsetenv(kVariable));
  }

  std::optional<std::string> before;
};

bool ListensOn(const ProcessTable& processes, const Process& process, uint16_t relayPort) {
  for (const TcpSocket& socket : processes.TcpSockets()) {
    if (socket.state == kTcpListening && socket.localPort == relayPort) {
      const std::vector<Process> owners = processes.OwnersOf(socket.inode).found;
      return std::any_of(owners.begin(), owners.end(),
                         [&](const Process& owner) { return owner.pid == process.pid; });
    }
  }
  return false;
}

// The file that the service's libvost reads; nothing when only a library of the device's own knows.
std::optional<std::string> ConfigurationOf(const RunningService& service) {
  const auto named = service.environment.find(kVariable);
  if (named != service.environment.end() && !named->second.empty()) {
    return service.PathOf(named->second);
  }
  const VariableScope unset(std::nullopt);
  const std::string usual = LookAtConfigurationFile().path;
  return usual.empty() ? std::nullopt : std::optional(service.PathOf(usual));
}

}  // namespace

std::string RunningService::PathOf(const std::string& path) const {
  const std::string through = folder + (path.starts_with('/') ? "/root" : "/cwd/") + path;
  struct stat ours {};
  struct stat theirs {};
  const bool weHave = lstat(path.c_str(), &ours) == 0;
  const bool theyHave = lstat(through.c_str(), &theirs) == 0;
  const bool isSame = weHave && theyHave
                          ? ours.st_dev == theirs.st_dev && ours.st_ino == theirs.st_ino
                          : !weHave && !theyHave;
  return isSame ? path : through;
}

RunningService FindService(const ProcessTable& processes, std::optional<uint16_t> relayPort) {
  RunningService service;
  std::vector<Process> all = processes.Named(kServiceShortName);
  std::erase_if(all, [&](const Process& one) { return !processes.IsReachable(one.pid); });
  if (all.empty()) {
    service.mayBeHidden = !processes.ShowsAll();
    return service;
  }
  if (relayPort && all.size() > 1) {
    const auto asked = std::find_if(all.begin(), all.end(), [&](const Process& one) {
      return ListensOn(processes, one, *relayPort);
    });
    std::rotate(all.begin(), asked != all.end() ? asked : all.begin(), all.end());
  }
  service.process = all.front();
  service.others.assign(all.begin() + 1, all.end());
  service.folder = processes.FolderOf(all.front().pid);
  if (auto environment = processes.EnvironmentOf(all.front().pid)) {
    service.mayLookInto = true;
    service.environment = std::move(*environment);
  }
  return service;
}

MachineConfiguration ReadConfigurationOf(const RunningService& service) {
  if (!service.mayLookInto) {
    return ReadMachineConfiguration();
  }
  const VariableScope as(ConfigurationOf(service));
  return ReadMachineConfiguration();
}

// A socket takes the low 16 bits of the number.
uint16_t RelayPortByConfiguration() {
  const RunningService service = FindService(ProcessTable(), std::nullopt);
  return static_cast<uint16_t>(ReadConfigurationOf(service).relayPort);
}
