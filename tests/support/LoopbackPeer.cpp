// SPDX-License-Identifier: MIT
#include "support/LoopbackPeer.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <vector>

#include "support/Hex.h"

namespace {

sockaddr_in Address(const char* text, uint32_t port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<uint16_t>(port));
  EXPECT_EQ(1, inet_pton(AF_INET, text, &address.sin_addr));
  return address;
}

int NewStream() { return socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0); }

void SetReuse(int descriptor, int value) {
  EXPECT_EQ(0, setsockopt(descriptor, SOL_SOCKET, SO_REUSEADDR, &value, sizeof value));
}

int Bind(int descriptor, const sockaddr_in& address) {
  return bind(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address);
}

}  // namespace

ReservedPort::ReservedPort() : descriptor(NewStream()) {
  SetReuse(descriptor, 1);
  EXPECT_EQ(0, Bind(descriptor, Address("127.0.0.1", 0)));
  sockaddr_in bound{};
  socklen_t length = sizeof bound;
  EXPECT_EQ(0, getsockname(descriptor, reinterpret_cast<sockaddr*>(&bound), &length));
  number = ntohs(bound.sin_port);
}

ReservedPort::~ReservedPort() { (void)close(descriptor); }

void ReservedPort::KeepForItself() const { SetReuse(descriptor, 0); }

void ReservedPort::Share() const { SetReuse(descriptor, 1); }

int LoopbackPeer::ConnectTo(uint32_t port, const char* ownAddress) {
  descriptor = NewStream();
  LimitWaits();
  const int on = 1;
  EXPECT_EQ(0, setsockopt(descriptor, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on));
  EXPECT_EQ(0, Bind(descriptor, Address(ownAddress, 0)));
  const sockaddr_in address = Address("127.0.0.1", port);
  return connect(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0
             ? 0
             : errno;
}

void LoopbackPeer::ListenOn(uint32_t port) {
  listening = NewStream();
  SetReuse(listening, 1);
  ASSERT_EQ(0, Bind(listening, Address("127.0.0.1", port)));
  ASSERT_EQ(0, listen(listening, 1));
}

void LoopbackPeer::Accept() {
  descriptor = accept4(listening, nullptr, nullptr, SOCK_CLOEXEC);
  ASSERT_NE(-1, descriptor);
  LimitWaits();
}

void LoopbackPeer::LimitWaits() const {
  const timeval limit{20, 0};
  EXPECT_EQ(0, setsockopt(descriptor, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit));
  EXPECT_EQ(0, setsockopt(descriptor, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit));
}

void LoopbackPeer::Sends(const std::string& hexText) const {
  const std::vector<uint8_t> bytes = FromHex(hexText);
  for (size_t sent = 0; sent < bytes.size();) {
    // write, because tests replace send.
    const ssize_t count = write(descriptor, bytes.data() + sent, bytes.size() - sent);
    ASSERT_GT(count, 0) << errno;
    sent += static_cast<size_t>(count);
  }
}

std::string LoopbackPeer::Receives(size_t count) const {
  std::vector<uint8_t> bytes(count);
  size_t received = 0;
  while (received < count) {
    const ssize_t more = read(descriptor, bytes.data() + received, count - received);
    if (more <= 0) {
      break;
    }
    received += static_cast<size_t>(more);
  }
  return ToHex(bytes.data(), received);
}

bool LoopbackPeer::SeesEnd() const {
  char byte = 0;
  const ssize_t count = read(descriptor, &byte, 1);
  return count == 0 || (count == -1 && errno == ECONNRESET);
}

void LoopbackPeer::Close() {
  for (int* owned : {&descriptor, &listening}) {
    if (*owned != -1) {
      (void)close(*owned);
      *owned = -1;
    }
  }
}
