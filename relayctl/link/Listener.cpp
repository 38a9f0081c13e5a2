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

[[noreturn]] void Fail(const std::string& what, int reason) {
  throw relay::Error(relay::ErrorKind::kSystem,
                     what + ": " + std::generic_category().message(reason), reason);
}

int Listen(uint16_t tcpPort, int queue) {
  const std::string failure = "cannot listen on 127.0.0.1:" + std::to_string(tcpPort);
  const int socket = ::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  if (socket == -1) {
    Fail(failure, errno);
  }
  const int on = 1;
  (void)setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(tcpPort);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  if (bind(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
      listen(socket, queue) != 0) {
    const int reason = errno;
    (void)close(socket);
    Fail(failure, reason);
  }
  return socket;
}

// Whoever waits goes on waiting then, and the listening socket stays ready.
bool IsLackOfMeans(int reason) {
  return reason == EMFILE || reason == ENFILE || reason == ENOBUFS || reason == ENOMEM;
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
    if (IsLackOfMeans(errno)) {
      Fail("cannot take a peer", errno);
    }
    return std::nullopt;
  }
  std::array<char, INET_ADDRSTRLEN> text{};
  (void)inet_ntop(AF_INET, &address.sin_addr, text.data(), text.size());
  const int atOnce = isPatient ? 0 : 1;
  (void)setsockopt(peer, IPPROTO_TCP, TCP_NODELAY, &atOnce, sizeof atOnce);
  return Connection(peer, text.data());
}
