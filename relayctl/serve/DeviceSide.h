// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <string>
#include <string_view>
#include <vector>

// What the device at a port did in a recording.
struct RecordedStep {
  enum class Kind {
    kOpened,    // waits until the port is opened
    kClosed,    // waits until it is closed
    kTakes,     // waits for these bytes
    kGives,     // sends these bytes, when `pause` has passed since the step before
    kProvokes,  // "status #PhysicalPort0 4"
  };
  Kind kind = Kind::kOpened;
  std::string text;
  std::chrono::microseconds pause{0};
};

// Of all that a recording has, the side of this port's device. What was refused becomes a
// provocation; so does a remark that begins with ";;" and a word that provokes, where it names the
// port, or none and stands behind an event of the port. Throws kUsage: `NAME:12: what is wrong`.
std::vector<RecordedStep> ReadDeviceSide(const std::string& text, const std::string& name,
                                         const std::string& port);
