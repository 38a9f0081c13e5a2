// SPDX-License-Identifier: MIT
#pragma once

#include <memory>
#include <string>

#include "simulation/Files.h"

namespace simulation {

// A serial line and the device at its other end. The service's side is a terminal in raw mode,
// whatever it is set to.
class Line {
 public:
  explicit Line(std::string wanted) : node(std::move(wanted)) {}

  // The device's side.
  void DeviceSends(std::string_view bytes) { input += bytes; }
  std::string DeviceTakes();  // all that has come
  void Unplug() { isGone = true; }

  const std::string node;  // its path

  // What a port that is open holds, or what a port that is closed left behind.
  std::string input;   // to the service
  std::string output;  // to the device
  size_t room = 4096;  // how much of `output` the line holds before a write waits
  termios attributes{};
  bool isGone = false;
  int opens = 0;    // descriptions that are open
  int flushes = 0;  // of `input`
  bool dtr = false;
  Time openTakes = 0;   // a device that answers late
  int failsToOpen = 0;  // with this errno, if not 0
};

class LineNode : public Node {
 public:
  explicit LineNode(std::shared_ptr<Line> wanted) : line(std::move(wanted)) {}
  Result Open(int flags, std::shared_ptr<File>& opened) override;
  struct stat Status() const override;

 private:
  const std::shared_ptr<Line> line;
};

}  // namespace simulation
