// SPDX-License-Identifier: MIT
#include "relay/Socket.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>

namespace relay::link {

namespace {

// Speed only: a link works without.
void SetOption(int socket, int option) {
  const int on = 1;
  (void)setsockopt(socket, IPPROTO_TCP, option, &on, sizeof on);
}

// Of this machine. 0: any free port.
sockaddr_in AddressOf(uint16_t port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return address;
}

// With a local port of the kernel's choice. -1 with errno.
int BoundSocket() {
  const int socket = ::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  const sockaddr_in address = AddressOf(0);
  if (socket != -1 &&
      bind(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    const int error = errno;
    (void)close(socket);
    errno = error;
    return -1;
  }
  return socket;
}

uint16_t LocalPort(int socket) {
  sockaddr_in address{};
  socklen_t size = sizeof address;
  const int failure = getsockname(socket, reinterpret_cast<sockaddr*>(&address), &size);
  return failure == 0 ? ntohs(address.sin_port) : uint16_t{0};
}

// The service's port may lie in the range that the kernel takes local ports from. While nothing
// listens, a socket that is given this very number connects to itself, answers itself, and keeps
// the service from binding.
int SocketBoundElsewhere(uint16_t port) {
  const int first = BoundSocket();
  if (first == -1 || LocalPort(first) != port) {
    return first;
  }
  const int second = BoundSocket();  // gets another number while the first one is held
  const int error = errno;
  (void)close(first);
  errno = error;
  return second;
}

}  // namespace

int Connect(uint16_t port, int& error) {
  const int socket = SocketBoundElsewhere(port);
  if (socket == -1) {
    error = errno;
    return -1;
  }
  // A small command does not wait for the acknowledgement of the one before.
  SetOption(socket, TCP_NODELAY);
  const sockaddr_in address = AddressOf(port);
  error = 0;
  if (connect(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) {
    return socket;
  }
  error = errno;
  if (error == EINPROGRESS) {
    return socket;
  }
  (void)close(socket);
  return -1;
}

int ConnectResult(int socket) {
  int error = 0;
  socklen_t size = sizeof error;
  return getsockopt(socket, SOL_SOCKET, SO_ERROR, &error, &size) == 0 ? error : errno;
}

long Send(int socket, std::string_view bytes) {
  return send(socket, bytes.data(), bytes.size(), MSG_NOSIGNAL);
}

long Receive(int socket, char* buffer, size_t size) {
  const long count = recv(socket, buffer, size, 0);
  if (count > 0) {
    // The service lets Nagle's algorithm gather its answers: an answer in two notifications would
    // wait for a delayed acknowledgement, about 40 ms. The kernel clears the option by itself.
    SetOption(socket, TCP_QUICKACK);
  }
  return count;
}

}  // namespace relay::link
