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
#include <utility>

#include "e2e/support/Relay.h"

namespace {

constexpr char kOpen = 1;
constexpr char kClose = 2;
constexpr char kData = 4;
constexpr char kNamed = 2;
constexpr char kBlockFromPort = 2;
constexpr size_t kNameAt = 6;

std::string Big16(size_t value) {
  return {static_cast<char>(static_cast<uint8_t>(value >> 8)),
          static_cast<char>(static_cast<uint8_t>(value))};
}

size_t Read16(const std::string& bytes, size_t at) {
  return static_cast<size_t>(static_cast<uint8_t>(bytes[at])) << 8 |
         static_cast<uint8_t>(bytes[at + 1]);
}

std::string Named(char code, const std::string& name, const std::string& body) {
  return Big16(kNameAt + name.size() + body.size()) + code + kNamed + Big16(name.size()) + name +
         body;
}

}  // namespace

std::string command::Open(const std::string& name) { return Named(kOpen, name, ""); }

std::string command::Close(const std::string& name) { return Named(kClose, name, ""); }

std::string command::Data(const std::string& name, const std::vector<std::string>& blocks) {
  std::string body(1, static_cast<char>(blocks.size()));
  for (const std::string& block : blocks) {
    body += char{1} + Big16(block.size()) + block;
  }
  return Named(kData, name, body);
}

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
    received.append(buffer.data(), static_cast<size_t>(count));
  } else {
    hasEnded = count == 0 || (errno != EAGAIN && errno != EINTR);
  }
  std::vector<Packet> packets;
  size_t at = 0;
  while (received.size() >= at + 2 && !isMalformed) {
    const size_t length = Read16(received, at);
    if (length <= kNameAt) {
      isMalformed = true;
    } else if (received.size() < at + length) {
      break;
    } else {
      packets.emplace_back();
      isMalformed = !Parse(received.substr(at, length), packets.back());
      at += length;
    }
  }
  received.erase(0, at);
  return packets;
}

bool RelayLink::Parse(const std::string& bytes, Packet& packet) const {
  const size_t nameLength = Read16(bytes, 4);
  const size_t body = kNameAt + nameLength;
  if (bytes[3] != kNamed || bytes.size() < body + 2) {
    return false;
  }
  packet.name = bytes.substr(kNameAt, nameLength);
  if (bytes[2] == kOpen || bytes[2] == kClose) {
    packet.reply = (bytes[2] == kOpen ? "open " : "close ") + packet.name + " " +
                   std::to_string(Read16(bytes, body));
    return bytes.size() == body + 2;
  }
  constexpr size_t kBlockHeader = 4;  // the count of blocks, the type, the length
  if (bytes[2] != kData || bytes.size() < body + kBlockHeader || bytes[body] != 1 ||
      bytes[body + 1] != kBlockFromPort ||
      bytes.size() != body + kBlockHeader + Read16(bytes, body + 2)) {
    return false;
  }
  packet.data = bytes.substr(body + kBlockHeader);
  return true;
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
  received.clear();
}

void RelayLink::Resets() {
  const linger atOnce = {1, 0};
  (void)setsockopt(stream, SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce);
  Leaves();
}
