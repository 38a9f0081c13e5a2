// SPDX-License-Identifier: MIT
#include "link/Connection.h"

#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <utility>

namespace {

constexpr size_t kPiece = 65536;

}  // namespace

Connection::Connection(int ownSocket, std::string peerAddress)
    : socket(ownSocket), address(std::move(peerAddress)) {}

Connection::Connection(Connection&& other) noexcept
    : socket(std::exchange(other.socket, -1)),
      address(std::move(other.address)),
      outgoing(std::move(other.outgoing)) {}

Connection::~Connection() {
  if (socket != -1) {
    (void)close(socket);
  }
}

bool Connection::Receive(std::string& bytes) const {
  std::array<char, kPiece> buffer;
  const ssize_t count = recv(socket, buffer.data(), buffer.size(), 0);
  bytes.assign(buffer.data(), count > 0 ? static_cast<size_t>(count) : 0);
  return count > 0 || (count < 0 && (errno == EAGAIN || errno == EINTR));
}

void Connection::Send(std::string_view bytes) {
  outgoing.Add(bytes);
  Flush();
}

void Connection::Flush() {
  const std::string_view bytes = outgoing.View();
  const ssize_t count = send(socket, bytes.data(), bytes.size(), MSG_NOSIGNAL);
  if (count < 0 && errno != EAGAIN && errno != EINTR) {
    outgoing.Clear();
  } else {
    outgoing.Take(count > 0 ? static_cast<size_t>(count) : 0);
  }
}

void Connection::EndSending() const { (void)shutdown(socket, SHUT_WR); }

void Connection::BreakOff() const {
  const linger atOnce = {1, 0};
  (void)setsockopt(socket, SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce);
}
