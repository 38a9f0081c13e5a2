// SPDX-License-Identifier: MIT
#include "e2e/support/Relay.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <utility>

#include "e2e/support/Wire.h"
#include "support/Eventually.h"

namespace {

sockaddr_in Address(const char* host, uint16_t port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = inet_addr(host);
  return address;
}

int TryConnect(uint16_t port, const char* from) {
  const int stream = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const int on = 1;
  const sockaddr_in near = Address(from, 0);
  const sockaddr_in far = Address("127.0.0.1", port);
  (void)setsockopt(stream, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  if (bind(stream, reinterpret_cast<const sockaddr*>(&near), sizeof near) != 0 ||
      connect(stream, reinterpret_cast<const sockaddr*>(&far), sizeof far) != 0) {
    (void)close(stream);
    return -1;
  }
  return stream;
}

}  // namespace

Relay::Relay(uint16_t port, const char* from) {
  (void)Eventually([&] {
    stream = TryConnect(port, from);
    return stream != -1;
  });
}

Relay::~Relay() { Leaves(); }

void Relay::Sends(const std::string& text) const {
  const std::vector<uint8_t> bytes = WireBytes(text);
  SendsBytes({bytes.begin(), bytes.end()});
}

// What cannot be sent shows in what does not come back.
void Relay::SendsBytes(const std::string& bytes) const {
  for (size_t sent = 0; sent < bytes.size();) {
    const ssize_t result = send(stream, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
    if (result < 1) {
      return;
    }
    sent += static_cast<size_t>(result);
  }
}

// Receives until `count` bytes are there.
bool Relay::Fill(size_t count) {
  const auto end = std::chrono::steady_clock::now() + kDeadline;
  while (received.size() < count) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
        end - std::chrono::steady_clock::now());
    pollfd readable = {stream, POLLIN, 0};
    if (left.count() <= 0 || poll(&readable, 1, static_cast<int>(left.count())) != 1) {
      return false;
    }
    std::array<char, 65536> buffer;
    const ssize_t result = recv(stream, buffer.data(), buffer.size(), 0);
    if (result < 1) {
      isClosed = true;
      return false;
    }
    received.append(buffer.data(), static_cast<size_t>(result));
  }
  return true;
}

std::string Relay::NextPacket() {
  constexpr size_t kLengthField = 2;
  size_t length = kLengthField;
  if (Fill(kLengthField)) {
    length = static_cast<size_t>(static_cast<uint8_t>(received[0])) << 8 |
             static_cast<uint8_t>(received[1]);
  }
  if (!Fill(length)) {
    return (isClosed ? "closed" : "nothing") +
           (received.empty() ? "" : " after " + HexOf(received));
  }
  const std::string packet = received.substr(0, length);
  received.erase(0, length);
  return HexOf(packet);
}

std::string Relay::Answer(const std::string& text) {
  Sends(text);
  return NextPacket();
}

void Relay::Leaves() {
  if (stream != -1) {
    (void)close(std::exchange(stream, -1));
  }
}

void Relay::Resets() {
  const linger atOnce = {1, 0};
  (void)setsockopt(stream, SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce);
  Leaves();
}

void Relay::EndsSending() const { (void)shutdown(stream, SHUT_WR); }
