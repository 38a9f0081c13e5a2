// SPDX-License-Identifier: MIT
// The ways in which the real service comes to a halt.
#pragma once

#include <string>

#include "relayctl/RelayctlTest.h"

class HangingServiceTest : public RelayctlTest {
 protected:
  // A data command for #PhysicalPort0 with more bytes than the device's buffer holds.
  static std::string LongWrite();

  // The port's receive thread, which doctor and status look for, begins behind the answer.
  void StartWithOpenPort() {
    RelayctlTest::StartWithOpenPort();
    Settle();
  }

  // With the port open: the device takes no more, in the middle of a write.
  void StickWrite();

  void StopService();

  // "/proc/12"
  std::string Process() const { return "/proc/" + std::to_string(service->Pid()); }

 private:
  bool IsWriting() const;
};
