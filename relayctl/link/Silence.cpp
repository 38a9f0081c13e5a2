// SPDX-License-Identifier: MIT
#include "link/Silence.h"

#include <arpa/inet.h>
#include <unistd.h>

#include <algorithm>
#include <optional>

namespace {

// A link that the service has taken. One that it has not taken yet has no inode.
bool IsLink(const TcpSocket& socket, uint16_t relayPort) {
  return socket.localPort == relayPort && socket.localAddress == INADDR_LOOPBACK &&
         socket.inode != 0 && (socket.state == kTcpEstablished || socket.state == kTcpPeerHasLeft);
}

// Who has the other end, unless it is the calling process, or nobody any more.
std::optional<ProcessSearch> HolderOf(const TcpSocket& link, const std::vector<TcpSocket>& sockets,
                                      const ProcessTable& processes) {
  const TcpSocket* const peer = PeerOf(link, sockets);
  if (peer == nullptr || peer->inode == 0) {
    return std::nullopt;
  }
  ProcessSearch owners = processes.OwnersOf(peer->inode);
  const bool isOwn = std::any_of(owners.found.begin(), owners.found.end(),
                                 [](const Process& owner) { return owner.pid == getpid(); });
  return isOwn ? std::nullopt : std::optional(std::move(owners));
}

}  // namespace

std::string WhyNoAnswer(const ProcessTable& processes, uint16_t relayPort) {
  const std::vector<TcpSocket> sockets = processes.TcpSockets();
  for (const TcpSocket& socket : sockets) {
    if (!IsLink(socket, relayPort)) {
      continue;
    }
    if (const std::optional<ProcessSearch> holder = HolderOf(socket, sockets, processes)) {
      return "another peer holds the link: " + NamesOf(*holder);
    }
  }
  return "the service does not answer; relayctl doctor tells more";
}

std::string SilenceText(uint16_t relayPort) {
  return "no answer from 127.0.0.1:" + std::to_string(relayPort) +
         " yet: " + WhyNoAnswer(ProcessTable(), relayPort);
}
