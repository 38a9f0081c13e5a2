// SPDX-License-Identifier: MIT
#pragma once

#include <poll.h>

#include <atomic>
#include <functional>
#include <string>

#include "serial/AbstractSerial.h"

// A device in the test's hands: it opens under every name, and reads and writes as it is told to.
class FakeDevice final : public CAbstractSerial {
 public:
  int Open(const std::string&, const SerialSettings&) override { return kDeviceOpened; }
  int Close() override {
    isClosed = true;
    return 0;
  }
  int Configure(const SerialSettings&) override { return 0; }
  int Write(const uint8_t* data, int length) override { return onWrite(data, length); }
  int Read(uint8_t* buffer, int capacity) override { return onRead(buffer, capacity); }
  std::string FindUsbDevice(unsigned, unsigned) override { return ""; }
  std::string ResolvePortName(const std::string&) override { return "/dev/ttyS2"; }

  // What a line without data does.
  static int Idle(uint8_t* /*buffer*/, int /*capacity*/) { return poll(nullptr, 0, 100); }

  // Set before the port opens.
  std::function<int(uint8_t* buffer, int capacity)> onRead = Idle;
  std::function<int(const uint8_t* data, int length)> onWrite;
  std::atomic<bool> isClosed{false};
};
