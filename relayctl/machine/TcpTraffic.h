// SPDX-License-Identifier: MIT
// What the kernel counts of a TCP connection: its own sock_diag, which any user may ask.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

// Counted at the service's end. "Sent" is what the other end's kernel has acknowledged, read or
// not.
struct TcpTraffic {
  uint32_t remoteAddress = 0;  // in host byte order, as the port
  uint16_t remotePort = 0;
  uint64_t received = 0;  // bytes
  uint64_t sent = 0;
  double sinceReceived = 0;  // seconds
  double sinceSent = 0;
  double windowWasFull = 0;  // seconds in all that sending waited for the other end's room
};

// All connections whose own port is `localPort`. `problem`: why there is none to be seen; empty:
// none is there.
std::vector<TcpTraffic> TcpTrafficOf(uint16_t localPort, std::string& problem);
