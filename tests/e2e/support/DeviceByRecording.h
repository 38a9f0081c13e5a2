// SPDX-License-Identifier: MIT
#pragma once

#include <future>
#include <string>

#include "e2e/support/Device.h"

// A device that behaves as in a recording: what the recording sends to its port must come, and
// behind that it sends what the recording has from the port.
class DeviceByRecording {
 public:
  // Plays from now on, on a thread of its own, until the recording's end. `device` must outlive it.
  DeviceByRecording(const Device& device, const std::string& port, const std::string& recording);

  // Waits for the end. Empty when everything came as recorded, else what did not.
  std::string Finish() { return result.get(); }

 private:
  std::future<std::string> result;
};
