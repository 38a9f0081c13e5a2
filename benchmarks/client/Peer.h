// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

// The TCP side of a bridge: a connection per port for bridges that pass bytes, one connection and
// packets for the service. One thread may receive while another sends. Errors: exceptions.
class Peer {
 public:
  // `ports`: the TCP ports; with packets one, and `names` are the serial ports' names.
  Peer(const std::vector<uint16_t>& ports, const std::vector<std::string>& names);
  ~Peer();
  Peer(const Peer&) = delete;
  Peer& operator=(const Peer&) = delete;

  bool SpeaksPackets() const { return !headers.empty(); }

  // Opens or closes a serial port of a service that speaks packets; its answer must be 0.
  void Open(size_t port);
  void Close(size_t port);

  // Whether each receive acknowledges at once what it got. True from the start.
  void AcknowledgeAtOnce(bool wanted) { acknowledgesAtOnce = wanted; }

  void Send(size_t port, const uint8_t* data, size_t count);  // at most kLargestSend bytes

  // The next bytes from `port`; 0 only for a packet without data.
  size_t ReceiveSome(size_t port, uint8_t* data, size_t capacity);
  void ReceiveExactly(size_t port, uint8_t* data, size_t count);

  static constexpr size_t kLargestSend = 4096;

 private:
  void Command(size_t port, uint8_t command);
  size_t ReceiveBytes(size_t connection, uint8_t* data, size_t capacity);
  bool NextPayload(size_t port);
  void Refill();

  std::vector<int> connections;
  std::vector<std::vector<uint8_t>> headers;  // of data packets, by port; the length still open
  std::vector<uint8_t> outgoing;
  std::vector<uint8_t> incoming;
  size_t begin = 0;  // what of `incoming` is not looked at yet
  size_t end = 0;
  size_t payloadLeft = 0;  // bytes still to come of the packet whose header is taken
  bool acknowledgesAtOnce = true;
};
