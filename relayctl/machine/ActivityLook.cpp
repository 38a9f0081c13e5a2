// SPDX-License-Identifier: MIT
#include "machine/ActivityLook.h"

#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/sysmacros.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <set>
#include <sstream>

#include "machine/Files.h"
#include "machine/ProcessStat.h"

namespace {

uint64_t WaitsOf(const std::string& folder) {
  return std::strtoull(ValueIn(TextOf(folder + "/status"), "voluntary_ctxt_switches").c_str(),
                       nullptr, 10);
}

ThreadLook LookAtThread(const std::string& process, const std::string& folder) {
  ThreadLook look;
  look.processorMillis = ProcessStat(folder).ProcessorMillis();
  look.waits = WaitsOf(folder);
  look.waitChannel = TextOf(folder + "/wchan");
  std::istringstream call(TextOf(folder + "/syscall"));
  uint64_t argument = 0;
  if (call >> look.call >> std::hex >> argument) {
    look.descriptor = process + "/fd/" + std::to_string(argument);
    look.target = LinkOf(look.descriptor);
  } else {
    look.call = -1;
  }
  return look;
}

// The number of the device that a descriptor leads to; 0: it is none. The link's text comes first:
// to ask for the state of what stands on a dead network drive can hang.
dev_t DeviceOf(const std::string& descriptor) {
  struct stat status {};
  return LinkOf(descriptor).starts_with("/dev/") && stat(descriptor.c_str(), &status) == 0 &&
                 S_ISCHR(status.st_mode)
             ? status.st_rdev
             : 0;
}

// Memory devices as /dev/null; /dev/tty and the far ends of pseudo-terminals.
bool CanBeLine(dev_t device) {
  constexpr unsigned kMemory = 1;
  constexpr unsigned kFarEnds = 5;
  return device != 0 && major(device) != kMemory && major(device) != kFarEnds;
}

// One that was closed meanwhile is as good as shown.
bool IsShown(const std::string& descriptor) {
  std::error_code error;
  (void)std::filesystem::read_symlink(descriptor, error);
  return error != std::errc::permission_denied;
}

// All terminals but those of the standard streams, and the one that it has in order to have one.
std::vector<OpenLine> LinesOf(const std::string& folder, bool& areShown) {
  std::error_code error;
  const std::vector<std::string> descriptors = PathsIn(folder + "/fd", error);
  // The folder may be open to a user to whom its links are not.
  areShown = !error && std::all_of(descriptors.begin(), descriptors.end(), IsShown);
  std::set<dev_t> others = {ProcessStat(folder).Terminal()};
  for (const char* const stream : {"/fd/0", "/fd/1", "/fd/2"}) {
    others.insert(DeviceOf(folder + stream));
  }
  std::vector<OpenLine> lines;
  for (const std::string& descriptor : descriptors) {
    const dev_t device = DeviceOf(descriptor);
    if (CanBeLine(device) && !others.contains(device)) {
      lines.push_back({device, LinkOf(descriptor)});
    }
  }
  return lines;
}

}  // namespace

bool ThreadLook::WritesToTerminal() const {
  return call == SYS_write && target.starts_with("/dev/");
}

bool ThreadLook::ReadsFromTerminal() const {
  return call == SYS_read && target.starts_with("/dev/");
}

// The service polls for nothing else so long that a look would meet it.
bool ThreadLook::WaitsForReader() const {
  return waitChannel.find("poll") != std::string::npos ||
         (call == SYS_write && target.starts_with("pipe:"));
}

bool ThreadLook::Sends() const {
  return call == SYS_write || call == SYS_sendto || call == SYS_sendmsg || call == SYS_writev;
}

ActivityLook LookAtActivity(const ProcessTable& processes, const std::string& folder,
                            LineAccess lines) {
  ActivityLook look;
  look.sockets = processes.TcpSockets();
  look.lines = LinesOf(folder, look.filesAreShown);
  for (const std::string& path : PathsIn(folder + "/task")) {
    ThreadLook seen = LookAtThread(folder, path);
    if (lines != LineAccess::kNone && seen.WritesToTerminal()) {
      if (const std::optional<LineProgress> line = ReadProgress(seen.descriptor)) {
        look.progress[seen.target] = *line;
      }
    }
    look.threads[std::atoi(NameIn(path).c_str())] = std::move(seen);
  }
  return look;
}
