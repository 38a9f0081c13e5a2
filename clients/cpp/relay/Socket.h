// SPDX-License-Identifier: MIT
// The system calls of the link. Not installed: users of the library see Client only.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace relay::link {

// A non-blocking socket on its way to 127.0.0.1:`port`. `error`: 0 connected, EINPROGRESS on its
// way, else why not; then the result is -1.
int Connect(uint16_t port, int& error);

// The end of a connect that was on its way: 0, or errno.
int ConnectResult(int socket);

// How many bytes the system took; -1 with errno. Never raises SIGPIPE.
long Send(int socket, std::string_view bytes);

// How many bytes came; 0 at the end; -1 with errno. Acknowledges what came at once.
long Receive(int socket, char* buffer, size_t size);

}  // namespace relay::link
