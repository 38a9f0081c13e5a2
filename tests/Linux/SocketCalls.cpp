// SPDX-License-Identifier: MIT
#include "Linux/SocketCalls.h"

#include <arpa/inet.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <initializer_list>

namespace {

ScriptedKernel* kernel = nullptr;

std::string Text(const sockaddr* address) {
  const auto* internet =
      reinterpret_cast<const sockaddr_in*>(reinterpret_cast<const void*>(address));
  std::string text = inet_ntoa(internet->sin_addr);
  for (const unsigned char padding : internet->sin_zero) {
    text += padding == 0 ? "" : "(padding not zero)";
  }
  return text + ":" + std::to_string(ntohs(internet->sin_port));
}

// Writes the call down. False, with errno set, when it is to fail.
bool Called(const std::string& name, std::initializer_list<std::string> arguments) {
  std::string text = name + "(";
  for (const std::string& argument : arguments) {
    text += (text.back() == '(' ? "" : ", ") + argument;
  }
  kernel->calls.push_back(text + ")");
  const auto failure = kernel->failures.find(name);
  if (failure != kernel->failures.end()) {
    errno = failure->second;
    return false;
  }
  return true;
}

}  // namespace

ScriptedKernel::ScriptedKernel() { kernel = this; }
ScriptedKernel::~ScriptedKernel() { kernel = nullptr; }

extern "C" {

int __real_close(int descriptor);
int __real_fcntl64(int descriptor, int command, ...);

int __wrap_socket(int domain, int type, int protocol) {
  const bool ok = Called("socket", {domain == AF_INET ? "AF_INET" : std::to_string(domain),
                                    type == SOCK_STREAM ? "SOCK_STREAM" : std::to_string(type),
                                    std::to_string(protocol)});
  return ok ? kernel->nextDescriptor++ : -1;
}

int __wrap_setsockopt(int descriptor, int level, int option, const void* value, socklen_t length) {
  int number = 0;
  std::memcpy(&number, value, sizeof number);
  const bool known = level == SOL_SOCKET && option == SO_REUSEADDR;
  const std::string name = known ? "SO_REUSEADDR" : std::to_string(level * 1000 + option);
  return Called("setsockopt",
                {std::to_string(descriptor), name, std::to_string(number), std::to_string(length)})
             ? 0
             : -1;
}

// Where time has 64 bits on a 32-bit machine, setsockopt and fcntl have names of their own.
int __wrap___setsockopt64(int descriptor, int level, int option, const void* value,
                          socklen_t length) {
  return __wrap_setsockopt(descriptor, level, option, value, length);
}

int __wrap_bind(int descriptor, const sockaddr* address, socklen_t length) {
  return Called("bind", {std::to_string(descriptor), Text(address), std::to_string(length)}) ? 0
                                                                                             : -1;
}

int __wrap_listen(int descriptor, int backlog) {
  return Called("listen", {std::to_string(descriptor), std::to_string(backlog)}) ? 0 : -1;
}

int __wrap_accept(int descriptor, sockaddr* address, socklen_t* length) {
  if (!Called("accept", {std::to_string(descriptor), std::to_string(*length)})) {
    return -1;
  }
  sockaddr_in peer{};
  peer.sin_family = AF_INET;
  (void)inet_pton(AF_INET, kernel->peerAddress.c_str(), &peer.sin_addr);
  std::memcpy(address, &peer, sizeof peer);
  return kernel->nextDescriptor++;
}

int __wrap_connect(int descriptor, const sockaddr* address, socklen_t length) {
  return Called("connect", {std::to_string(descriptor), Text(address), std::to_string(length)})
             ? 0
             : -1;
}

ssize_t __wrap_send(int descriptor, const void*, size_t length, int flags) {
  const bool ok =
      Called("send", {std::to_string(descriptor), std::to_string(length), std::to_string(flags)});
  return ok ? kernel->transferred : -1;
}

ssize_t __wrap_recv(int descriptor, void*, size_t length, int flags) {
  const bool ok =
      Called("recv", {std::to_string(descriptor), std::to_string(length), std::to_string(flags)});
  return ok ? kernel->transferred : -1;
}

int __wrap_close(int descriptor) {
  if (kernel == nullptr || descriptor < 1000) {
    return __real_close(descriptor);
  }
  return Called("close", {std::to_string(descriptor)}) ? 0 : -1;
}

// The flag that keeps a descriptor from child programs is seen on real ones.
int __wrap_fcntl64(int descriptor, int command, ...) {
  va_list arguments;
  va_start(arguments, command);
  const int argument = va_arg(arguments, int);
  va_end(arguments);
  return kernel != nullptr && descriptor >= 1000 ? 0
                                                 : __real_fcntl64(descriptor, command, argument);
}

int __wrap___fcntl_time64(int descriptor, int command, ...) {
  va_list arguments;
  va_start(arguments, command);
  const int argument = va_arg(arguments, int);
  va_end(arguments);
  return __wrap_fcntl64(descriptor, command, argument);
}

}  // extern "C"
