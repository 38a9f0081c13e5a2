// SPDX-License-Identifier: MIT
#pragma once

#include <termios.h>

#include <string>

// A serial device: a pseudo-terminal whose near end stands at a path of the test's choice, and
// whose far end is in the test's hands.
class Device {
 public:
  // Plugged in at `where`.
  explicit Device(std::string where = "/dev/ttyS2");
  ~Device();
  Device(const Device&) = delete;
  Device& operator=(const Device&) = delete;

  // The line hangs up and the path is gone.
  void Unplug();

  // A new device at the same path.
  void Plug();

  // The near end itself, to which the path leads.
  const std::string& Node() const { return node; }
  const std::string& Path() const { return path; }

  // Bytes on the line towards the service; waits while the line takes no more. False when the
  // deadline passes.
  bool Sends(const std::string& bytes) const;

  // The next `count` bytes from the service; fewer when the deadline passes.
  std::string Reads(size_t count) const;

  // What has come from the service and was not read yet, at most so much of it.
  std::string ReadsWaiting(size_t most = 4096) const;

  // The line settings of the near end.
  termios Settings() const;

  // Like another program that uses the line: it takes nothing from now on.
  int FarEnd() const { return farEnd; }

 private:
  std::string path;
  std::string node;
  int farEnd = -1;
};
