// SPDX-License-Identifier: MIT
#include "Linux/LinuxSocket.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "Linux/CancellationShield.h"
#include "Linux/Console.h"
#include "Linux/SignalMask.h"

namespace {

constexpr const char* kLoopback = "127.0.0.1";
constexpr int kBacklog = 1;

sockaddr_in LoopbackAddress(uint32_t port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<uint16_t>(port & 0xFFFF));
  address.sin_addr.s_addr = inet_addr(kLoopback);
  return address;
}

// The tools that the service runs must not inherit its sockets: one that hangs would keep the port.
int KeptFromChildren(int descriptor) {
  (void)fcntl(descriptor, F_SETFD, FD_CLOEXEC);  // on -1 there is nothing to keep
  return descriptor;
}

int NewStream() {
  const int descriptor = socket(AF_INET, SOCK_STREAM, 0);
  return descriptor == -1 ? -1 : KeptFromChildren(descriptor);
}

// The port as it was asked for, not only its low 16 bits.
void ReportEndpoint(const char* event, uint32_t port) {
  WriteStandardOutput(std::string(event) + kLoopback +
                      "(PORT:" + std::to_string(static_cast<int32_t>(port)) + ")\n");
}

}  // namespace

CLinuxSocket::CLinuxSocket() = default;

CLinuxSocket::~CLinuxSocket() { (void)CLinuxSocket::Close(); }

int CLinuxSocket::Listen(uint32_t port) {
  if (listenDescriptor != -1) {
    return 0;
  }
  listenDescriptor = NewStream();
  if (listenDescriptor == -1 || !Bind(port) || listen(listenDescriptor, kBacklog) != 0) {
    return Fail();
  }
  ReportEndpoint("[LISTEN]IP:", port);
  return AcceptPeer();
}

bool CLinuxSocket::Bind(uint32_t port) {
  const int on = 1;
  // A refusal shows in bind.
  (void)setsockopt(listenDescriptor, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  const sockaddr_in address = LoopbackAddress(port);
  return ::bind(listenDescriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
}

int CLinuxSocket::AcceptPeer() {
  sockaddr_in peer{};
  socklen_t length = sizeof peer;
  int accepted = -1;
  {
    // A stop (see SignalMask.h) closes the listening descriptor under us. Whether it comes before
    // or inside accept, accept then fails: no retry, or it would be lost.
    const CStopSignalsAdmitted admitted;
    accepted = accept(listenDescriptor, reinterpret_cast<sockaddr*>(&peer), &length);
  }
  if (accepted == -1) {
    return Fail();
  }
  Take(KeptFromChildren(accepted));
  char text[INET_ADDRSTRLEN] = {};
  (void)inet_ntop(AF_INET, &peer.sin_addr, text, sizeof text);
  WriteStandardOutput("[ACCEPT]IP:" + std::string(text) + "\n");
  if (peer.sin_addr.s_addr != inet_addr(kLoopback)) {
    return Fail();  // no call has failed: errno is whatever it was before
  }
  return 0;
}

int CLinuxSocket::Connect(uint32_t port) {
  if (Connection().IsOpen()) {
    return 0;
  }
  const int made = NewStream();
  if (made == -1) {
    return Fail();
  }
  Take(made);
  const sockaddr_in address = LoopbackAddress(port);
  const CUsedDescriptor::CUse use(Connection());
  if (connect(use.Number(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    return Fail();
  }
  ReportEndpoint("[CONNECT]IP:", port);
  return 0;
}

void CLinuxSocket::Take(int number) {
  if (Connection().Set(number)) {
    return;
  }
  connections.emplace_front();
  (void)connections.front().Set(number);  // it is new
  connection = &connections.front();
}

int CLinuxSocket::Fail() {
  const int reason = errno;
  (void)Close();
  return reason != 0 ? reason : EACCES;  // 0 would read as success
}

int CLinuxSocket::Close() {
  const CCancellationShield shield;
  Connection().Close();
  const int listening = listenDescriptor.exchange(-1);  // two closers never close one number twice
  if (listening != -1) {
    (void)close(listening);
  }
  return 0;
}

int CLinuxSocket::Send(const uint8_t* data, int length) {
  const CUsedDescriptor::CUse use(Connection());
  return static_cast<int>(send(use.Number(), data, static_cast<size_t>(length), 0));
}

int CLinuxSocket::Recv(uint8_t* buffer, int capacity) {
  // For 0 bytes the kernel waits until some come, and only then says 0: such a request is a broken
  // stream at once.
  if (capacity < 1) {
    return -1;
  }
  const CUsedDescriptor::CUse use(Connection());
  const ssize_t received = recv(use.Number(), buffer, static_cast<size_t>(capacity), 0);
  return received < 1 ? -1 : static_cast<int>(received);
}
