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
  if (machine.faults.Strike(Fault::kNoDescriptor)) {
    machine.oracle->MayFail();
    return static_cast<int>(call.Gives(-EMFILE));
  }
  return static_cast<int>(
      call.Gives(machine.descriptors.Add(std::make_shared<Socket>(machine.network))));
}

SIMULATED(int, setsockopt, int number, int level, int option, const void* value, socklen_t size) {
  if (!IsRunning()) {
    return __real_setsockopt(number, level, option, value, size);
  }
  Call call("setsockopt", Call::kPlain, std::to_string(number));
  const Target<Socket> socket(number, "setsockopt");
  if (!socket) {
    return static_cast<int>(call.Gives(socket.Refusal()));
  }
  if (level == SOL_SOCKET && option == SO_REUSEADDR && *static_cast<const int*>(value) != 0) {
    socket->AllowReuse();
  }
  return static_cast<int>(call.Gives(0));
}

SIMULATED(int, bind, int number, const sockaddr* address, socklen_t size) {
  if (!IsRunning()) {
    return __real_bind(number, address, size);
  }
  Call call("bind", Call::kPlain, std::to_string(number));
  const Target<Socket> socket(number, "bind");
  const auto port = ntohs(reinterpret_cast<const sockaddr_in*>(address)->sin_port);
  return static_cast<int>(call.Gives(socket ? socket->Bind(port) : socket.Refusal()));
}

SIMULATED(int, listen, int number, int backlog) {
  if (!IsRunning()) {
    return __real_listen(number, backlog);
  }
  Call call("listen", Call::kPlain, std::to_string(number));
  const Target<Socket> socket(number, "listen");
  return static_cast<int>(
      call.Gives(socket ? socket->StartListening(static_cast<size_t>(backlog)) : socket.Refusal()));
}

SIMULATED(int, accept, int number, sockaddr* address, socklen_t* size) {
  if (!IsRunning()) {
    return __real_accept(number, address, size);
  }
  Call call("accept", Call::kCancellable, std::to_string(number));
  Result result = -EBADF;
  // A stop's handler may have closed it on this very thread, just before. Then accept has to fail.
  if (Machine::Running()->descriptors.Find(number) != nullptr) {
    const Target<Socket> socket(number, "accept");
    std::shared_ptr<File> accepted;
    sockaddr_in from{};
    from.sin_family = AF_INET;
    result = socket ? socket->Accept(accepted, from.sin_addr.s_addr) : socket.Refusal();
    if (result == 0) {
      *reinterpret_cast<sockaddr_in*>(address) = from;
      *size = sizeof from;
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
  Result result = 0;
  {
    const Target<Socket> socket(number, "recv");
    result = socket ? socket->Receive(static_cast<char*>(buffer), capacity,
                                      socket->blocks && (flags & MSG_DONTWAIT) == 0)
                    : socket.Refusal();
  }
  return call.Gives(result);
}

SIMULATED(ssize_t, send, int number, const void* bytes, size_t count, int flags) {
  if (!IsRunning()) {
    return __real_send(number, bytes, count, flags);
  }
  Call call("send", Call::kCancellable, std::to_string(number) + ", " + std::to_string(count));
  Result result = 0;
  {
    const Target<Socket> socket(number, "send");
    result = socket ? socket->Send({static_cast<const char*>(bytes), count},
                                   socket->blocks && (flags & MSG_DONTWAIT) == 0)
                    : socket.Refusal();
  }
  if (result == -EPIPE && (flags & MSG_NOSIGNAL) == 0) {
    Kernel::Running()->SendToThread(Kernel::Running()->Current(), SIGPIPE);
  }
  return call.Gives(result);
}
