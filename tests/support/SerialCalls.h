// SPDX-License-Identifier: MIT
// The kernel's calls on a serial device, replaced at link time. Those on a followed device are
// written down and answered as the test wants; all others go through.
#pragma once

#include <sys/types.h>
#include <termios.h>

#include <chrono>
#include <functional>
#include <string>
#include <vector>

struct SerialCall {
  std::string text;  // "open(/dev/ttyS2, O_RDWR)", "tcflush(TCIOFLUSH)", "write(3)"
  std::chrono::steady_clock::time_point when;
};

// Once one lives, its answers count; only one at a time. Any thread may call.
class SerialCalls {
 public:
  SerialCalls();
  ~SerialCalls();
  SerialCalls(const SerialCalls&) = delete;
  SerialCalls& operator=(const SerialCalls&) = delete;

  // Follows each descriptor that is opened under `path`, where `target` is then opened really.
  void Follow(const std::string& path, const std::string& target);

  // `times` calls of this name fail, after the first `after` from now on have gone through.
  void Fail(const std::string& name, int error, int times = 1, int after = 0);

  // From here on the device keeps its attributes as a real one would, where a pseudo-terminal
  // has always 8 bits and no parity.
  void KeepAttributes(const termios& before);

  void OnWrite(std::function<ssize_t(size_t count)> hook);  // how many of the bytes are taken
  void OnOpen(std::function<void()> hook);                  // before the real call
  void OnOpened(std::function<void()> hook);                // in the call, once it has succeeded
  void OnSleep(std::function<void(unsigned micro)> hook);   // before the real call
  void RefuseThreads();

  std::vector<std::string> Texts() const;  // without reads, which come again and again
  int Count(const std::string& name) const;
  std::vector<SerialCall> Calls(const std::string& name) const;
  void Forget();  // what was written down

  std::vector<termios> Settings() const;  // each argument of tcsetattr
  termios Attributes() const;             // those that the device keeps
};
