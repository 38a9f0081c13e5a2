// SPDX-License-Identifier: MIT
#include "machine/ServiceActivity.h"

#include <arpa/inet.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <map>
#include <optional>
#include <sstream>
#include <thread>

#include "machine/Files.h"
#include "machine/TerminalDevice.h"

namespace {

using Clock = std::chrono::steady_clock;

// A second in all: what hangs shows in that nothing changes from one look to the next.
constexpr int kLooks = 20;
constexpr std::chrono::milliseconds kPause{50};

// A search takes less, also on a slow board.
constexpr double kLongSearchSeconds = 5;

struct ThreadLook {
  uint64_t ticks = 0;
  uint64_t waits = 0;
  long call = -1;      // of the system call that it waits in
  std::string target;  // of the descriptor that is the call's first argument
  std::string descriptor;
};

struct Look {
  std::vector<TcpSocket> sockets;
  std::map<pid_t, ThreadLook> threads;
  std::map<std::string, LineProgress> lines;  // of the terminals that are being written to
};

// The fields behind the name, which may hold anything: the state is the first, proc(5) counts it
// as the third.
std::vector<std::string> StatFields(const std::string& folder) {
  const std::string stat = TextOf(folder + "/stat");
  std::istringstream words(stat.substr(std::min(stat.rfind(')') + 1, stat.size())));
  std::vector<std::string> fields;
  for (std::string word; words >> word;) {
    fields.push_back(word);
  }
  return fields;
}

uint64_t NumberAt(const std::vector<std::string>& fields, size_t number) {
  return number - 3 < fields.size() ? std::strtoull(fields[number - 3].c_str(), nullptr, 10) : 0;
}

uint64_t WaitsOf(const std::string& folder) {
  constexpr const char* kKey = "\nvoluntary_ctxt_switches:";
  const std::string status = TextOf(folder + "/status");
  const size_t found = status.find(kKey);
  return found == std::string::npos
             ? 0
             : std::strtoull(status.c_str() + found + std::string(kKey).size(), nullptr, 10);
}

ThreadLook LookAtThread(const std::string& process, const std::string& folder) {
  ThreadLook look;
  const std::vector<std::string> fields = StatFields(folder);
  look.ticks = NumberAt(fields, 14) + NumberAt(fields, 15);
  look.waits = WaitsOf(folder);
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

bool WritesToTerminal(const ThreadLook& look) {
  return look.call == SYS_write && look.target.starts_with("/dev/");
}

bool SendsBytes(long call) {
  return call == SYS_write || call == SYS_sendto || call == SYS_sendmsg || call == SYS_writev;
}

Look LookAt(const ProcessTable& processes, const std::string& folder) {
  Look look;
  look.sockets = processes.TcpSockets();
  for (const std::string& path : PathsIn(folder + "/task")) {
    ThreadLook seen = LookAtThread(folder, path);
    if (WritesToTerminal(seen)) {
      if (const std::optional<LineProgress> line = ReadProgress(seen.descriptor)) {
        look.lines[seen.target] = *line;
      }
    }
    look.threads[std::atoi(NameIn(path).c_str())] = std::move(seen);
  }
  return look;
}

bool LineMoved(const std::vector<Look>& looks, const std::string& terminal) {
  const auto first = looks.front().lines.find(terminal);
  const auto last = looks.back().lines.find(terminal);
  return first != looks.front().lines.end() && last != looks.back().lines.end() &&
         first->second != last->second;
}

std::optional<ThreadActivity> ThreadOver(const std::vector<Look>& looks, pid_t id) {
  ThreadActivity thread;
  thread.id = id;
  const ThreadLook& first = looks.front().threads.at(id);
  std::string descriptor;
  for (const Look& look : looks) {
    const auto found = look.threads.find(id);
    if (found == look.threads.end()) {
      return std::nullopt;
    }
    const ThreadLook& seen = found->second;
    if (WritesToTerminal(seen)) {
      thread.wroteAlways &= thread.terminal.empty() || thread.terminal == seen.target;
      thread.terminal = seen.target;
      descriptor = seen.descriptor;
    } else {
      thread.wroteAlways = false;
    }
  }
  const ThreadLook& last = looks.back().threads.at(id);
  thread.waits = last.waits - first.waits;
  const auto ticksASecond = static_cast<uint64_t>(sysconf(_SC_CLK_TCK));
  thread.processorMillis = (last.ticks - first.ticks) * 1000 / ticksASecond;
  struct stat status {};
  if (!thread.terminal.empty() && stat(descriptor.c_str(), &status) == 0) {
    thread.terminalNumber = status.st_rdev;
    thread.terminalMoves = thread.waits != 0 || LineMoved(looks, thread.terminal);
  }
  return thread;
}

const TcpSocket* FindAgain(const Look& look, const TcpSocket& socket) {
  const auto found =
      std::find_if(look.sockets.begin(), look.sockets.end(), [&](const TcpSocket& one) {
        return one.localPort == socket.localPort && one.remotePort == socket.remotePort &&
               one.localAddress == socket.localAddress && one.inode == socket.inode &&
               one.state == socket.state;
      });
  return found != look.sockets.end() ? &*found : nullptr;
}

bool IsWaitedFor(const Look& look, const TcpSocket& socket) {
  const std::string target = "socket:[" + std::to_string(socket.inode) + "]";
  return std::any_of(look.threads.begin(), look.threads.end(), [&](const auto& entry) {
    return entry.second.target == target && !SendsBytes(entry.second.call);
  });
}

// What the peer has to read: the bytes at its own end, if that can be seen. Some of what waits at
// the service's end the kernel may move there although nobody reads.
uint64_t ToReadFrom(const Look& look, const TcpSocket& socket) {
  const TcpSocket* const peer = PeerOf(socket, look.sockets);
  return peer != nullptr ? peer->unread : socket.unsent;
}

std::optional<LinkActivity> LinkOver(const std::vector<Look>& looks, const TcpSocket& socket) {
  LinkActivity link;
  link.socket = socket;
  TcpSocket before = socket;
  uint64_t toReadBefore = 0;
  for (const Look& look : looks) {
    const TcpSocket* const now = FindAgain(look, socket);
    if (now == nullptr) {
      return std::nullopt;
    }
    link.wasUnread &= now->unread > 0;
    link.wasUnsent &= now->unsent > 0;
    link.wasTakenFrom |= now->unread < before.unread;
    const uint64_t toRead = ToReadFrom(look, *now);
    link.peerHasRead |= toRead < toReadBefore;
    toReadBefore = toRead;
    link.isWaitedFor |= IsWaitedFor(look, socket);
    before = *now;
  }
  link.socket = before;
  return link;
}

double SecondsOf(const ProcessTable& processes, pid_t pid) {
  const double up = std::strtod(TextOf("/proc/uptime").c_str(), nullptr);
  const uint64_t started = NumberAt(StatFields(processes.FolderOf(pid)), 22);
  return up - static_cast<double>(started) / static_cast<double>(sysconf(_SC_CLK_TCK));
}

// The service runs it by way of a shell.
std::vector<Process> LongSearches(const ProcessTable& processes, pid_t service) {
  const auto parentOf = [&](pid_t pid) {
    return static_cast<pid_t>(NumberAt(StatFields(processes.FolderOf(pid)), 4));
  };
  std::vector<Process> searches = processes.Named("udevadm");
  std::erase_if(searches, [&](const Process& search) {
    const pid_t parent = parentOf(search.pid);
    return (parent != service && parentOf(parent) != service) ||
           SecondsOf(processes, search.pid) < kLongSearchSeconds;
  });
  return searches;
}

}  // namespace

ServiceActivity WatchService(const ProcessTable& processes, const Process& service,
                             uint16_t relayPort) {
  const std::string folder = processes.FolderOf(service.pid);
  const auto begin = Clock::now();
  std::vector<Look> looks = {LookAt(processes, folder)};
  while (looks.size() < kLooks) {
    std::this_thread::sleep_for(kPause);
    looks.push_back(LookAt(processes, folder));
  }
  ServiceActivity activity;
  activity.moment = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - begin);
  activity.state = service.state;
  activity.callsAreShown = !TextOf(folder + "/syscall").empty();
  for (const auto& [id, look] : looks.front().threads) {
    if (const auto thread = ThreadOver(looks, id)) {
      activity.threads.push_back(*thread);
      activity.threads.back().waitChannel =
          TextOf(folder + "/task/" + std::to_string(id) + "/wchan");
    }
  }
  for (const TcpSocket& socket : looks.front().sockets) {
    if (socket.localPort != relayPort || socket.localAddress != INADDR_LOOPBACK ||
        socket.state == kTcpListening) {
      continue;
    }
    if (const auto link = LinkOver(looks, socket)) {
      activity.links.push_back(*link);
    }
  }
  activity.searches = LongSearches(processes, service.pid);
  return activity;
}
