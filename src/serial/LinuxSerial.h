// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>

#include "serial/AbstractSerial.h"
#include "serial/SharedDescriptor.h"

// A termios device.
class CLinuxSerial final : public CAbstractSerial {
 public:
  CLinuxSerial();
  ~CLinuxSerial() override;  // closes
  CLinuxSerial(const CLinuxSerial&) = delete;
  CLinuxSerial& operator=(const CLinuxSerial&) = delete;

  int Open(const std::string& path, const SerialSettings& settings) override;
  int Close() override;
  int Configure(const SerialSettings& settings) override;
  int Write(const uint8_t* data, int length) override;
  int Read(uint8_t* buffer, int capacity) override;
  std::string FindUsbDevice(unsigned vendorId, unsigned productId) override;
  std::string ResolvePortName(const std::string& portName) override;
  int CloseForGood() override;

 private:
  CSharedDescriptor fd;
  std::atomic<unsigned> closes{0};  // counted by whoever closes, read by whoever opens
  std::atomic<bool> isClosedForGood{false};
  std::string devicePath;  // last opened; nobody reads it but a debugger
};
