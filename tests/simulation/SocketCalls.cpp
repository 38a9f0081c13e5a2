// SPDX-License-Identifier: MIT
#include <netinet/in.h>
#include <sys/socket.h>

#include "simulation/Calls.h"

using namespace simulation;

SIMULATED(int, socket, int domain, int type, int protocol) {
  if (!IsRunning()) {
    return __real_socket(domain, type, protocol);
  }
  Call call("socket", Call::kPlain);
  Machine& machine = *Machine::Running();
  return static_cast<int>(
      call.Gives(machine.descriptors.Add(std::make_shared<Socket>(machine.network))));
}

SIMULATED(int, setsockopt, int number, int level, int option, const void* value, socklen_t size) {
  return IsRunning() ? 0 : __real_setsockopt(number, level, option, value, size);
}

SIMULATED(int, bind, int number, const sockaddr* address, socklen_t size) {
  if (!IsRunning()) {
    return __real_bind(number, address, size);
  }
  Call call("bind", Call::kPlain, std::to_string(number));
  const Target<Socket> socket(number, "bind");
  const auto port = ntohs(reinterpret_cast<const sockaddr_in*>(address)->sin_port);
  return static_cast<int>(call.Gives(socket ? socket->Bind(port) : -EBADF));
}

SIMULATED(int, listen, int number, int backlog) {
  if (!IsRunning()) {
    return __real_listen(number, backlog);
  }
  Call call("listen", Call::kPlain, std::to_string(number));
  const Target<Socket> socket(number, "listen");
  return static_cast<int>(
      call.Gives(socket ? socket->StartListening(static_cast<size_t>(backlog)) : -EBADF));
}

SIMULATED(int, accept, int number, sockaddr* address, socklen_t* size) {
  if (!IsRunning()) {
    return __real_accept(number, address, size);
  }
  Call call("accept", Call::kCancellable, std::to_string(number));
  Result result = -EBADF;
  // A stop's handler may have closed it on this very thread, just before. Then accept has to fail.
  if (std::dynamic_pointer_cast<Socket>(Machine::Running()->descriptors.Find(number)) != nullptr) {
    const Target<Socket> socket(number, "accept");
    std::shared_ptr<File> accepted;
    sockaddr_in from{};
    from.sin_family = AF_INET;
    if (socket) {
      result = socket->Accept(accepted, from.sin_addr.s_addr);
    }
    if (result == 0) {
      *reinterpret_cast<sockaddr_in*>(address) = from;
      result = Machine::Running()->descriptors.Add(std::move(accepted));
    }
  }
  return static_cast<int>(call.Gives(result));
}

SIMULATED(ssize_t, recv, int number, void* buffer, size_t capacity, int flags) {
  if (!IsRunning()) {
    return __real_recv(number, buffer, capacity, flags);
  }
  Call call("recv", Call::kCancellable, std::to_string(number) + ", " + std::to_string(capacity));
  Result result = -EBADF;
  {
    const Target<Socket> socket(number, "recv");
    if (socket) {
      result = socket->Read(static_cast<char*>(buffer), capacity);
    }
  }
  return call.Gives(result);
}

SIMULATED(ssize_t, send, int number, const void* bytes, size_t count, int flags) {
  if (!IsRunning()) {
    return __real_send(number, bytes, count, flags);
  }
  Call call("send", Call::kCancellable, std::to_string(number) + ", " + std::to_string(count));
  Result result = -EBADF;
  {
    const Target<Socket> socket(number, "send");
    if (socket) {
      result = socket->Write({static_cast<const char*>(bytes), count});
    }
  }
  return call.Gives(result);
}
