// SPDX-License-Identifier: MIT
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <cstdarg>

#include "simulation/Calls.h"

using namespace simulation;

extern "C" int __real_ioctl(int number, unsigned long request, ...);
extern "C" int __wrap_ioctl(int number, unsigned long request, ...) {
  std::va_list more;
  va_start(more, request);
  void* const argument = va_arg(more, void*);
  va_end(more);
  if (!IsRunning()) {
    return __real_ioctl(number, request, argument);
  }
  Call call("ioctl", Call::kPlain, std::to_string(number));
  const Target<File> file(number, "ioctl");
  return static_cast<int>(call.Gives(file ? file->Control(request, argument) : -EBADF));
}

SIMULATED(int, tcgetattr, int number, termios* attributes) {
  if (!IsRunning()) {
    return __real_tcgetattr(number, attributes);
  }
  Call call("tcgetattr", Call::kPlain, std::to_string(number));
  const Target<File> file(number, "tcgetattr");
  return static_cast<int>(call.Gives(file ? file->GetAttributes(*attributes) : -EBADF));
}

SIMULATED(int, tcsetattr, int number, int when, const termios* attributes) {
  if (!IsRunning()) {
    return __real_tcsetattr(number, when, attributes);
  }
  Call call("tcsetattr", Call::kPlain, std::to_string(number));
  const Target<File> file(number, "tcsetattr");
  return static_cast<int>(call.Gives(file ? file->SetAttributes(*attributes) : -EBADF));
}

SIMULATED(int, tcflush, int number, int queue) {
  if (!IsRunning()) {
    return __real_tcflush(number, queue);
  }
  Call call("tcflush", Call::kPlain, std::to_string(number));
  const Target<File> file(number, "tcflush");
  return static_cast<int>(call.Gives(file ? file->Flush(queue) : -EBADF));
}

SIMULATED(int, isatty, int number) {
  if (!IsRunning()) {
    return __real_isatty(number);
  }
  const Target<File> file(number, "isatty");
  termios attributes{};
  return Told(file ? file->GetAttributes(attributes) : -EBADF) == 0 ? 1 : 0;
}
