// SPDX-License-Identifier: MIT
// What the kernel tells about the machine's processes and TCP connections.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

struct Process {
  pid_t pid = 0;
  std::string command;  // the kernel's short name, at most 15 bytes
  char state = 0;       // 'R', 'S', 'T' …, as in proc(5)
  uid_t user = 0;
  std::set<gid_t> groups;
  bool overridesPermissions = false;  // has the capability to open any file
};

// The service's, whose whole name is longer.
constexpr const char* kServiceShortName = "SerialPortHandl";
bool IsService(const Process& process);

std::string NameOf(const Process& process);  // "agetty (process 123)"

struct ProcessSearch {
  std::vector<Process> found;
  bool complete = true;  // false: some process may not be looked into by this user
};

// "cat (process 12), tee (process 13)", or that nobody was found.
std::string NamesOf(const ProcessSearch& search);

// One line of the table of IPv4 TCP sockets. Addresses and ports in host byte order.
struct TcpSocket {
  uint32_t localAddress = 0;
  uint16_t localPort = 0;
  uint32_t remoteAddress = 0;
  uint16_t remotePort = 0;
  unsigned state = 0;
  uint64_t unread = 0;  // bytes that wait for whoever has the socket
  uint64_t unsent = 0;  // bytes that the other end has not taken yet
  uint64_t inode = 0;   // 0: no process has it yet, or any more
  uid_t user = 0;       // whose it is
};
constexpr unsigned kTcpEstablished = 1;
constexpr unsigned kTcpPeerHasLeft = 8;
constexpr unsigned kTcpListening = 10;

// The other end of a connection within the machine; nullptr: it is gone.
const TcpSocket* PeerOf(const TcpSocket& link, const std::vector<TcpSocket>& sockets);

// `folder`: where its files are, "/proc" but for tests.
class ProcessTable {
 public:
  explicit ProcessTable(std::string folder = "/proc") : proc(std::move(folder)) {}

  // Who has the character device with this number open. Opens nothing itself.
  ProcessSearch HoldersOf(dev_t device) const;

  // Who has a pipe or socket, by what the kernel calls it: "pipe:[123]".
  ProcessSearch HoldersOf(const std::string& link) const;

  // Who has this socket.
  ProcessSearch OwnersOf(uint64_t inode) const;

  // Who has the other end of a connection.
  ProcessSearch OwnersOfPeer(const TcpSocket& link, const std::vector<TcpSocket>& sockets) const;

  // Their names, or that there is nobody.
  std::string NamesOfPeer(const TcpSocket& link, const std::vector<TcpSocket>& sockets) const;

  // "/proc/12", where it is and will be gone with the process.
  std::string FolderOf(pid_t pid) const;

  // What it was started with; nothing when this user may not see it.
  std::optional<std::map<std::string, std::string>> EnvironmentOf(pid_t pid) const;

  // False when it is known to be in another network namespace, or has ended already.
  bool IsReachable(pid_t pid) const;

  // False where the kernel hides the processes of others from this user.
  bool ShowsAll() const;

  // All with this short name.
  std::vector<Process> Named(const std::string& command) const;

  std::vector<TcpSocket> TcpSockets() const;

  // Whether the kernel writes its messages to this terminal ("ttyS2").
  bool IsConsole(const std::string& terminal) const;

 private:
  std::vector<pid_t> Pids() const;
  Process Describe(pid_t pid) const;

  std::string proc;
};
