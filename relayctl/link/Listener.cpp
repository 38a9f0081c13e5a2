// SPDX-License-Identifier: MIT
#include "link/Listener.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <string>
#include <system_error>

#include "relay/Error.h"

namespace {

int Listen(uint16_t tcpPort, int queue) {
  const int socket = ::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  const int on = 1;
  (void)setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(tcpPort);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  if (socket == -1 || bind(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) ||
      listen(socket, queue) != 0) {
    const int error = errno;
    (void)close(socket);
    throw relay::Error(relay::ErrorKind::kSystem,
                       "cannot listen on 127.0.0.1:" + std::to_string(tcpPort) + ": " +
                           std::generic_category().message(error),
                       error);
  }
  return socket;
}

}  // namespace

Listener::Listener(uint16_t tcpPort, int queue, Sends sends)
    : listening(Listen(tcpPort, queue)), isPatient(sends == Sends::kPatiently) {}

Listener::~Listener() { (void)close(listening); }

std::optional<Connection> Listener::Accept() const {
  sockaddr_in address{};
  socklen_t size = sizeof address;
  const int peer = accept4(listening, reinterpret_cast<sockaddr*>(&address), &size,
                           SOCK_NONBLOCK | SOCK_CLOEXEC);
  if (peer == -1) {
    return std::nullopt;
  }
  std::array<char, INET_ADDRSTRLEN> text{};
  (void)inet_ntop(AF_INET, &address.sin_addr, text.data(), text.size());
  const int atOnce = isPatient ? 0 : 1;
  (void)setsockopt(peer, IPPROTO_TCP, TCP_NODELAY, &atOnce, sizeof atOnce);
  return Connection(peer, text.data());
}
