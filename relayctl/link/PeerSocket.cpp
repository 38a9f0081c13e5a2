// SPDX-License-Identifier: MIT
#include "link/PeerSocket.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <system_error>
#include <utility>

#include "relay/Error.h"

namespace {

constexpr size_t kPiece = 65536;

int Listen(uint16_t tcpPort) {
  const int socket = ::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  const int on = 1;
  (void)setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(tcpPort);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  if (socket == -1 || bind(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) ||
      listen(socket, 1) != 0) {
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

PeerSocket::PeerSocket(uint16_t tcpPort, bool isPatient)
    : listening(Listen(tcpPort)), waitsForAcknowledgements(isPatient) {}

PeerSocket::~PeerSocket() {
  Drop();
  (void)close(listening);
}

bool PeerSocket::Accept() {
  if (peer == -1) {
    sockaddr_in address{};
    socklen_t size = sizeof address;
    peer = accept4(listening, reinterpret_cast<sockaddr*>(&address), &size,
                   SOCK_NONBLOCK | SOCK_CLOEXEC);
    std::array<char, INET_ADDRSTRLEN> text{};
    (void)inet_ntop(AF_INET, &address.sin_addr, text.data(), text.size());
    peerAddress = text.data();
    const int atOnce = waitsForAcknowledgements ? 0 : 1;
    (void)setsockopt(peer, IPPROTO_TCP, TCP_NODELAY, &atOnce, sizeof atOnce);
    return peer != -1;
  }
  return false;
}

bool PeerSocket::Receive(std::string& bytes) {
  std::array<char, kPiece> buffer;
  const ssize_t count = recv(peer, buffer.data(), buffer.size(), 0);
  bytes.assign(buffer.data(), count > 0 ? static_cast<size_t>(count) : 0);
  if (count > 0 || (count < 0 && (errno == EAGAIN || errno == EINTR))) {
    return true;
  }
  Drop();
  return false;
}

void PeerSocket::Send(std::string_view bytes) {
  outgoing.Add(bytes);
  Flush();
}

void PeerSocket::Flush() {
  const std::string_view bytes = outgoing.View();
  const ssize_t count = send(peer, bytes.data(), bytes.size(), MSG_NOSIGNAL);
  outgoing.Take(count > 0 ? static_cast<size_t>(count) : 0);
}

void PeerSocket::EndSending() const { (void)shutdown(peer, SHUT_WR); }

void PeerSocket::Reset() {
  const linger atOnce = {1, 0};
  (void)setsockopt(peer, SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce);
  Drop();
}

void PeerSocket::Drop() {
  if (peer != -1) {
    (void)close(std::exchange(peer, -1));
  }
  outgoing.Clear();
}
