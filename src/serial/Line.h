// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <string>

#include "serial/AbstractSerial.h"
#include "serial/SerialPortExport.h"

// The open device of a port, as the port and its receive thread share it. Both hold it: a thread
// that the bounded stop gave up on may outlive its port.
class CLine {
 public:
  // `lost` runs on the receive thread when a read has failed and the device is closed.
  using Lost = std::function<void(const std::string& devicePath)>;
  CLine(std::shared_ptr<CAbstractSerial> closedDevice, Lost lost);

  // The routine of the receive thread. `line` is a std::shared_ptr<CLine> on the heap, which the
  // routine takes over. Returns null.
  static void* Receive(void* line);

  // Opens the device again unless it is open: true when this call did.
  bool Reopen();

  // The receive thread ends at its next look; the device is closed.
  void Stop();

  // Set by the port before the receive thread starts, unchanged afterwards.
  const std::shared_ptr<CAbstractSerial> device;
  std::string devicePath;
  std::string portName;
  ReceiveCallback callback;
  SerialSettings settings;

  std::atomic<bool> isOpen{false};         // set by whoever opens, cleared by whoever closes
  std::atomic<bool> stopRequested{false};  // set by the port, never cleared

 private:
  void ReceiveUntilStopped();
  void CloseAfter(int readError);
  void Deliver(const uint8_t* data, int length);

  const Lost reportLost;
  std::atomic<bool> reopening{false};  // the port's Send and the receive thread may meet there
  std::string dump;                    // the receive thread's space for one
};
