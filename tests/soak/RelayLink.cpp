// SPDX-License-Identifier: MIT
#include "soak/RelayLink.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <optional>
#include <utility>

#include "e2e/support/Relay.h"
#include "relay/Error.h"

namespace {

// Empty when it is none that the service sends.
std::optional<Packet> Taken(const std::string& bytes) {
  const relay::ParsedPacket parsed = relay::ParsePacket(bytes, relay::Direction::kFromService);
  const relay::Packet& packet = parsed.packet;
  if (!parsed.problem.empty() || packet.port.IsNumbered()) {
    return std::nullopt;
  }
  if (packet.command != kCommandData) {
    return Packet{(packet.command == kCommandOpen ? "open " : "close ") + packet.port.name + " " +
                      std::to_string(*packet.number),
                  packet.port.name,
                  {}};
  }
  if (packet.blocks.size() != 1 || packet.blocks[0].type != kReceivedDataBlock) {
    return std::nullopt;
  }
  return Packet{{}, packet.port.name, packet.blocks[0].data};
}

}  // namespace

RelayLink::~RelayLink() { Leaves(); }

bool RelayLink::Connect() {
  Leaves();
  const int fresh = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const int on = 1;
  sockaddr_in service{};
  service.sin_family = AF_INET;
  service.sin_port = htons(Relay::kDefaultPort);
  service.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  (void)setsockopt(fresh, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  if (connect(fresh, reinterpret_cast<const sockaddr*>(&service), sizeof service) != 0) {
    (void)close(fresh);
    return false;
  }
  (void)fcntl(fresh, F_SETFL, O_NONBLOCK);
  stream = fresh;
  hasEnded = false;
  endsSending = false;
  return true;
}

void RelayLink::Flush() {
  while (!waiting.empty() && IsConnected() && !endsSending) {
    const ssize_t sent = send(stream, waiting.data(), waiting.size(), MSG_NOSIGNAL);
    if (sent < 1) {
      return;  // what ends the link shows in recv
    }
    waiting.erase(0, static_cast<size_t>(sent));
  }
}

std::vector<Packet> RelayLink::Receives() {
  std::array<char, 65536> buffer;
  const ssize_t count = recv(stream, buffer.data(), buffer.size(), 0);
  if (count > 0) {
    received.Add({buffer.data(), static_cast<size_t>(count)});
  } else {
    hasEnded = count == 0 || (errno != EAGAIN && errno != EINTR);
  }
  std::vector<Packet> packets;
  try {
    while (const auto bytes = received.Next()) {
      const auto packet = Taken(*bytes);
      isMalformed = isMalformed || !packet;
      packets.push_back(packet.value_or(Packet()));
    }
  } catch (const relay::Error&) {
    isMalformed = true;
  }
  return packets;
}

void RelayLink::EndsSending() {
  (void)shutdown(stream, SHUT_WR);
  endsSending = true;
}

void RelayLink::Leaves() {
  if (stream != -1) {
    (void)close(std::exchange(stream, -1));
  }
  waiting.clear();
  received.Clear();
}

void RelayLink::Resets() {
  const linger atOnce = {1, 0};
  (void)setsockopt(stream, SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce);
  Leaves();
}
