// SPDX-License-Identifier: MIT
#pragma once

#include <netinet/in.h>
#include <sys/socket.h>

#include <cstdint>

#include "client/Checked.h"

// The first connection to 127.0.0.1 at `port`; blocks until it comes. Nobody else is taken, and the
// listening socket is left to the process's end. Throws std::system_error.
inline int AcceptOne(uint16_t port) {
  const int listening = Checked(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0), "socket");
  const int on = 1;
  Checked(setsockopt(listening, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on), "SO_REUSEADDR");
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  Checked(bind(listening, reinterpret_cast<sockaddr*>(&address), sizeof address), "bind");
  Checked(listen(listening, 1), "listen");
  return Checked(accept4(listening, nullptr, nullptr, SOCK_CLOEXEC), "accept");
}
