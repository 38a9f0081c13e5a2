// SPDX-License-Identifier: MIT
#include "machine/ProcessTable.h"

#include <arpa/inet.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <fstream>
#include <functional>
#include <sstream>

#include "machine/Files.h"

namespace {

constexpr unsigned kCapabilityToOverride = 1;  // CAP_DAC_OVERRIDE

template <typename Number>
Number NumberFrom(const std::string& text, int base = 10) {
  Number number = 0;
  (void)std::from_chars(text.data(), text.data() + text.size(), number, base);
  return number;
}

std::string FirstLine(const std::string& path) {
  std::ifstream file(path);
  std::string line;
  std::getline(file, line);
  return line;
}

// "0100007F:EA64": the address as the machine's own byte order shows it, the port plainly.
void ReadEndpoint(const std::string& text, uint32_t& address, uint16_t& port) {
  const size_t colon = std::min(text.find(':'), text.size());
  address = ntohl(NumberFrom<uint32_t>(text.substr(0, colon), 16));
  port = colon < text.size() ? NumberFrom<uint16_t>(text.substr(colon + 1), 16) : uint16_t{0};
}

// The descriptors of one process whose link text `accept` takes. False when they may not be seen.
bool AnyDescriptor(const std::string& folder, const std::function<bool(const std::string&)>& accept,
                   bool& found) {
  std::error_code error;
  const std::vector<std::string> descriptors = PathsIn(folder, error);
  found = std::any_of(descriptors.begin(), descriptors.end(), accept);
  return !error || error == std::errc::no_such_file_or_directory;  // it ended meanwhile
}

}  // namespace

bool IsService(const Process& process) { return process.command == kServiceShortName; }

std::string NameOf(const Process& process) {
  return process.command + " (process " + std::to_string(process.pid) + ")";
}

std::string NamesOf(const ProcessSearch& search) {
  std::string names;
  for (const Process& process : search.found) {
    names += (names.empty() ? "" : ", ") + NameOf(process);
  }
  return names.empty() ? "a process that this user may not look into" : names;
}

const TcpSocket* PeerOf(const TcpSocket& link, const std::vector<TcpSocket>& sockets) {
  const auto peer = std::find_if(sockets.begin(), sockets.end(), [&](const TcpSocket& other) {
    return other.localPort == link.remotePort && other.remotePort == link.localPort &&
           other.localAddress == link.remoteAddress && other.remoteAddress == link.localAddress;
  });
  return peer != sockets.end() ? &*peer : nullptr;
}

std::vector<pid_t> ProcessTable::Pids() const {
  std::vector<pid_t> pids;
  for (const std::string& path : PathsIn(proc)) {
    const auto pid = NumberFrom<pid_t>(NameIn(path));
    if (pid > 0) {
      pids.push_back(pid);
    }
  }
  std::sort(pids.begin(), pids.end());
  return pids;
}

Process ProcessTable::Describe(pid_t pid) const {
  Process process;
  process.pid = pid;
  const std::string folder = FolderOf(pid);
  process.command = FirstLine(folder + "/comm");
  std::ifstream status(folder + "/status");
  for (std::string line; std::getline(status, line);) {
    std::istringstream words(line);
    std::string key;
    std::string effective;
    words >> key;
    if (key == "State:") {
      words >> process.state;
    } else if (key == "Uid:") {
      words >> effective >> process.user;  // the second number is the effective one
    } else if (key == "Gid:") {
      gid_t group = 0;
      words >> effective >> group;
      process.groups.insert(group);
    } else if (key == "Groups:") {
      for (gid_t group = 0; words >> group;) {
        process.groups.insert(group);
      }
    } else if (key == "CapEff:") {
      words >> effective;
      process.overridesPermissions =
          (NumberFrom<uint64_t>(effective, 16) >> kCapabilityToOverride & 1) != 0;
    }
  }
  return process;
}

ProcessSearch ProcessTable::HoldersOf(dev_t device) const {
  ProcessSearch search;
  const auto isDevice = [device](const std::string& descriptor) {
    struct stat status {};
    // The link's text first: to ask for the state of what stands on a dead network drive can hang.
    return LinkOf(descriptor).starts_with("/dev/") && stat(descriptor.c_str(), &status) == 0 &&
           S_ISCHR(status.st_mode) && status.st_rdev == device;
  };
  for (const pid_t pid : Pids()) {
    bool found = false;
    search.complete &= AnyDescriptor(FolderOf(pid) + "/fd", isDevice, found);
    if (found) {
      search.found.push_back(Describe(pid));
    }
  }
  return search;
}

