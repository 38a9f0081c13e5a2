// SPDX-License-Identifier: MIT
#include "machine/ServiceActivity.h"

#include <arpa/inet.h>
#include <sys/stat.h>

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <optional>
#include <string_view>
#include <thread>

#include "machine/Files.h"
#include "machine/IdleTime.h"
#include "machine/ProcessStat.h"

namespace {

using Clock = std::chrono::steady_clock;

// A second in all: what hangs shows in that nothing changes from one look to the next.
constexpr int kLooks = 20;
constexpr std::chrono::milliseconds kPause{50};

// A search takes less, also on a slow board.
constexpr double kLongSearchSeconds = 5;

// Of a line that the service has open; 0: it has none at this path.
dev_t NumberOf(const std::vector<ActivityLook>& looks, const std::string& path) {
  const std::vector<OpenLine>& lines = looks.back().lines;
  const auto line = std::find_if(lines.begin(), lines.end(),
                                 [&](const OpenLine& one) { return one.path == path; });
  return line != lines.end() ? line->number : 0;
}

bool LineTells(const std::vector<ActivityLook>& looks, const std::string& terminal) {
  return std::any_of(looks.begin(), looks.end(), [&](const ActivityLook& look) {
    const auto line = look.progress.find(terminal);
    return line != look.progress.end() && line->second.isTold;
  });
}

bool LineMoved(const std::vector<ActivityLook>& looks, const std::string& terminal) {
  const auto first = looks.front().progress.find(terminal);
  const auto last = looks.back().progress.find(terminal);
  return first != looks.front().progress.end() && last != looks.back().progress.end() &&
         first->second != last->second;
}

std::optional<ThreadActivity> ThreadOver(const std::vector<ActivityLook>& looks, pid_t id) {
  ThreadActivity thread;
  thread.id = id;
  const ThreadLook& first = looks.front().threads.at(id);
  std::string descriptor;
  unsigned readerLooks = 0;
  for (const ActivityLook& look : looks) {
    const auto found = look.threads.find(id);
    if (found == look.threads.end()) {
      return std::nullopt;
    }
    const ThreadLook& seen = found->second;
    readerLooks += seen.WaitsForReader() ? 1U : 0U;
    if (seen.ReadsFromTerminal()) {
      thread.receivesFrom = NumberOf(looks, seen.target);
    }
    if (seen.WritesToTerminal()) {
      thread.wroteAlways &= thread.terminal.empty() || thread.terminal == seen.target;
      thread.terminal = seen.target;
      descriptor = seen.descriptor;
    } else {
      thread.wroteAlways = false;
    }
  }
  const ThreadLook& last = looks.back().threads.at(id);
  thread.waits = last.waits - first.waits;
  thread.processorMillis = last.processorMillis - first.processorMillis;
  thread.waitChannel = last.waitChannel;
  thread.waitsForReader = readerLooks > looks.size() / 2;
  struct stat status {};
  if (!thread.terminal.empty() && stat(descriptor.c_str(), &status) == 0) {
    thread.terminalNumber = status.st_rdev;
    thread.terminalMoves = thread.waits != 0 || LineMoved(looks, thread.terminal);
    thread.terminalTells = LineTells(looks, thread.terminal);
  }
  return thread;
}

const TcpSocket* FindAgain(const ActivityLook& look, const TcpSocket& socket) {
  const auto found =
      std::find_if(look.sockets.begin(), look.sockets.end(), [&](const TcpSocket& one) {
        return one.localPort == socket.localPort && one.remotePort == socket.remotePort &&
               one.localAddress == socket.localAddress && one.inode == socket.inode &&
               one.state == socket.state;
      });
  return found != look.sockets.end() ? &*found : nullptr;
}

bool IsWaitedFor(const ActivityLook& look, const TcpSocket& socket) {
  const std::string target = "socket:[" + std::to_string(socket.inode) + "]";
  return std::any_of(look.threads.begin(), look.threads.end(), [&](const auto& entry) {
    return entry.second.target == target && !entry.second.Sends();
  });
}

// What the peer has to read: the bytes at its own end, if that can be seen. Some of what waits at
// the service's end the kernel may move there although nobody reads.
uint64_t ToReadFrom(const ActivityLook& look, const TcpSocket& socket) {
  const TcpSocket* const peer = PeerOf(socket, look.sockets);
  return peer != nullptr ? peer->unread : socket.unsent;
}

std::optional<LinkActivity> LinkOver(const std::vector<ActivityLook>& looks,
                                     const TcpSocket& socket) {
  LinkActivity link;
  link.socket = socket;
  TcpSocket before = socket;
  uint64_t toReadBefore = 0;
  for (const ActivityLook& look : looks) {
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

// The service runs it by way of a shell.
std::vector<Process> LongSearches(const ProcessTable& processes, pid_t service) {
  const auto parentOf = [&](pid_t pid) { return ProcessStat(processes.FolderOf(pid)).Parent(); };
  std::vector<Process> searches = processes.Named("udevadm");
  std::erase_if(searches, [&](const Process& search) {
    const pid_t parent = parentOf(search.pid);
    return (parent != service && parentOf(parent) != service) ||
           ProcessStat(processes.FolderOf(search.pid)).Age() < kLongSearchSeconds;
  });
  return searches;
}

// What a thread has read from files, terminals and pipes; a socket does not count.
std::optional<uint64_t> ReadBytesOf(const std::string& folder) {
  constexpr std::string_view kKey = "rchar: ";
  const std::string text = TextOf(folder + "/io");
  return text.starts_with(kKey)
             ? std::optional(std::strtoull(text.c_str() + kKey.size(), nullptr, 10))
             : std::nullopt;
}

// Beside the main thread and the one that receives from the peer there is one for each port,
// whether its device is there or not.
void CountPorts(const std::vector<ActivityLook>& looks, ServiceActivity& activity) {
  constexpr size_t kOthers = 2;
  const auto ofAll = [&](auto count) {
    unsigned least = UINT_MAX;
    for (const ActivityLook& look : looks) {
      const size_t threads = std::max(look.threads.size(), kOthers) - kOthers;
      least = std::min(least, static_cast<unsigned>(count(threads, look)));
    }
    return least;
  };
  activity.filesAreShown = looks.back().filesAreShown;
  activity.lines = looks.back().lines;
  if (activity.filesAreShown) {
    activity.portsAway = ofAll([](size_t threads, const ActivityLook& look) {
      return std::max(threads, look.lines.size()) - look.lines.size();
    });
    activity.portsUnserved = ofAll([](size_t threads, const ActivityLook& look) {
      return std::max(threads, look.lines.size()) - threads;
    });
  }
  const bool isServed = std::any_of(activity.links.begin(), activity.links.end(), IsServed);
  const bool wasAlone = std::all_of(looks.begin(), looks.end(), [](const ActivityLook& look) {
    return look.threads.size() == 1;
  });
  activity.peerIsUnserved = wasAlone && isServed;
}

// The links to the service, not those of others that begin at such a port.
void AddLinks(const std::vector<ActivityLook>& looks, uint16_t relayPort,
              ServiceActivity& activity) {
  const std::vector<TcpTraffic> traffic = TcpTrafficOf(relayPort, activity.trafficProblem);
  for (const TcpSocket& socket : looks.front().sockets) {
    if (socket.localPort != relayPort || socket.localAddress != INADDR_LOOPBACK ||
        socket.state == kTcpListening) {
      continue;
    }
    if (auto link = LinkOver(looks, socket)) {
      for (const TcpTraffic& one : traffic) {
        if (one.remotePort == socket.remotePort && one.remoteAddress == socket.remoteAddress) {
          link->traffic = one;
        }
      }
      activity.links.push_back(*link);
    }
  }
}

void AddThreads(const std::vector<ActivityLook>& looks, const std::string& folder,
                ServiceActivity& activity) {
  for (const auto& [id, look] : looks.front().threads) {
    if (auto thread = ThreadOver(looks, id)) {
      const std::string own = folder + "/task/" + std::to_string(id);
      thread->idle = IdleSecondsOf(own);
      thread->startedAt = ProcessStat(own).StartedAt();
      thread->receivedBytes = ReadBytesOf(own);
      activity.threads.push_back(std::move(*thread));
    }
  }
}

}  // namespace

bool IsServed(const LinkActivity& link) { return link.socket.inode != 0; }

ServiceActivity WatchService(const ProcessTable& processes, const Process& service,
                             uint16_t relayPort, LineAccess lines) {
  const std::string folder = processes.FolderOf(service.pid);
  const auto begin = Clock::now();
  std::vector<ActivityLook> looks = {LookAtActivity(processes, folder, lines)};
  while (looks.size() < kLooks) {
    std::this_thread::sleep_for(kPause);  // what moves meanwhile is what is looked for
    looks.push_back(LookAtActivity(processes, folder, lines));
  }
  ServiceActivity activity;
  activity.moment = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - begin);
  activity.state = service.state;
  activity.linesWereAsked = lines != LineAccess::kNone;
  activity.callsAreShown = !TextOf(folder + "/syscall").empty();
  AddThreads(looks, folder, activity);
  AddLinks(looks, relayPort, activity);
  CountPorts(looks, activity);
  activity.searches = LongSearches(processes, service.pid);
  return activity;
}
