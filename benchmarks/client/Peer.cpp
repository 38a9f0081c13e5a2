// SPDX-License-Identifier: MIT
#include "client/Peer.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <stdexcept>

#include "client/Checked.h"
#include "protocol/WireFormat.h"

namespace {

constexpr size_t kReceiveBytes = 65536;
constexpr size_t kBlockHead = 1 + 1 + 2;  // block count, type, data length

// Tries until something listens: the time until then is what starting takes.
int ConnectTo(uint16_t port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  for (;;) {
    const int connection = Checked(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0), "socket");
    if (connect(connection, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0) {
      const int on = 1;
      Checked(setsockopt(connection, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on), "TCP_NODELAY");
      return connection;
    }
    (void)close(connection);
    (void)usleep(20);  // nothing listens there yet
  }
}

std::vector<uint8_t> HeaderOf(const std::string& name) {
  std::vector<uint8_t> header = {0,          0, kCommandData,
                                 kNamedPort, 0, static_cast<uint8_t>(name.size())};
  header.insert(header.end(), name.begin(), name.end());
  return header;
}

void SetLength(std::vector<uint8_t>& packet) {
  packet[0] = HighByte(static_cast<uint16_t>(packet.size()));
  packet[1] = LowByte(static_cast<uint16_t>(packet.size()));
}

void SendAll(int connection, const uint8_t* data, size_t count) {
  for (size_t done = 0; done < count;) {
    done += static_cast<size_t>(
        Checked(send(connection, data + done, count - done, MSG_NOSIGNAL), "send"));
  }
}

}  // namespace

Peer::Peer(const std::vector<uint16_t>& ports, const std::vector<std::string>& names)
    : incoming(kReceiveBytes) {
  for (const uint16_t port : ports) {
    connections.push_back(ConnectTo(port));
  }
  std::transform(names.begin(), names.end(), std::back_inserter(headers), HeaderOf);
}

Peer::~Peer() {
  for (const int connection : connections) {
    (void)close(connection);
  }
}

void Peer::Open(size_t port) { Command(port, kCommandOpen); }

void Peer::Close(size_t port) { Command(port, kCommandClose); }

void Peer::Command(size_t port, uint8_t command) {
  std::vector<uint8_t> packet = headers[port];
  packet[2] = command;
  SetLength(packet);
  SendAll(connections[0], packet.data(), packet.size());
  std::vector<uint8_t> expected = packet;
  expected.insert(expected.end(), {0, 0});
  SetLength(expected);
  std::vector<uint8_t> answer(expected.size());
  for (size_t done = 0; done < answer.size();) {
    done += ReceiveBytes(0, answer.data() + done, answer.size() - done);
  }
  if (answer != expected) {
    throw std::runtime_error("a command was not answered with 0");
  }
}

void Peer::Send(size_t port, const uint8_t* data, size_t count) {
  if (!SpeaksPackets()) {
    SendAll(connections[port], data, count);
    return;
  }
  outgoing = headers[port];
  outgoing.insert(outgoing.end(), {1, 1, HighByte(static_cast<uint16_t>(count)),
                                   LowByte(static_cast<uint16_t>(count))});
  outgoing.insert(outgoing.end(), data, data + count);
  SetLength(outgoing);
  SendAll(connections[0], outgoing.data(), outgoing.size());
}

size_t Peer::ReceiveBytes(size_t connection, uint8_t* data, size_t capacity) {
  const auto count =
      static_cast<size_t>(Checked(recv(connections[connection], data, capacity, 0), "recv"));
  if (count == 0) {
    throw std::runtime_error("the bridge has closed the connection");
  }
  if (acknowledgesAtOnce) {
    const int on = 1;  // the kernel takes it back by itself
    Checked(setsockopt(connections[connection], IPPROTO_TCP, TCP_QUICKACK, &on, sizeof on),
            "TCP_QUICKACK");
  }
  return count;
}

// Steps over the header of the next notification when all of it is there.
bool Peer::NextPayload(size_t port) {
  const std::vector<uint8_t>& header = headers[port];
  const size_t head = header.size() + kBlockHead;
  if (end - begin < head) {
    return false;
  }
  const uint8_t* const packet = incoming.data() + begin;
  if (!std::equal(header.begin() + kLengthSize, header.end(), packet + kLengthSize) ||
      packet[header.size()] != 1 || packet[header.size() + 1] != kReceivedDataBlock) {
    throw std::runtime_error("not a notification for this port");
  }
  payloadLeft = FromBytes(packet[head - 2], packet[head - 1]);
  begin += head;
  return true;
}

void Peer::Refill() {
  std::copy(incoming.begin() + static_cast<ptrdiff_t>(begin),
            incoming.begin() + static_cast<ptrdiff_t>(end), incoming.begin());
  end -= begin;
  begin = 0;
  end += ReceiveBytes(0, incoming.data() + end, incoming.size() - end);
}

size_t Peer::ReceiveSome(size_t port, uint8_t* data, size_t capacity) {
  if (!SpeaksPackets()) {
    return ReceiveBytes(port, data, capacity);
  }
  while (payloadLeft == 0 ? !NextPayload(port) : begin == end) {
    Refill();
  }
  const size_t count = std::min({payloadLeft, end - begin, capacity});
  std::copy_n(incoming.data() + begin, count, data);
  begin += count;
  payloadLeft -= count;
  return count;
}

void Peer::ReceiveExactly(size_t port, uint8_t* data, size_t count) {
  for (size_t done = 0; done < count;) {
    done += ReceiveSome(port, data + done, count - done);
  }
}