ProcessSearch ProcessTable::HoldersOf(const std::string& link) const {
  ProcessSearch search;
  const auto isIt = [&link](const std::string& descriptor) { return LinkOf(descriptor) == link; };
  for (const pid_t pid : Pids()) {
    bool found = false;
    search.complete &= AnyDescriptor(FolderOf(pid) + "/fd", isIt, found);
    if (found) {
      search.found.push_back(Describe(pid));
    }
  }
  return search;
}

ProcessSearch ProcessTable::OwnersOf(uint64_t inode) const {
  return HoldersOf("socket:[" + std::to_string(inode) + "]");
}

ProcessSearch ProcessTable::OwnersOfPeer(const TcpSocket& link,
                                         const std::vector<TcpSocket>& sockets) const {
  const TcpSocket* const peer = PeerOf(link, sockets);
  return peer != nullptr && peer->inode != 0 ? OwnersOf(peer->inode) : ProcessSearch{};
}

std::string ProcessTable::NamesOfPeer(const TcpSocket& link,
                                      const std::vector<TcpSocket>& sockets) const {
  const TcpSocket* const peer = PeerOf(link, sockets);
  return peer != nullptr && peer->inode != 0 ? NamesOf(OwnersOf(peer->inode))
                                             : "a peer that is gone";
}

std::string ProcessTable::FolderOf(pid_t pid) const { return proc + "/" + std::to_string(pid); }

std::optional<std::map<std::string, std::string>> ProcessTable::EnvironmentOf(pid_t pid) const {
  std::ifstream file(FolderOf(pid) + "/environ");
  std::map<std::string, std::string> environment;
  for (std::string entry; std::getline(file, entry, '\0');) {
    const size_t equals = std::min(entry.find('='), entry.size());
    environment.emplace(entry.substr(0, equals), entry.substr(std::min(equals + 1, entry.size())));
  }
  return file.is_open() ? std::optional(environment) : std::nullopt;
}

bool ProcessTable::IsReachable(pid_t pid) const {
  const std::string ours = LinkOf(proc + "/self/ns/net");
  const std::string theirs = LinkOf(FolderOf(pid) + "/ns/net");
  return Describe(pid).state != 'Z' && (theirs.empty() || ours == theirs);
}

// The first process is never this user's own, where others are hidden from it.
bool ProcessTable::ShowsAll() const { return access(FolderOf(1).c_str(), F_OK) == 0; }

std::vector<Process> ProcessTable::Named(const std::string& command) const {
  std::vector<Process> processes;
  for (const pid_t pid : Pids()) {
    if (FirstLine(FolderOf(pid) + "/comm") == command) {
      processes.push_back(Describe(pid));
    }
  }
  return processes;
}

std::vector<TcpSocket> ProcessTable::TcpSockets() const {
  std::vector<TcpSocket> sockets;
  std::ifstream table(proc + "/net/tcp");
  std::string line;
  std::getline(table, line);  // the headings
  while (std::getline(table, line)) {
    std::istringstream words(line);
    std::string number, local, remote, state, queues, timer, retries, user, timeout;
    TcpSocket socket;
    words >> number >> local >> remote >> state >> queues >> timer >> retries >> user >> timeout >>
        socket.inode;
    ReadEndpoint(local, socket.localAddress, socket.localPort);
    ReadEndpoint(remote, socket.remoteAddress, socket.remotePort);
    socket.state = NumberFrom<unsigned>(state, 16);
    socket.user = NumberFrom<uid_t>(user);
    socket.unsent = NumberFrom<uint64_t>(queues.substr(0, queues.find(':')), 16);
    socket.unread = NumberFrom<uint64_t>(queues.substr(queues.find(':') + 1), 16);
    sockets.push_back(socket);
  }
  return sockets;
}

bool ProcessTable::IsConsole(const std::string& terminal) const {
  std::ifstream consoles(proc + "/consoles");
  for (std::string line; std::getline(consoles, line);) {
    if (line.substr(0, line.find(' ')) == terminal) {
      return true;
    }
  }
  return false;
}
